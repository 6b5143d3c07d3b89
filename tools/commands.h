/**
 * @file
 * The commands of zel-thumbnail-cache. Each prints its result on standard output and returns the
 * exit status: 0 when everything was right, 1 when something failed and was reported on standard
 * error, unless it says otherwise. A failure that ends the command is thrown as an exception that
 * says why.
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

/**
 * Compares an index with the folders that it names, prints what is not as it should be, and mends
 * it if told to.
 * @return 0 when the cache is sound, 1 when it has been mended, 4 when it is not sound
 */
int CheckIndex(const Options& options);

/** Prints how full a cache is, and with what. */
int PrintStatistics(const Options& options);

/** Makes a page that shows the thumbnails of an index. */
int MakeSheet(const Options& options);

/** Hosts the cache and removes the thumbnails of storages that go, until SIGINT or SIGTERM. */
int WatchStorages(const Options& options);

#endif
