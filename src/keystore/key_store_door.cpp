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

KeyStoreLock::KeyStoreLock(const KeyStoreAccess& access, int mode)
    : semaphore_(access.configuration.securityFileLockName(), hasNoLock(access.configuration),
                 access.configuration.keyMedium() == KeyMedium::File ? access.configuration.securityFileName() : ""),
      wait_(access.wait),
      mode_(mode) {}

KeyManagerResult KeyStoreLock::take() {
    if (semaphore_.pCond(mode_) != 0) return kKmOk;
    if (wait_.begins) wait_.begins();
    if (!wait_.goOn) return semaphore_.p(mode_) != 0 ? kKmOk : kKmLockFailed;
    // Who may give up cannot stand in the queue: the system waits there for the lock or a signal, nothing else.
    while (possible() && !processEnding()) {
        if (!wait_.goOn()) return kKmLockGivenUp;
        if (semaphore_.pCond(mode_) != 0) return kKmOk;
        std::this_thread::sleep_for(kLookPeriod);
    }
    return kKmLockFailed;
}

KeyManagerResult KeyStoreLock::release(KeyManagerResult work) {
    const bool released = !semaphore_.held() || semaphore_.v() != 0;
    return released || work != kKmOk ? work : kKmLockFailed;
}

KeyManagerResult openKeyStore(const KeyStoreAccess& access, OpenMode mode, bool readAdditional,
                              const std::function<bool()>& ready) {
    // Somebody else's lock file that we may only read still keeps writers out while we read.
    if (mode == OpenMode::LogIn && !KeyStoreLock(access).possible() && KeyStoreLock(access, kSharedLock).possible())
        mode = OpenMode::ReadOnly;
    KeyStoreLock lock(access, mode == OpenMode::ReadOnly ? kSharedLock : kExclusiveLock);
    if (const KeyManagerResult taken = lock.take(); taken != kKmOk) return taken;
    const KeyManagerResult result = lock.release(
        ready && !ready() ? kKmCancelled : access.keys.initProfile(static_cast<int>(mode), readAdditional));
    if (result == kKmLockFailed) access.keys.deinitProfile();
    return result;
}

KeyManagerResult saveKeyStore(const KeyStoreAccess& access) {
    return underLock(access, [&] { return access.keys.saveConfiguration(); });
}

KeyManagerResult changeKeyStorePassword(const KeyStoreAccess& access, const SecretText& newPassword) {
    return underLock(access, [&] { return access.keys.changePin({}, newPassword); });
}

KeyManagerResult saveUnsavedKey(const KeyStoreAccess& access) {
    return underLock(access, [&] { return access.keys.saveUnsavedKey(); });
}

KeyManagerResult generateIntoKeyStore(const KeyStoreAccess& access, KeyGenHooks hooks,
                                      const std::function<KeyManagerResult(const KeyGenHooks& hooks)>& generate) {
    KeyStoreLock lock(access);
    hooks.beforeSave = [&lock] { return lock.take(); };
    return lock.release(generate(hooks));
}

}  // namespace crv
