// Waiting for worker threads.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace crv {

/// Counts the workers that are still at work; somebody waits until there are none.
class ConditionCounter {
  public:
    void up() {
        const std::scoped_lock guard(mutex_);
        ++count_;
    }
    void down() {
        const std::scoped_lock guard(mutex_);
        if (--count_ == 0) zero_.notify_all();
    }
    /// False when the time is over and somebody still works.
    [[nodiscard]] bool waitZero(std::chrono::milliseconds atMost) {
        std::unique_lock guard(mutex_);
        return zero_.wait_for(guard, atMost, [this] { return count_ == 0; });
    }
    void waitZero() {
        std::unique_lock guard(mutex_);
        zero_.wait(guard, [this] { return count_ == 0; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable zero_;
    int count_ = 0;
};

}  // namespace crv
