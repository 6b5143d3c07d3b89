/**
 * @file
 * Exclusion of commands that would use one index at the same time.
 */
#ifndef ZEL_TOOLS_INDEX_LOCK_H
#define ZEL_TOOLS_INDEX_LOCK_H

#include <string>

#include "util/file_descriptor.h"

/**
 * The directory of an index, locked against other commands until the object or the process ends.
 * It is the directory of the file that the index leads to when it is a symbolic link, because the
 * cache writes there: every name of an index but a hard link comes to the same lock. The directory
 * itself is locked, as a rewritten index is a new file.
 */
class IndexLock {
public:
    /**
     * Takes the lock without waiting.
     * Throws std::runtime_error with the reason, which names the process in the way if it can be
     * known.
     */
    explicit IndexLock(const std::string& index);

    /** Waits until the names in the directory are on the device; false when that fails. */
    [[nodiscard]] bool SyncDirectory() const;

private:
    const CZELFileDescriptor directory_;
};

/**
 * The process that has the lock, as far as it can be known; empty when none has it, or when that
 * cannot be told.
 */
[[nodiscard]] std::string DescribeIndexUser(const std::string& index);

#endif
