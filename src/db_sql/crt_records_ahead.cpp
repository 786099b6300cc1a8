#include "db_sql/crt_records_ahead.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "db_sql/crt_keys.h"
#include "misc/aside.h"

namespace crv {

namespace {

/// Fewer are taken apart sooner than a thread starts.
constexpr size_t kWorthAThread = 64;
/// Certificates that a thread takes on at a time.
constexpr size_t kAtATime = 64;
constexpr size_t kMaxHelpers = 16;

/// A thread less than there are processors, which stores, but one at least.
size_t helpersFor(size_t count) {
    const size_t processors = std::clamp<size_t>(std::thread::hardware_concurrency(), 2, kMaxHelpers + 1);
    return std::min(count / kWorthAThread, processors - 1);
}

}  // namespace

void CrtRecordsAhead::takeApart(Batch& batch) {
    const size_t count = batch.ends.size();
    for (size_t from; (from = batch.taken.fetch_add(kAtATime)) < count;) {
        const size_t to = std::min(from + kAtATime, count);
        for (size_t i = from; i < to; ++i) {
            const size_t start = i == 0 ? 0 : batch.ends[i - 1];
            if (makeCrtRecord(ByteView(batch.octets).subspan(start, batch.ends[i] - start), batch.records[i])) continue;
            lowerTo(batch.sound, i);
            break;
        }
    }
}

/// Where no thread can be had, the owner takes apart alone when it asks.
void CrtRecordsAhead::begin() {
    Batch& batch = *ahead_;
    batch.octets.clear();
    batch.ends.clear();
    for (ByteView der; batch.ends.size() < batchSize_ && batch.octets.size() < kBatchOctets && source_(der);) {
        batch.octets.insert(batch.octets.end(), der.begin(), der.end());
        batch.ends.push_back(batch.octets.size());
    }
    const size_t count = batch.ends.size();
    batch.records.resize(std::max(batch.records.size(), count));
    batch.taken = 0;
    batch.sound = count;
    batchSize_ = std::min(2 * batchSize_, kBatchSize);
    for (size_t i = 0; i < helpersFor(count); ++i) helpers_.push_back(aside([&batch] { takeApart(batch); }));
}

std::span<const CrtRecord> CrtRecordsAhead::next() {
    takeApart(*ahead_);
    for (std::future<void>& helper : std::exchange(helpers_, {})) helper.get();
    std::swap(batch_, ahead_);
    const size_t sound = batch_->sound;
    unreadable_ = unreadable_ || sound < batch_->ends.size();
    if (!unreadable_ && sound > 0) {
        begin();
    } else {
        ahead_->ends.clear();
        ahead_->sound = 0;
    }
    return std::span(batch_->records).first(sound);
}

}  // namespace crv
