/**
 * @file
 * The commands of zel-thumbnail-cache. Each prints its result on standard output and returns the
 * exit status: 0 when everything was right, 1 when something failed and was reported on standard
 * error. A failure that ends the command is thrown as an exception that says why.
 */
#ifndef ZEL_TOOLS_COMMANDS_H
#define ZEL_TOOLS_COMMANDS_H

#include "options.h"

/** Makes and caches a thumbnail of each picture. */
int SavePictures(const Options& options);

/** Prints the storages that the platform knows. */
int PrintDevices(const Options& options);

/** Prints what an index holds. */
int PrintIndex(const Options& options);

/** Hosts the cache and removes the thumbnails of storages that go, until SIGINT or SIGTERM. */
int WatchStorages(const Options& options);

#endif
