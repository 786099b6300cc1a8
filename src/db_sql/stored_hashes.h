// What certificates were when they were stored.
#pragma once

#include <cstdint>
#include <map>
#include <string>

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
    // A damaged id may be that of another certificate, which then has two.
    std::multimap<int64_t, std::string> hashes_;
};

}  // namespace crv
