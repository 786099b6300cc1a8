// Finding certificates, and getting them in and out.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "asn/x509/cert_ptr.h"
#include "misc/bytes.h"
#include "pki/cert_file_reader.h"

namespace crv {

class DbManager;
class Session;
class SignedCertificate;
struct PathOptions;
struct PathVerdict;

/// What certificates are looked for by. Empty fields do not matter; texts are parts of the value, whatever the case.
struct CertSelector {
    std::string sha256{};  ///< of the encoding, hexadecimal
    std::string serial{};  ///< hexadecimal
    std::string issuer{};
    std::string subject{};
    std::string email{};

    [[nodiscard]] bool empty() const;
    [[nodiscard]] bool matches(const SignedCertificate& certificate) const;
};

/// Every certificate of the database in its order, a page at a time. False in the visitor stops. Throws OpError
/// (DatabaseFailed).
void eachCert(DbManager& database,
              const std::function<bool(int64_t id, const SignedCertificate&, ByteView der)>& visit);
void eachCert(Session& session, const std::function<bool(int64_t id, const SignedCertificate&, ByteView der)>& visit);
/// Tells the verdict on each certificate of a list, whose certificates may stand on each other's paths, or of the
/// database when there is none. Throws like eachCert.
void judgeCerts(Session& session, const CertList* list, const PathOptions& options,
                const std::function<void(const SignedCertificate&, const PathVerdict&)>& tell);

/// The one certificate in the list or the database that a selector means. Throws OpError (ObjectMissing, Ambiguous).
CertPtr findOne(Session& session, const CertSelector& selector, const CertList* list = nullptr);

/// The certificates of a file one after another; "-" is standard input. Throws OpError (FileMissing, FileUnreadable).
CertFileReader certFileReader(const std::string& path);
/// The reader's next certificate; false at the end. Throws OpError (FileUnreadable) with the path.
[[nodiscard]] bool nextCert(CertFileReader& reader, const std::string& path, ByteView& der);
/// All certificates of a file; "-" is standard input. Throws OpError (FileMissing, FileUnreadable, BadFile: there is
/// none, or one is damaged, whose number is told).
CertList certsOfFile(const std::string& path);

}  // namespace crv
