// Signatures checked by several threads before anybody asks for them.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "pki/path_rules.h"

namespace crv {

/// Checks batches of signatures in the order in which they were begun, with a thread a processor, the owner's included.
/// What is right goes into the cache; what is not is left for whoever asks, who finds out why.
class SignaturesAhead {
  public:
    struct Task {
        FactsPtr object;
        WorkingKey key;
        bool good = false;
    };

    /// Takes signatures that are known for right out of the cache, and puts what is found into it; by the owner's
    /// thread alone.
    explicit SignaturesAhead(CertificateCache& cache) : cache_(cache) {}
    SignaturesAhead(const SignaturesAhead&) = delete;
    SignaturesAhead& operator=(const SignaturesAhead&) = delete;
    /// Ends the threads; what was not finished is dropped.
    ~SignaturesAhead();

    /// Begins with a batch and returns.
    void begin(std::vector<Task> tasks);
    /// Ends the oldest batch, with the owner's help.
    void finish();

  private:
    struct Batch {
        std::vector<Task> tasks;
        size_t next = 0, done = 0;
    };
    void startThreads();
    void work();
    /// Checks one signature of the batch without the lock; false when none is left.
    bool step(Batch& batch, std::unique_lock<std::mutex>& lock);

    CertificateCache& cache_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Batch> batches_;
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace crv
