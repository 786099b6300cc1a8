// Certificates taken apart by all processors while those before them are stored.
#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <span>
#include <vector>

#include "db_sql/crt_record.h"

namespace crv {

/// Reads a source in batches: the next one is taken apart by other threads while the owner stores the last.
class CrtRecordsAhead {
  public:
    /// Gives the next certificate's octets, good until the next call; false at the end. Called by the owner's thread.
    using Source = std::function<bool(ByteView& der)>;

    /// Most certificates of a batch. The first ones are smaller, because nothing is stored while they are taken apart.
    static constexpr size_t kBatchSize = 6144;
    static constexpr size_t kFirstBatch = 512;
    /// A batch with as many octets takes no certificate any more.
    static constexpr size_t kBatchOctets = size_t{8} << 20;

    explicit CrtRecordsAhead(const Source& source) : source_(source) { begin(); }

    /// The next batch up to the first that is no certificate, good until the next call; empty at the end. The owner's
    /// thread takes its part in what the others have not come to yet.
    [[nodiscard]] std::span<const CrtRecord> next();
    /// Whether the last batch ended at octets that are no certificate; there is none behind it then.
    [[nodiscard]] bool unreadable() const { return unreadable_; }

  private:
    struct Batch {
        Bytes octets;
        std::vector<size_t> ends;  // of the certificates in them
        std::vector<CrtRecord> records;
        std::atomic<size_t> taken = 0;  // so many somebody has taken on
        std::atomic<size_t> sound = 0;  // the first that is no certificate, or their number
    };
    static void takeApart(Batch& batch);
    void begin();

    const Source& source_;
    size_t batchSize_ = kFirstBatch;
    bool unreadable_ = false;
    // The memory of a batch serves the next but one, so that whoever fills it frees what was in it.
    std::unique_ptr<Batch> batch_ = std::make_unique<Batch>(), ahead_ = std::make_unique<Batch>();
    std::vector<std::future<void>> helpers_;  // on the batch ahead; they end before it does
};

}  // namespace crv
