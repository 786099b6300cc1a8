#include "db_sql/stored_hashes.h"

#include <algorithm>

#include "db/data_scan.h"
#include "db/database.h"
#include "db_sql/db_layout.h"
#include "db_sql/no_oop.h"

namespace crv {

namespace {

/// A hash of other octets has that many in common by accident once in a million.
constexpr int kLikeOctets = 4;

bool isLike(std::string_view stored, std::string_view hash) {
    int common = 0;
    for (size_t i = 0; i < std::min(stored.size(), hash.size()); ++i) common += stored[i] == hash[i];
    return stored == hash || common >= kLikeOctets;
}

}  // namespace

StoredHashes::StoredHashes(const std::string& directory) {
    DataFile addIdx;
    if (addIdx.open(directory + std::string(addIdxTb.file) + kDataExtension) != kDbOk) return;
    DataScan scan(addIdx);
    while (scan.next() == DataScan::Result::Record) {
        const auto id = recNoDecode(scan.key(kAddByRecId));
        if (scan.deleted() || !id) continue;
        const std::string_view text = scan.key(kAddByCrtHash).substr(0, sizeof(DbHash));
        Stored& stored = hashes_.emplace_back(Stored{*id, {}, static_cast<uint8_t>(text.size())});
        std::ranges::copy(text, stored.octets.begin());
    }
    std::ranges::stable_sort(hashes_, {}, &Stored::id);
}

StoredHashes::Answer StoredHashes::compare(int64_t id, const DbHash& hash) const {
    const auto first = std::ranges::lower_bound(hashes_, id, {}, &Stored::id);
    const auto last = std::ranges::upper_bound(hashes_, id, {}, &Stored::id);
    if (first == last) return Answer::Unknown;
    const std::string_view text = keyText(asText(hash));
    const bool same = std::any_of(first, last, [&](const Stored& stored) { return isLike(stored.text(), text); });
    return same ? Answer::Same : Answer::Other;
}

}  // namespace crv
