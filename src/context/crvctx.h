// The library context: everything that one user of the library works with.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "config/configuration_manager.h"
#include "context/context_state.h"
#include "corvane/crverrors.h"
#include "db_sql/db_manager.h"
#include "keystore/key_manager.h"
#include "pki/network_manager.h"
#include "pki/revocation_manager.h"
#include "profiles/server_list.h"

struct CRVctx;

namespace crv {

using ::CRVctx;

/// Counts the contexts that are alive; throws CrvApiException (ECRV_TOO_MANY_CONTEXTS) for one too many.
class ContextCount {
  public:
    static constexpr int kMost = 64;
    ContextCount();
    ~ContextCount();
    ContextCount(const ContextCount&) = delete;
    ContextCount& operator=(const ContextCount&) = delete;
};

/// An option that a program set, in the order of setting.
struct OptionSetting {
    long id;
    std::variant<long, std::optional<std::string>> value;  ///< of an integer or of a text option
};

}  // namespace crv

/// Used by one caller at a time; the calls of the library see to it. It has no virtual functions: its first bytes are a
/// text by which every call knows it. Outside of the namespace, because programs know the name from C.
struct CRVctx {
    static constexpr std::array<char, 24> kMarker{"Corvane library context"};
    static constexpr size_t kErrorTextSize = 512;

    /// The self-tests of the primitives, once in the life of the process: they take longer than printing a list, so a
    /// context without a profile does without. Throws CrvApiException (ECRV_LIBCORVPP_TEST_FAILED), each time anew.
    static void testPrimitives();

    /// Initialises the managers in the order of their members. Throws CrvApiException (ECRV_TOO_MANY_CONTEXTS), or what
    /// a manager's initialisation throws.
    CRVctx();
    /// Logs out and wipes PINs and keys. The marker goes too, so a late call is refused.
    ~CRVctx();
    CRVctx(const CRVctx&) = delete;
    CRVctx& operator=(const CRVctx&) = delete;

    /// Binds a profile, or with null none; the current one is logged out first, and its PINs and its options that were
    /// not saved are wiped. A context without a profile works on a profile without a database; PINs and options that it
    /// was given are for the profile that comes.
    /// Throws as testPrimitives does, before anything changes.
    void setProfile(std::unique_ptr<crv::CrvProfile> profile);

    crv::PinResult getPIN(crv::PinSlot slot, crv::SecretText& pin, bool* fromCache = nullptr, bool ask = true) {
        return state.getPIN(slot, pin, fromCache, ask);
    }
    void removePINs() { state.removePINs(); }
    /// Stores what was fetched from the network in the databases and empties the network store. What a database refuses
    /// leaves a warning; a CRL that is there in a newer issue is not refused.
    void moveFromNetStoreToDB();

    std::array<char, kMarker.size()> marker = kMarker;
    std::atomic<bool> busy = false;  // a call is at work
    crv::ContextCount counted;
    crv::ContextState state{this, configurationManager};
    crv::ConfigurationManager configurationManager;
    crv::KeyManager keyManager;
    crv::DbManager dbManager;
    crv::CertificateCache certificateCache;
    crv::CertificateManager certificateManager;
    crv::RevocationManager revocationManager;
    crv::NetworkManager networkManager;

    crv::CertList userCerts;                         // of the keys that are logged in
    std::vector<crv::OptionSetting> unsavedOptions;  // set by the program since the last save

    long lockSeconds = 30;  // longest wait for a lock; below 0 as long as it takes

    std::array<char, kErrorTextSize> errorText{};
    std::string textOption;  // handed out by crvGetTextOptionAPI
    crv::SrvParams server;   // its texts are handed out
    crv::Proxy proxy;        // likewise
};

namespace crv {

/// ECRV_API_INV_PAR for null, ECRV_API_INV_CTX for what is no context, else 0.
int checkCRVctx(const CRVctx* ctx) noexcept;

/// Throws CrvApiException (ECRV_API_INV_PAR) unless the condition holds.
void demand(bool condition);

}  // namespace crv
