// The module between C_Initialize and C_Finalize: slots with their tokens, sessions.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "crypto/kc_hash.h"
#include "pkcs11_module/operations.h"
#include "pkcs11_module/token.h"

namespace crv::p11 {

/// A search: what it found, and how much of it was handed out.
struct Search {
    std::vector<CK_OBJECT_HANDLE> found;
    size_t given = 0;
};

struct Digest {
    KcHash hash;
    bool inParts = false;
};

struct Session {
    CK_SLOT_ID slot = 0;
    std::shared_ptr<Token> token;
    bool readWrite = false;

    std::mutex mutex;  ///< held by the call that works with what follows
    std::optional<SignatureOperation> signing;
    std::optional<SignatureOperation> verifying;
    std::optional<DecryptOperation> decrypting;
    std::optional<Digest> digesting;
    std::optional<Search> search;
};
using SessionPtr = std::shared_ptr<Session>;

/// Used by many threads. A slot keeps its number as long as the module is initialised; one whose profile left the list
/// is empty. Locks are taken in the order session, table; session, token: nobody waits for a token under the table's.
class Module {
  public:
    static constexpr size_t kMostSessions = 16384;

    /// The slots as the lists are now; with `present` those with a token.
    [[nodiscard]] std::vector<CK_SLOT_ID> slots(bool present);
    /// CKR_SLOT_ID_INVALID.
    [[nodiscard]] std::shared_ptr<Token> token(CK_SLOT_ID slot);
    /// The same for what needs the token: CKR_TOKEN_NOT_PRESENT.
    [[nodiscard]] std::shared_ptr<Token> presentToken(CK_SLOT_ID slot);

    /// CKR_SESSION_COUNT.
    [[nodiscard]] CK_SESSION_HANDLE open(CK_SLOT_ID slot, bool readWrite);
    /// CKR_SESSION_HANDLE_INVALID.
    [[nodiscard]] SessionPtr session(CK_SESSION_HANDLE handle);
    /// The last session of a token takes the log-in with it.
    void close(CK_SESSION_HANDLE handle);
    void closeAll(CK_SLOT_ID slot);
    /// As Token::login. CKR_SESSION_HANDLE_INVALID also when the last session is closed meanwhile: nobody stays logged
    /// in without one.
    void login(CK_SESSION_HANDLE handle, const SecretText& pin);
    /// Ends the log-in and every operation with its keys, and waits for those that run. CKR_USER_NOT_LOGGED_IN.
    void logout(const std::shared_ptr<Token>& token);
    /// Sessions of a slot: all, and those for reading and writing.
    struct Counts {
        CK_ULONG all = 0, readWrite = 0;
    };
    [[nodiscard]] Counts counts(CK_SLOT_ID slot);

  private:
    /// Holds the table with the slots as the lists are now; wipes what was open of lost ones behind the lock.
    class Table {
      public:
        explicit Table(Module& module);
        ~Table();
        Table(const Table&) = delete;
        Table& operator=(const Table&) = delete;

      private:
        std::vector<std::shared_ptr<Token>> lost_;
        std::unique_lock<std::mutex> guard_;
    };
    void refreshSlots(std::vector<std::shared_ptr<Token>>& lost);
    [[nodiscard]] std::vector<SessionPtr> sessionsOf(const Token& token);

    std::mutex mutex_;
    ListedProfiles lists_;
    bool read_ = false;
    std::vector<std::shared_ptr<Token>> slots_;  // by number
    std::map<CK_SESSION_HANDLE, SessionPtr> sessions_;
};

}  // namespace crv::p11
