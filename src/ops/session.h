// A profile at work: its context, its key store opened for reading or for a change, its database.
#pragma once

#include <memory>
#include <optional>

#include "context/crvctx.h"
#include "keystore/file_history.h"
#include "keystore/key_store_door.h"
#include "ops/lock_wait.h"
#include "ops/op_error.h"
#include "ops/profiles.h"

namespace crv {

/// Throws OpError (KeyStoreFailed) with what the result means, unless it is a success.
void demandKeys(KeyManagerResult result);

/// The former files of a security file, the oldest first. Throws OpError (FileUnreadable) when their folder cannot be
/// read.
[[nodiscard]] std::vector<FormerFile> readableHistory(const std::string& file);

/// The keys of the security file that a former one lacks; `known` is false when the present file has another password.
struct KeysNotIn {
    bool known = true;
    std::vector<KeyId> keys{};
};
/// The password is that of the former file. Throws OpError: FileUnreadable, ObjectMissing, KeyStoreFailed.
[[nodiscard]] KeysNotIn keysNotIn(const std::string& file, const std::string& name, const SecretText& password);

/// FileUnwritable: a security file could not be kept.
class HistoryError : public OpError {
  public:
    explicit HistoryError(const HistoryFailure& failure)
        : OpError(OpFault::FileUnwritable, failure.text()), failure_(failure) {}

    [[nodiscard]] const HistoryFailure& failure() const { return failure_; }

  private:
    HistoryFailure failure_;
};

/// Puts a former file of a security file, by its name in the history, in its place; the one of now goes into the
/// history, where it is kept until the history is cleared. The password is that of the former file. The caller holds
/// the lock; without `write` it is only looked whether it can be done. Throws OpError: ObjectMissing, KeyStoreFailed;
/// HistoryError when the one of now cannot be kept.
void restoreFormerFile(const std::string& file, const std::string& name, const SecretText& password, bool write = true);

/// Opening for reading writes nothing: the key store is deciphered and no seed is stored, so it works on read-only
/// media. A change holds the lock on the key store from the log-in to the end of the object; a dry run only reads.
class Session {
  public:
    /// What opens the key store. The PINs of tokens are asked for when the tokens want them (ContextState::prompt).
    struct Secrets {
        SecretText password;
        std::optional<SecretText> roots;  ///< of the additional trust points; without it they are left out
    };

    Session(FoundProfile found, const OpMode& mode);

    [[nodiscard]] CRVctx& context() { return *context_; }
    [[nodiscard]] KeyManager& keys() { return context_->keyManager; }
    [[nodiscard]] ConfigurationManager& configuration() { return context_->configurationManager; }
    [[nodiscard]] const OpMode& mode() const { return mode_; }
    [[nodiscard]] const CrvProfile& profile() { return *configuration().profile(); }

    /// Throws OpError: StoreMissing, KeyStoreFailed, LockBusy.
    void openForReading(const Secrets& secrets);
    void openForChange(const Secrets& secrets);
    /// Saves what was changed; nothing in a dry run.
    void save();

    /// Gives the lock back early, before work that takes its time: the store stays open and later saves merge.
    void unlock() {
        lock_.reset();
        shared_.reset();
    }

    /// Makes the key store of a file profile, seeded by the system. StoreExists, WeakPassword.
    void create(const SecretText& password, bool strong = false);
    /// Enciphers the key store, open for a change, under a new password. WeakPassword. On a token it is the PIN, for
    /// which the token has rules.
    void changePassword(const SecretText& password);
    /// Gives the security file, open for a change, the strong protection or the compatible one.
    void protect(bool strong);
    /// As restoreFormerFile, with the lock. The key store need not be open.
    void restoreFormer(const std::string& name, const SecretText& password);

    /// Deletes all former security files, with the lock. Throws OpError (FileUnwritable).
    void clearHistory();

    /// Throws OpError (DatabaseMissing, DatabaseFailed) unless the database is there.
    void demandDatabase();
    /// For an operation of the database that answered false.
    [[noreturn]] void failDatabase();

    /// Moves what was fetched from the network into the database; in a dry run it is dropped. Throws as demandDatabase,
    /// and OpError (DatabaseFailed) when the database does not take all of it.
    void storeFetched();

    /// How to wait for the lock of the key store.
    [[nodiscard]] KeyStoreAccess access();

  private:
    void changePin(const SecretText& pin);
    void storePassword(const Secrets& secrets);
    void lock();
    void logIn(bool withRoots);
    void seed();
    void demandFileProfile();
    [[nodiscard]] bool hasFile();

    OpMode mode_;
    std::unique_ptr<CRVctx> context_;
    std::unique_ptr<KeyStoreAccess> access_;  // the lock refers to it
    std::unique_ptr<KeyStoreLock> lock_;
    std::unique_ptr<TimedLock> shared_;
};

}  // namespace crv
