/**
 * @file
 * One run of the thumbnail cache.
 */
#ifndef ZEL_TOOLS_CACHE_SESSION_H
#define ZEL_TOOLS_CACHE_SESSION_H

#include <string>

#include "picture.h"

/** The cache, started and ready; one object at a time. Its destructor stops the cache. */
class CacheSession {
public:
    /**
     * Starts the cache and waits until it is ready, 30 seconds at most.
     * Throws std::runtime_error with the reason when it does not become ready.
     */
    explicit CacheSession(const std::string& index);
    ~CacheSession();
    CacheSession(const CacheSession&) = delete;
    CacheSession& operator=(const CacheSession&) = delete;

    /**
     * Saves one thumbnail.
     * @param file    full path of the thumbnail; a file of that name is replaced
     * @param url     location of the picture that it shows
     * @param pixels  the thumbnail, only read
     * @return whether the cache took it; the file may still be missing
     */
    [[nodiscard]] bool Save(const std::string& file, const std::string& url, Pixels& pixels) const;
};

#endif
