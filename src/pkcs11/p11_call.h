// The one place from which modules are called. Modules that cannot lock for themselves serve one process at a time.
#pragma once

#include "misc/file_semaphore.h"
#include "pkcs11/p11_library.h"

namespace crv {

/// The lock on a module; holds nest. For one thread at a time, or for threads that wait for each other.
class P11Lock {
  public:
    explicit P11Lock(const PKCS11LibInfo& library)
        : semaphore_(library.lockFile, library.osLocking, library.lockFile) {}

    class Hold {
      public:
        explicit Hold(P11Lock& lock) : lock_(lock), held_(lock.depth_ > 0 || lock.semaphore_.p(kExclusiveLock) != 0) {
            if (held_) ++lock_.depth_;
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;
        ~Hold() {
            if (held_ && --lock_.depth_ == 0) lock_.semaphore_.v();
        }
        [[nodiscard]] bool held() const { return held_; }

      private:
        P11Lock& lock_;
        bool held_;
    };

  private:
    FileSemaphore semaphore_;
    int depth_ = 0;
};

/// Calls a function of a module under its lock; one that it lacks answers CKR_FUNCTION_NOT_SUPPORTED.
template <class Function, class... Args>
CK_RV callModule(const PKCS11LibInfo& library, P11Lock& lock, Function CK_FUNCTION_LIST::*member, Args... args) {
    const P11Lock::Hold hold(lock);
    if (!hold.held()) return CKR_CANT_LOCK;
    const Function function = library.functions.*member;
    return function ? function(args...) : CKR_FUNCTION_NOT_SUPPORTED;
}

}  // namespace crv
