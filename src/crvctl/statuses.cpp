#include "crvctl/statuses.h"

#include <algorithm>
#include <iterator>

namespace crv::ctl {
namespace {

constexpr StatusRow kStatuses[] = {
    {"0", "done, also with warnings"},
    {"1", "the answer is no: not valid, damaged, nothing found by a search"},
    {"2", "wrong call"},
    {"3", "no such profile, file or object"},
    {"4", "a password or PIN is wrong, missing or locked"},
    {"5", "locked by another program for longer than --wait"},
    {"6", "refused: it exists, is ambiguous, against a rule or not confirmed"},
    {"7", "a read or write failed"},
    {"8", "the network failed"},
    {"128+N", "ended by signal N"},
    {"255", "internal failure"},
};

struct FaultRow {
    OpFault fault;
    const char* text;
};

constexpr FaultRow kFaults[] = {
    {OpFault::WrongCall, "wrong call"},
    {OpFault::BadValue, "the value does not fit"},
    {OpFault::NoProfileNamed, "no profile is named: use --profile"},
    {OpFault::ProfileMissing, "there is no such profile"},
    {OpFault::ProfileExists, "there is such a profile already"},
    {OpFault::WrongKind, "not for this kind of profile"},
    {OpFault::ListFailed, "the profile list cannot be read or written"},
    {OpFault::StoreMissing, "there is no security file; make it with \"store init\""},
    {OpFault::StoreExists, "there is a security file already"},
    {OpFault::KeyStoreFailed, "key store"},
    {OpFault::WeakPassword, "the password is too weak, it lacks"},
    {OpFault::NoSigningCertificate, "this needs a key for signing with its certificate"},
    {OpFault::DatabaseMissing, "there is no database; make it with \"db create\""},
    {OpFault::DatabaseExists, "there is a database already"},
    {OpFault::SameDatabase, "both profiles lead to one database"},
    {OpFault::DatabaseFailed, "the database failed"},
    {OpFault::BadFile, "there is nothing of that kind in the file, or it is damaged"},
    {OpFault::BadMessage, "the message cannot be used"},
    {OpFault::ContentMissing, "the content stands elsewhere; name it with --content"},
    {OpFault::NotAddressed, "the message is for somebody else"},
    {OpFault::CertificateRefused, "the certificate is not good for it"},
    {OpFault::NetworkFailed, "what the network was asked for did not come"},
    {OpFault::Ambiguous, "several match; name one with --sha256"},
    {OpFault::ServerMissing, "there is no such server"},
    {OpFault::ServerExists, "there is such a server already"},
    {OpFault::ObjectMissing, "there is no such object"},
    {OpFault::ObjectExists, "it is there already"},
    {OpFault::KeyInUse, "the key signs or decrypts; --in-use deletes it all the same"},
    {OpFault::FileMissing, "there is no such file"},
    {OpFault::FileExists, "the file exists; --force replaces it"},
    {OpFault::FileProtected, "the file belongs to a profile and is never replaced"},
    {OpFault::FileUnreadable, "the file cannot be read"},
    {OpFault::FileUnwritable, "the file cannot be written"},
    {OpFault::FolderFailed, "the folder cannot be made"},
    {OpFault::SecretMissing, "a password or PIN is missing"},
    {OpFault::SecretUnfit, "the password is too long, is no UTF-8 or was not repeated"},
    {OpFault::SecretExposed, "others can read the file with the secret; give it mode 0600"},
    {OpFault::NotConfirmed, "not confirmed; --yes confirms"},
    {OpFault::LockBusy, "another program holds the lock; --wait waits longer"},
    {OpFault::LockFailed, "the lock file cannot be used"},
    {OpFault::LibraryFailed, "internal failure"},
    {OpFault::OutOfMemory, "memory ran out; the next run finishes or takes back what was begun"},
    {OpFault::OutputFailed, "standard output cannot be written"},
};

}  // namespace

std::span<const StatusRow> statusRows() {
    return kStatuses;
}

const char* faultText(OpFault fault) {
    const auto* row = std::ranges::find(kFaults, fault, &FaultRow::fault);
    return row == std::end(kFaults) ? "internal failure" : row->text;
}

}  // namespace crv::ctl
