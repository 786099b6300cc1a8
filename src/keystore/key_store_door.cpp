#include "keystore/key_store_door.h"

#include <chrono>
#include <thread>

#include "config/configuration_manager.h"

namespace crv {
namespace {

constexpr std::chrono::milliseconds kLookPeriod{50};

bool hasNoLock(const ConfigurationManager& configuration) {
    const KeyMedium medium = configuration.keyMedium();
    return medium == KeyMedium::Token || medium == KeyMedium::Provider || medium == KeyMedium::Memory ||
           configuration.securityFileLockName().empty();
}

KeyManagerResult underLock(const KeyStoreAccess& access, const std::function<KeyManagerResult()>& work) {
    KeyStoreLock lock(access);
    if (const KeyManagerResult taken = lock.take(); taken != kKmOk) return taken;
    return lock.release(work());
}

}  // namespace

KeyStoreLock::KeyStoreLock(const KeyStoreAccess& access)
    : semaphore_(access.configuration.securityFileLockName(), hasNoLock(access.configuration)), wait_(access.wait) {}

KeyManagerResult KeyStoreLock::take() {
    if (semaphore_.pCond(kExclusiveLock) != 0) return kKmOk;
    if (wait_.begins) wait_.begins();
    if (!wait_.goOn) return semaphore_.p(kExclusiveLock) != 0 ? kKmOk : kKmLockFailed;
    // Who may give up cannot stand in the queue: the system waits there for the lock or a signal, nothing else.
    while (semaphore_.canBeOpened(kExclusiveLock) && !processEnding()) {
        if (!wait_.goOn()) return kKmLockGivenUp;
        if (semaphore_.pCond(kExclusiveLock) != 0) return kKmOk;
        std::this_thread::sleep_for(kLookPeriod);
    }
    return kKmLockFailed;
}

KeyManagerResult KeyStoreLock::release(KeyManagerResult work) {
    const bool released = !semaphore_.held() || semaphore_.v() != 0;
    return released || work != kKmOk ? work : kKmLockFailed;
}

KeyManagerResult openKeyStore(const KeyStoreAccess& access, bool readAdditional, const std::function<bool()>& ready) {
    KeyStoreLock lock(access);
    if (const KeyManagerResult taken = lock.take(); taken != kKmOk) return taken;
    const KeyManagerResult result =
        lock.release(ready && !ready() ? kKmCancelled : access.keys.initProfile(0, readAdditional));
    if (result == kKmLockFailed) access.keys.deinitProfile();
    return result;
}

KeyManagerResult saveKeyStore(const KeyStoreAccess& access) {
    return underLock(access, [&] { return access.keys.saveConfiguration(); });
}

KeyManagerResult changeKeyStorePassword(const KeyStoreAccess& access, const SecretText& newPassword) {
    return underLock(access, [&] { return access.keys.changePin({}, newPassword); });
}

KeyManagerResult generateIntoKeyStore(const KeyStoreAccess& access, std::function<bool()> progress,
                                      const std::function<KeyManagerResult(const KeyGenHooks& hooks)>& generate) {
    KeyStoreLock lock(access);
    return lock.release(generate({std::move(progress), [&] { return lock.take(); }}));
}

}  // namespace crv
