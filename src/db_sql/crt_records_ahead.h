// Certificates taken apart by all processors while those before them are stored.
#pragma once

#include <functional>
#include <future>
#include <vector>

#include "db_sql/crt_record.h"

namespace crv {

/// Reads a source in batches: the next one is taken apart by other threads while the owner stores the last.
class CrtRecordsAhead {
  public:
    /// Gives the next certificate's octets, good until the next call; false at the end. Called by the owner's thread.
    using Source = std::function<bool(ByteView& der)>;

    /// Most certificates of a batch. The first ones are smaller, because nothing is stored while they are taken apart.
    static constexpr size_t kBatchSize = 2048;
    static constexpr size_t kFirstBatch = 512;
    /// A batch with as many octets takes no certificate any more.
    static constexpr size_t kBatchOctets = size_t{8} << 20;

    explicit CrtRecordsAhead(const Source& source) : source_(source) { begin(); }

    /// The next batch, whose octets are good until the call after it, up to the first that is no certificate; empty at
    /// the end.
    [[nodiscard]] std::vector<CrtRecord> next();
    /// Whether the last batch ended at octets that are no certificate; there is none behind it then.
    [[nodiscard]] bool unreadable() const { return unreadable_; }

  private:
    struct Share {
        std::vector<CrtRecord> records;
        bool unreadable = false;
    };
    static Share takeApart(const std::vector<ByteView>& ders);
    void begin();

    const Source& source_;
    size_t batchSize_ = kFirstBatch;
    Bytes octets_, octetsAhead_;  // of the batch handed out, and of the next one
    bool unreadable_ = false;
    std::vector<std::future<Share>> shares_;  // in the order of the source
};

}  // namespace crv
