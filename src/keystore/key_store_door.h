// The one way to open and to save a key store: takes the lock on the security file, does the work, gives the lock back,
// and answers one result for all of it.
#pragma once

#include <functional>

#include "keystore/key_manager.h"
#include "misc/file_semaphore.h"

namespace crv {

/// How long a lock that somebody else holds is waited for. Without `goOn` for as long as it takes.
struct LockWait {
    /// Told once, when the wait begins.
    std::function<void()> begins = {};
    /// Asked again and again while waiting; false gives up.
    std::function<bool()> goOn = {};
};

/// Whose key store, and how to wait for it. Refers to both managers.
struct KeyStoreAccess {
    ConfigurationManager& configuration;
    KeyManager& keys;
    LockWait wait = {};
};

/// The lock on the key store of the current profile. Where a card, a provider or memory keeps the keys, and
/// where nothing names a lock file, there is nothing to lock, and every operation succeeds.
class KeyStoreLock {
  public:
    explicit KeyStoreLock(const KeyStoreAccess& access, int mode = kExclusiveLock);

    /// Whether the lock file can be opened for that: else waiting is in vain.
    [[nodiscard]] bool possible() const { return semaphore_.canBeOpened(mode_); }
    /// kKmLockFailed; kKmLockGivenUp when the wait was ended.
    [[nodiscard]] KeyManagerResult take();
    /// Gives a lock back that is held. The result of the work under it; after a success kKmLockFailed when the lock
    /// could not be released.
    [[nodiscard]] KeyManagerResult release(KeyManagerResult work);

  private:
    FileSemaphore semaphore_;
    const LockWait& wait_;
    int mode_;
};

/// Log-in with the PINs of the cache (KeyManager::initProfile). A lock that others can only read is held with them, and
/// the key store is opened for reading only. `ready` is asked under the lock; false ends it with
/// kKmCancelled. A lock that cannot be released closes the key store again.
[[nodiscard]] KeyManagerResult openKeyStore(const KeyStoreAccess& access, OpenMode mode, bool readAdditional,
                                            const std::function<bool()>& ready = {});

/// Saves keys and configuration (KeyManager::saveConfiguration).
[[nodiscard]] KeyManagerResult saveKeyStore(const KeyStoreAccess& access);

/// Enciphers the key store under a new password (KeyManager::changePin).
[[nodiscard]] KeyManagerResult changeKeyStorePassword(const KeyStoreAccess& access, const SecretText& newPassword);

/// Saves a generated key that could not be saved before (KeyManager::saveUnsavedKey).
[[nodiscard]] KeyManagerResult saveUnsavedKey(const KeyStoreAccess& access);

/// Runs a generation of the key manager with the hooks, of which `beforeSave` becomes the taking of the lock.
[[nodiscard]] KeyManagerResult generateIntoKeyStore(
    const KeyStoreAccess& access, KeyGenHooks hooks,
    const std::function<KeyManagerResult(const KeyGenHooks& hooks)>& generate);

}  // namespace crv
