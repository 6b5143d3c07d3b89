#include "decoding_pool.h"

#include <system_error>
#include <utility>

DecodingPool::DecodingPool(int jobs, int box) : box_(box) {
    threads_.reserve(static_cast<std::size_t>(jobs));
    try {
        while (jobs-- > 0) {
            threads_.emplace_back(&DecodingPool::Work, this);
        }
    } catch (const std::system_error&) {
        if (threads_.empty()) {
            throw;
        }
    }
}

DecodingPool::~DecodingPool() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        is_ending_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

std::future<Pixels> DecodingPool::Decode(const std::string& file) {
    std::packaged_task<Pixels()> task([file, box = box_] { return DecodePicture(file, box); });
    std::future<Pixels> pixels = task.get_future();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        waiting_.push_back(std::move(task));
    }
    changed_.notify_one();
    return pixels;
}

void DecodingPool::Work() {
    for (;;) {
        std::packaged_task<Pixels()> task;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [this] { return is_ending_ || !waiting_.empty(); });
            if (is_ending_) {
                return;
            }
            task = std::move(waiting_.front());
            waiting_.pop_front();
        }
        task();
    }
}
