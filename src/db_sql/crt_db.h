// Certificates in and out of the database.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "db_sql/crt_records_ahead.h"
#include "db_sql/db_manager.h"

namespace crv {

class ASNinteger;
class DistinguishedName;
class SignedCertificate;

/// What an import has done so far.
struct ImportProgress {
    size_t stored = 0;
    size_t present = 0;  ///< were there already
    size_t refused = 0;
    bool unreadable = false;  ///< it ended at octets that are no certificate
    [[nodiscard]] size_t handled() const { return stored + present + refused; }
};

/// Turns certificates into the keys of the store and back. Works through the manager, whose failures it hands on: false
/// answers, its lastFailure(). Searches append to the list.
class CrtDb {
  public:
    explicit CrtDb(DbManager& manager) : manager_(&manager) {}

    /// Stores one certificate. False also for one that the store refuses.
    bool insert(const SignedCertificate& certificate, InsertResult* result = nullptr);
    bool insert(ByteView der, InsertResult* result = nullptr);

    /// Gives the next certificate's octets, good until the next call; false at the end. What is no certificate ends
    /// the import, too, though the source may have been asked for some behind it.
    using Source = CrtRecordsAhead::Source;
    /// Called after each slice; false stops.
    using Progress = std::function<bool(const ImportProgress&)>;
    /// Called for each certificate that was not stored: its place in the source, from 0, and why.
    using Refused = std::function<void(size_t index, CrtRefusal refusal)>;
    /// Stores many certificates. The lock is held for slices of about sliceTime, so that others get their turn, and
    /// what a progress call reports as stored is on the disk. False when the database fails; progress then tells what
    /// was reached.
    bool insertMany(const Source& next, const Progress& progress, const Refused& refused, ImportProgress& done);
    static constexpr std::chrono::milliseconds kSliceTime{200};

    bool findBySubject(CrtItemList& list, const DistinguishedName& subject);
    bool findByIssuerAndSerNum(CrtItemList& list, const DistinguishedName& issuer, const ASNinteger& serialNumber);
    bool findBySubjectAndKeyId(CrtItemList& list, const DistinguishedName& subject, ByteView keyId);
    /// Certificates of the subject whose keyUsage has all these bits (KeyUsage::Bit as a mask, bit 0 the first) or is
    /// absent, and which are valid at the time.
    bool findByKeyUsage(CrtItemList& list, const DistinguishedName& subject, uint32_t usage, int64_t time);

    /// Removes the certificates whose validity ended before the time; what cannot be parsed stays.
    bool removeCertsOverTime(int64_t time, CrtStore::Removed& result) {
        return manager_->removeCertsOverTime(time, result);
    }

  private:
    bool insertBatch(std::span<const CrtRecord> batch, size_t first, const Progress& progress, const Refused& refused,
                     ImportProgress& done, bool& stopped);

    DbManager* manager_;
};

}  // namespace crv
