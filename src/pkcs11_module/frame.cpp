#include "pkcs11_module/frame.h"

#include <pthread.h>

#include <new>
#include <shared_mutex>
#include <thread>

#include "crypto/crypto_error.h"
#include "misc/logger.h"

namespace crv::p11 {
namespace {

constexpr std::chrono::milliseconds kLookPeriod{20};

/// Calls hold the gate shared; start, stop and fork(2) hold it alone, so that a child finds everything in order. A
/// waiting writer goes first, else programs that never pause could not fork. Never destroyed: threads may still call
/// while the process ends.
class Gate {
  public:
    static Gate& instance() {
        static Gate* const kGate = std::make_unique<Gate>().release();
        return *kGate;
    }

    Gate() {
        make();
        pthread_atfork([] { instance().lock(); }, [] { instance().unlock(); }, [] { instance().inChild(); });
    }

    void lock() { pthread_rwlock_wrlock(&lock_); }
    void lock_shared() { pthread_rwlock_rdlock(&lock_); }
    void unlock() { pthread_rwlock_unlock(&lock_); }
    void unlock_shared() { pthread_rwlock_unlock(&lock_); }

    std::unique_ptr<Module> module;
    bool forked = false;  ///< the module is the parent's

  private:
    void make() {
        pthread_rwlockattr_t attributes;
        pthread_rwlockattr_init(&attributes);
        pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
        pthread_rwlock_init(&lock_, &attributes);
        pthread_rwlockattr_destroy(&attributes);
    }
    /// The lock belongs to a thread of the parent.
    void inChild() {
        make();
        forked = module != nullptr;
    }

    pthread_rwlock_t lock_{};
};

CK_RV answerOf(CallWork work, Module& module) noexcept try { return work(module); } catch (const Refusal& refusal) {
    return refusal.rv;
} catch (const std::bad_alloc&) {
    return CKR_HOST_MEMORY;
} catch (const std::exception& error) {
    logLine(LogLevel::Error, std::string("PKCS#11 module: ") + error.what());
    return CKR_GENERAL_ERROR;
} catch (...) {
    return CKR_GENERAL_ERROR;
}

/// The log, too, is written while the gate is held: a child forked meanwhile could never write to it.
CK_RV once(CallWork work) noexcept {
    Gate& gate = Gate::instance();
    const std::shared_lock hold(gate);
    if (!gate.module || gate.forked) return CKR_CRYPTOKI_NOT_INITIALIZED;
    return answerOf(work, *gate.module);
}

}  // namespace

CK_RV startModule() noexcept try {
    Gate& gate = Gate::instance();
    const std::scoped_lock hold(gate);
    if (gate.module && !gate.forked) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
    gate.forked = false;
    gate.module.reset();
    gate.module = std::make_unique<Module>();
    return CKR_OK;
} catch (const std::bad_alloc&) {
    return CKR_HOST_MEMORY;
} catch (...) {
    return CKR_GENERAL_ERROR;
}

CK_RV stopModule() noexcept try {
    Gate& gate = Gate::instance();
    const std::scoped_lock hold(gate);
    const bool own = gate.module && !gate.forked;
    gate.forked = false;
    gate.module.reset();
    return own ? CKR_OK : CKR_CRYPTOKI_NOT_INITIALIZED;
} catch (...) {
    return CKR_GENERAL_ERROR;
}

CK_RV inModule(CallWork work) noexcept {
    using Clock = std::chrono::steady_clock;
    CK_RV rv = once(work);
    if (rv != kBusy) return rv;
    for (const auto end = Clock::now() + kLockWait; rv == kBusy && Clock::now() < end; rv = once(work))
        std::this_thread::sleep_for(kLookPeriod);
    return rv == kBusy ? CKR_FUNCTION_FAILED : rv;
}

}  // namespace crv::p11
