// What certificates were when they were stored.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "db_sql/crt_record.h"

namespace crv {

/// The SHA-1s of the table of additional identifiers, by the certificates' ids.
class StoredHashes {
  public:
    enum class Answer {
        Same,   ///< the certificate that was stored; an octet of the SHA-1 itself may be damaged
        Other,  ///< its octets have changed since
        Unknown
    };

    StoredHashes() = default;
    /// Takes what can be read of the data file in the directory, which ends with a slash. The caller holds the lock.
    explicit StoredHashes(const std::string& directory);

    [[nodiscard]] Answer compare(int64_t id, const DbHash& hash) const;

  private:
    /// The octets of a SHA-1 before its first zero octet, as the table has them; of a damaged one the first.
    struct Stored {
        int64_t id;
        std::array<char, sizeof(DbHash)> octets;
        uint8_t size;
        [[nodiscard]] std::string_view text() const { return {octets.data(), size}; }
    };
    // By id. A damaged id may be that of another certificate, which then has two.
    std::vector<Stored> hashes_;
};

}  // namespace crv
