// A certificate with the keys under which the database stores it.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "db_sql/dn_fld.h"
#include "misc/bytes.h"

namespace crv {

constexpr size_t kDbHashSize = 20;
using DbHash = std::array<uint8_t, kDbHashSize>;  ///< SHA-1

/// Longest e-mail address of a certificate that is stored.
constexpr size_t kMaxCrtEmail = 128;
/// Longest key identifier of a certificate that is stored.
constexpr size_t kMaxCrtKeyId = 40;

/// Most subject-name fields of a certificate that is stored: each is a record of its own.
constexpr size_t kMaxCrtFields = 1000;

/// What insertCert stores. `der` refers to memory of the caller.
struct CrtRecord {
    DbHash serNumHash{};  ///< of the DER serial number
    DbHash sbjDnHash{};   ///< of the DER subject name after normalisation
    DbHash crtHash{};     ///< of the certificate
    Bytes keyId;          ///< 1 to 40 octets
    std::string email;    ///< may be empty
    ByteView der;
    DnFldList dnFlds;
    bool isCa = false;
    std::optional<int64_t> notAfter;  ///< seconds since 1970; none when it cannot be read
};

enum class InsertResult {
    Stored,   ///< now in the database
    Present,  ///< the same certificate was there already
    Refused   ///< not stored; the refusal says why
};

/// Why a record cannot be stored.
enum class CrtRefusal { None, EmailTooLong, KeyIdUnfit, TooManyFields };

struct InsertOutcome {
    InsertResult result = InsertResult::Stored;
    CrtRefusal refusal = CrtRefusal::None;
};

[[nodiscard]] CrtRefusal refusalOf(const CrtRecord& record);
/// Throws StoreError (Refused) for a record that cannot be stored.
void demandStorable(const CrtRecord& record);

/// Longest name of a network fetch time.
constexpr size_t kMaxNetCertName = 128;

}  // namespace crv
