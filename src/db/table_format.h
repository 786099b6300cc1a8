// The two files of a table as they lie on the disk. All numbers are little-endian; docs/formats.md draws the layouts.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "misc/byte_order.h"
#include "misc/bytes.h"

namespace crv {

constexpr int MAX_INDEX = 10;
constexpr int64_t kTableMagic = 0x12344321;

/// Answers of the table operations.
enum DbAnswer : int {
    kDbError = 0,     ///< failure; the status says why
    kDbOk = 1,        ///< done; for a seek: an equal key found
    kDbDeleted = 2,   ///< the record is deleted
    kDbGreater = 3,   ///< seek: no equal key, a greater one found
    kDbTooLong = 4,   ///< update: the body does not fit
    kDbNoRecord = -1  ///< end of the table, or not found
};

/// One index of a table. keyLen counts the longest key with its terminating zero octet; both are octets.
struct IndexDesc {
    int16_t keyLen = 0;
    int16_t pageSize = 0;
    bool operator==(const IndexDesc&) const = default;
};

/// Position of a page or record that is not there.
constexpr int64_t kNowhere = -1;

namespace index_format {
constexpr size_t kHeadArea = 2048;  ///< zero-filled area in front of the pages
constexpr size_t kHeadSize = 416;
constexpr size_t kHeadNumIndexes = 0;  // 8
constexpr size_t kHeadInsertions = 8;  // 8
constexpr size_t kDescriptors = 16;
constexpr size_t kDescriptorSize = 40;
constexpr size_t kDescMagic = 0;      // 8
constexpr size_t kDescRoot = 8;       // 8
constexpr size_t kDescFirst = 16;     // 8
constexpr size_t kDescLast = 24;      // 8
constexpr size_t kDescPageSize = 32;  // 2
constexpr size_t kDescKeyLen = 34;    // 2
constexpr size_t kDescMaxKeys = 36;   // 2
constexpr size_t kPageHead = 32;
constexpr size_t kPageCount = 0;      // 8
constexpr size_t kPageNext = 8;       // 8
constexpr size_t kPagePrev = 16;      // 8
constexpr size_t kPageLeftmost = 24;  // 8
constexpr size_t kEntrySize = 16;     // 8 record position, 8 child
}  // namespace index_format

namespace data_format {
constexpr size_t kHeadSize = 56;
constexpr size_t kHeadMagic = 0;       // 8
constexpr size_t kHeadNumIndexes = 8;  // 2
constexpr size_t kDescriptors = 10;    // 4 each: key length 2, page size 2
constexpr size_t kRecordHead = 32;
constexpr size_t kRecordDeleted = 0;    // 8
constexpr size_t kRecordMagic = 8;      // 8
constexpr size_t kRecordLength = 16;    // 8
constexpr size_t kRecordCapacity = 24;  // 8
}  // namespace data_format

/// Keys that a page of the index holds at most: even; 0 for a description that admits no index.
constexpr int maxKeysOf(IndexDesc desc) {
    if (desc.keyLen < 1 || desc.pageSize < static_cast<int>(index_format::kPageHead)) return 0;
    const int fit = (desc.pageSize - static_cast<int>(index_format::kPageHead)) /
                    (desc.keyLen + static_cast<int>(index_format::kEntrySize));
    return fit - fit % 2;
}

/// A record as read: its keys without terminators, and its body.
struct TableRecord {
    std::vector<std::string> keys;
    Bytes body;
    bool operator==(const TableRecord&) const = default;
};

/// What the tables see of a key: the octets before its first zero octet.
inline std::string_view keyText(std::string_view key) {
    return key.substr(0, key.find('\0'));
}

/// Eight octets of a key (without zero octets) from `depth` on, as a number that sorts like them; what is behind its
/// end counts as zero.
inline uint64_t keyPart(std::string_view key, size_t depth = 0) {
    std::array<char, sizeof(uint64_t)> octets{};
    if (depth < key.size()) key.copy(octets.data(), octets.size(), depth);
    return loadBe<uint64_t>(octets.data());
}

/// Whether the key and its terminator fit into a slot of the index.
inline bool keyFits(std::string_view key, IndexDesc desc) {
    return keyText(key).size() < static_cast<size_t>(desc.keyLen);
}

}  // namespace crv
