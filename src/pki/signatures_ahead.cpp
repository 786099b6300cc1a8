#include "pki/signatures_ahead.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "crypto/public_key.h"
#include "misc/signals_held.h"

namespace crv {

namespace {

/// Fewer are checked sooner than a thread starts.
constexpr size_t kWorthThreads = 16;
constexpr unsigned kMaxThreads = 16;

bool isRight(const SignaturesAhead::Task& task) {
    try {
        return task.object->certificate->isSignedBy(*task.key.key);
    } catch (const std::exception&) {  // whoever asks for it finds the cause
        return false;
    }
}

}  // namespace

SignaturesAhead::~SignaturesAhead() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

/// Where no thread can be had the owner does all.
void SignaturesAhead::startThreads() {
    const unsigned processors = std::min(std::thread::hardware_concurrency(), kMaxThreads);
    const SignalsHeld held;
    try {
        while (threads_.size() + 1 < processors) threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
    }
}

void SignaturesAhead::begin(std::vector<Task> tasks) {
    std::erase_if(tasks, [&](const Task& task) {
        return !task.key.key || cache_.isKnownSignature(task.object->digest, task.key.digest);
    });
    if (threads_.empty() && tasks.size() >= kWorthThreads) startThreads();
    {
        const std::lock_guard lock(mutex_);
        batches_.push_back({std::move(tasks)});
    }
    changed_.notify_all();
}

bool SignaturesAhead::step(Batch& batch, std::unique_lock<std::mutex>& lock) {
    if (batch.next == batch.tasks.size()) return false;
    Task& task = batch.tasks[batch.next++];
    lock.unlock();
    task.good = isRight(task);
    lock.lock();
    if (++batch.done == batch.tasks.size()) changed_.notify_all();
    return true;
}

void SignaturesAhead::work() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        const auto open = std::ranges::find_if(batches_, [](const Batch& one) { return one.next < one.tasks.size(); });
        if (open == batches_.end()) {
            changed_.wait(lock);
        } else {
            static_cast<void>(step(*open, lock));
        }
    }
}

void SignaturesAhead::finish() {
    std::unique_lock lock(mutex_);
    Batch& oldest = batches_.front();
    while (step(oldest, lock)) continue;
    changed_.wait(lock, [&] { return oldest.done == oldest.tasks.size(); });
    for (const Task& task : oldest.tasks)
        if (task.good) cache_.keepSignature(task.object->digest, task.key.digest);
    batches_.pop_front();
}

}  // namespace crv
