/**
 * @file
 * Decoding of pictures on several threads.
 */
#ifndef ZEL_TOOLS_DECODING_POOL_H
#define ZEL_TOOLS_DECODING_POOL_H

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "picture.h"

/** Threads that decode pictures in the order in which they were asked to. */
class DecodingPool {
public:
    /**
     * Starts threads; fewer where the system gives no more.
     * @param jobs  number of threads, 1 or more
     * @param box   as for DecodePicture()
     * Throws std::system_error when no thread can be started.
     */
    DecodingPool(int jobs, int box);

    /** Waits for the pictures that are being decoded, and drops those that are not begun. */
    ~DecodingPool();

    DecodingPool(const DecodingPool&) = delete;
    DecodingPool& operator=(const DecodingPool&) = delete;

    /** Asks for a picture. What DecodePicture() throws comes out of the future. */
    [[nodiscard]] std::future<Pixels> Decode(const std::string& file);

private:
    void Work();

    const int box_;
    std::mutex mutex_;

    // Under the mutex.
    std::deque<std::packaged_task<Pixels()>> waiting_;
    bool is_ending_ = false;
    std::condition_variable changed_;

    std::vector<std::thread> threads_;
};

#endif
