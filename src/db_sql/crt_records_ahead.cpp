#include "db_sql/crt_records_ahead.h"

#include <algorithm>
#include <iterator>
#include <thread>
#include <utility>

#include "db_sql/crt_keys.h"
#include "misc/signals_held.h"

namespace crv {

namespace {

/// Fewer are taken apart sooner than a thread starts.
constexpr size_t kWorthAThread = 64;
constexpr size_t kMaxRecordThreads = 16;

/// A thread less than there are processors, which stores, but one at least.
size_t sharesOf(size_t count) {
    const size_t processors = std::clamp<size_t>(std::thread::hardware_concurrency(), 2, kMaxRecordThreads + 1);
    return std::clamp<size_t>(count / kWorthAThread, 1, processors - 1);
}

}  // namespace

CrtRecordsAhead::Share CrtRecordsAhead::takeApart(const std::vector<ByteView>& ders) {
    Share share;
    share.records.reserve(ders.size());
    for (const ByteView der : ders) {
        if (makeCrtRecord(der, share.records.emplace_back())) continue;
        share.records.pop_back();
        share.unreadable = true;
        break;
    }
    return share;
}

/// Where no thread can be had, and for a few, the owner takes apart when it asks.
void CrtRecordsAhead::begin() {
    std::vector<size_t> ends;
    for (ByteView der; ends.size() < batchSize_ && octetsAhead_.size() < kBatchOctets && source_(der);) {
        octetsAhead_.insert(octetsAhead_.end(), der.begin(), der.end());
        ends.push_back(octetsAhead_.size());
    }
    std::vector<ByteView> ders;
    for (size_t start = 0; const size_t end : ends) {
        ders.push_back(ByteView(octetsAhead_).subspan(start, end - start));
        start = end;
    }
    batchSize_ = std::min(2 * batchSize_, kBatchSize);
    const auto policy =
        ders.size() < kWorthAThread ? std::launch::deferred : std::launch::async | std::launch::deferred;
    const size_t count = sharesOf(ders.size());
    const SignalsHeld held;
    for (size_t i = 0; i < count && !ders.empty(); ++i) {
        const auto at = [&](size_t share) {
            return ders.begin() + static_cast<std::ptrdiff_t>(ders.size() * share / count);
        };
        shares_.push_back(std::async(policy, takeApart, std::vector<ByteView>(at(i), at(i + 1))));
    }
}

std::vector<CrtRecord> CrtRecordsAhead::next() {
    std::vector<CrtRecord> batch;
    for (std::future<Share>& future : std::exchange(shares_, {})) {
        Share share = future.get();
        if (unreadable_) continue;
        batch.insert(batch.end(), std::make_move_iterator(share.records.begin()),
                     std::make_move_iterator(share.records.end()));
        unreadable_ = share.unreadable;
    }
    octets_ = std::exchange(octetsAhead_, {});
    if (!unreadable_ && !batch.empty()) begin();
    return batch;
}

}  // namespace crv
