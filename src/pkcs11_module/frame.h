// The frame of every call: finds the module, keeps it in place while the call runs, and turns whatever is thrown into
// the value that the call answers.
#pragma once

#include <chrono>
#include <type_traits>

#include "pkcs11_module/module.h"

namespace crv::p11 {

/// C_Initialize: makes the module. In a process that was forked from one that used it everything of the parent is wiped
/// first. CKR_CRYPTOKI_ALREADY_INITIALIZED.
[[nodiscard]] CK_RV startModule() noexcept;
/// C_Finalize: waits for the calls that run and wipes everything, in a forked process what it has of the parent.
/// CKR_CRYPTOKI_NOT_INITIALIZED, there too.
[[nodiscard]] CK_RV stopModule() noexcept;

/// How long a lock that another program holds on a security file is waited for.
inline constexpr std::chrono::seconds kLockWait{5};

/// A call's work by reference, which costs no memory. The work outlives it.
class CallWork {
  public:
    template <class Work>
    requires std::is_invocable_r_v<CK_RV, const Work&, Module&> CallWork(const Work& work)
    noexcept  // NOLINT(google-explicit-constructor): a lambda is the work
        : work_(&work),
          run_([](const void* of, Module& module) -> CK_RV { return (*static_cast<const Work*>(of))(module); }) {}
    CK_RV operator()(Module& module) const { return run_(work_, module); }

  private:
    const void* work_;
    CK_RV (*run_)(const void* work, Module& module);
};

/// Runs a call's work. Where another program holds the file it is begun again, for kLockWait, then the answer is
/// CKR_FUNCTION_FAILED: nothing is wrong with the token, and the call may be repeated.
[[nodiscard]] CK_RV inModule(CallWork work) noexcept;

/// The same with a session, which the call has for itself.
template <class Work>
[[nodiscard]] CK_RV inSession(CK_SESSION_HANDLE handle, const Work& work) noexcept {
    return inModule([&](Module& module) -> CK_RV {
        const SessionPtr session = module.session(handle);
        const std::scoped_lock guard(session->mutex);
        work(*session);
        return CKR_OK;
    });
}

/// A caller's octets; CKR_ARGUMENTS_BAD for none that are not none.
[[nodiscard]] inline ByteView viewOf(const void* octets, CK_ULONG length) {
    demand(octets || length == 0, CKR_ARGUMENTS_BAD);
    return {static_cast<const uint8_t*>(octets), length};
}

/// Whether the caller's buffer takes `needed` octets, whose number is handed out either way (PKCS#11 2.40, 5.2): false
/// when it only asks for the number, CKR_BUFFER_TOO_SMALL when it does not.
[[nodiscard]] inline bool fits(const void* buffer, CK_ULONG* length, size_t needed) {
    demand(length, CKR_ARGUMENTS_BAD);
    const CK_ULONG room = *length;
    *length = needed;
    demand(!buffer || room >= needed, CKR_BUFFER_TOO_SMALL);
    return buffer;
}

/// A running operation. CKR_OPERATION_NOT_INITIALIZED.
template <class Operation>
[[nodiscard]] Operation& running(std::optional<Operation>& operation) {
    demand(operation.has_value(), CKR_OPERATION_NOT_INITIALIZED);
    return *operation;
}

/// Ends an operation at the end of the scope unless it is told to go on: every answer but those of the buffer ends it.
template <class Operation>
class Ending {
  public:
    explicit Ending(std::optional<Operation>& operation) : operation_(operation) {}
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;
    ~Ending() {
        if (!goesOn_) operation_.reset();
    }
    void goOn() { goesOn_ = true; }
    /// As fits(), which leaves the operation as it is unless the buffer will do.
    [[nodiscard]] bool fits(const void* buffer, CK_ULONG* length, size_t needed) {
        demand(length, CKR_ARGUMENTS_BAD);
        goesOn_ = !buffer || *length < needed;
        return p11::fits(buffer, length, needed);
    }

  private:
    std::optional<Operation>& operation_;
    bool goesOn_ = false;
};

}  // namespace crv::p11
