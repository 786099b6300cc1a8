// How an operation fails: what it failed of, with the status of a program and the library's code for it.
#pragma once

#include <stdexcept>
#include <string>

#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"

namespace crv {

/// Exit statuses. A signal ends with 128 and its number.
enum class OpStatus : int {
    Done = 0,
    No = 1,         ///< the answer is no: not valid, damaged, nothing found by a search
    WrongCall = 2,  ///< the caller asked for something that there is not
    Missing = 3,    ///< no such profile, file or object
    Secret = 4,     ///< a password or PIN is wrong, missing or locked
    Locked = 5,     ///< held by another program for longer than the caller waits
    Refused = 6,    ///< exists, ambiguous, against a rule, not confirmed
    Io = 7,         ///< a read or write failed
    Network = 8,
    Internal = 255
};

/// X(fault, status, library code). The texts for people belong to the program that shows them.
#define CRV_OP_FAULTS(X)                                   \
    X(WrongCall, WrongCall, ECRV_API_INV_PAR)              \
    X(BadValue, WrongCall, ECRV_API_INV_PAR)               \
    X(NoProfileNamed, WrongCall, ECRV_NO_PROFILE_NAME)     \
    X(ProfileMissing, Missing, ECRV_CONF_NOT_PRES)         \
    X(ProfileExists, Refused, ECRV_API_INV_PAR)            \
    X(WrongKind, Refused, ECRV_API_INV_PAR)                \
    X(ListFailed, Io, ECRV_INV_REG)                        \
    X(StoreMissing, Missing, ECRV_SFT_OPEN)                \
    X(StoreExists, Refused, ECRV_SFT_OPEN)                 \
    X(KeyStoreFailed, Internal, ECRV_INTERNAL_ERROR)       \
    X(WeakPassword, Refused, ECRV_PASSWORD)                \
    X(NoSigningCertificate, Refused, ECRV_SKEYS_NOT_PRES)  \
    X(DatabaseMissing, Missing, ECRV_DB)                   \
    X(DatabaseExists, Refused, ECRV_API_INV_PAR)           \
    X(SameDatabase, WrongCall, ECRV_API_INV_PAR)           \
    X(DatabaseFailed, Io, ECRV_DB)                         \
    X(BadFile, No, ECRV_INV_CRT_FMT)                       \
    X(BadMessage, No, ECRV_INV_CRV_MSG)                    \
    X(ContentMissing, Missing, ECRV_DETACHED_FILE_MISSING) \
    X(NotAddressed, Missing, ECRV_NOTADDR)                 \
    X(CertificateRefused, Refused, ECRV_INV_CRT_PROF)      \
    X(NetworkFailed, Network, ECRV_TS_NETWORK_FAIL)        \
    X(Ambiguous, Refused, ECRV_API_INV_PAR)                \
    X(ServerMissing, Missing, ECRV_SRV_NOT_FND)            \
    X(ServerExists, Refused, ECRV_SRV_EXIST)               \
    X(ObjectMissing, Missing, ECRV_API_INV_PAR)            \
    X(ObjectExists, Refused, ECRV_API_INV_PAR)             \
    X(KeyInUse, Refused, ECRV_API_INV_PAR)                 \
    X(FileMissing, Missing, ECRV_OP_INFILE)                \
    X(FileExists, Refused, ECRV_OP_OUTFILE)                \
    X(FileProtected, Refused, ECRV_OP_OUTFILE)             \
    X(FileUnreadable, Io, ECRV_RD_INFILE)                  \
    X(FileUnwritable, Io, ECRV_WR_OUTFILE)                 \
    X(FolderFailed, Io, ECRV_WR_OUTFILE)                   \
    X(SecretMissing, Secret, ECRV_PASSWORD)                \
    X(SecretUnfit, Secret, ECRV_PASSWORD)                  \
    X(SecretExposed, Refused, ECRV_PASSWORD)               \
    X(NotConfirmed, Refused, ECRV_API_INV_PAR)             \
    X(LockBusy, Locked, ECRV_API_INV_PAR)                  \
    X(LockFailed, Io, ECRV_API_INV_PAR)                    \
    X(LibraryFailed, Internal, ECRV_UNKNOWN_EXCEPTION)     \
    X(OutOfMemory, Internal, ECRV_MEM)                     \
    X(OutputFailed, Io, ECRV_WR_OUTFILE)

enum class OpFault {
#define CRV_OP_FAULT(fault, status, code) fault,
    CRV_OP_FAULTS(CRV_OP_FAULT)
#undef CRV_OP_FAULT
};

/// The library's code for a primitive that failed.
[[nodiscard]] int codeOfCrypto(CryptoFailure failure) noexcept;

/// The fault's name in lower case with hyphens, as "profile-missing".
[[nodiscard]] std::string faultName(OpFault fault);

class OpError : public std::runtime_error {
  public:
    /// `text`: what it was about - a name, a path, the text of a layer below; never a secret.
    explicit OpError(OpFault fault, const std::string& text = {});
    /// With a code of the library that says more than the fault's own.
    OpError(OpFault fault, int code, const std::string& text);
    OpError(OpFault fault, OpStatus status, int code, const std::string& text)
        : std::runtime_error(text), fault_(fault), status_(status), code_(code) {}

    [[nodiscard]] OpFault fault() const noexcept { return fault_; }
    [[nodiscard]] OpStatus status() const noexcept { return status_; }
    [[nodiscard]] int code() const noexcept { return code_; }

  private:
    OpFault fault_;
    OpStatus status_;
    int code_;
};

/// The user or the system asked the process to end.
class OpStopped {};

/// Throws OpStopped once the process is being ended (setProcessEnding).
void stopIfEnding();

}  // namespace crv
