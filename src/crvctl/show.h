// Objects as fields of a result.
#pragma once

#include <optional>
#include <string>

#include "crvctl/run.h"
#include "misc/bytes.h"
#include "ops/certificates.h"
#include "ops/export_file.h"
#include "ops/session.h"

namespace crv {
class DistinguishedName;
class SignedCertificate;
class Time;
}  // namespace crv

namespace crv::ctl {

/// Lower-case digits.
std::string hexOf(ByteView octets);
/// RFC 3339 in UTC; null when it is no point in time.
Value timeOf(const Time& time);
Value timeOf(std::optional<int64_t> seconds);
/// "2027-03-01T12:00:00Z", "2027-03-01" or "@" and seconds since 1970. Throws CallError.
int64_t timeFrom(const std::string& text);
/// One attribute an element, "CN=Jan".
Values namesOf(const DistinguishedName& name);
/// In the order of the table's certificate fields; `der` adds the octets in Base64.
Fields certFields(const SignedCertificate& certificate, bool der);

/// The secrets that open a key store, from the call.
Session::Secrets storeSecrets(const Run& run, const CrvProfile& profile);
/// The profile of the run with its key store open.
Session openReading(const Run& run);
Session openChanging(const Run& run);
/// Warns when a save could not keep the security file of before.
void warnOfHistory(const Run& run, Session& session);

/// Says where former files are, for who has no security file, or none that can be read.
void hintAtHistory(const Run& run, const std::string& file);

/// Says that the former files were not changed, if there are any.
void warnOfCopies(const Run& run, Session& session, const char* text);

/// Saves, and says when the file of before could not be kept.
void save(const Run& run, Session& session);

/// The profile of the run with its database there; its keys are not opened.
Session openDatabase(const Run& run);
/// The selector options of the call.
CertSelector selectorOf(const Call& call);
/// Every value of an option whose values are identifiers.
std::vector<ASNobjectId> identifiersOf(const Call& call, const char* name);
/// The value of --revocation.
RevocationCheck revocationOf(const Call& call);
/// Where the call's `path` is to be written.
ExportTarget targetOf(const Run& run, const std::string& path);

}  // namespace crv::ctl
