// The keys of the current profile: opening and saving its key store, its certificates and trust points, and the random
// generators that everything in the key store draws from.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "crypto/ec_curves.h"
#include "crypto/kc_hash.h"
#include "crypto/key_scheme.h"
#include "crypto/random_bridge.h"
#include "keystore/file_history.h"
#include "keystore/generators.h"
#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"
#include "keystore/token_modules.h"
#include "keystore/trust_points.h"

namespace crv {

/// Where the key manager's assertions say that they failed.
inline constexpr const char* kKeyManagerPlace = "src/src/keymgr";

class ConfigurationManager;
class ContextServices;
class DistinguishedName;
class CRVCfgFile;
class CrvProfile;
class PrivateKey;
enum class PinSlot : long;
class KeyStoreMedia;
struct StoredFile;

/// What the caller of a generation does while it runs.
struct KeyGenHooks {
    /// Called again and again; false stops the generation.
    std::function<bool()> progress = {};
    /// Called when the key is there, before everything is saved: takes the lock on the security file. Anything but
    /// kKmOk leaves the key unsaved and is the result.
    std::function<KeyManagerResult()> beforeSave = {};
    /// Hash to which the requested certificate ties an RSA-PSS key; signatures are configured with it. None: with the
    /// configured hash.
    KcHashAlgo forcedHash = KcHashAlgo::None;
    /// The key is to take the place of the one that has the use, once it is certified; until then it is a further key.
    bool successor = false;
};

/// What log-in may do to a key store.
enum class OpenMode : int {
    LogIn = 0,         ///< stores a fresh seed; a file that another program wrote is left alone and not saved
    AdoptForeign = 1,  ///< such a file becomes ours, after its octets were put beside it ("<file>.orig")
    ReadOnly = 2       ///< nothing is written
};

/// Bits of KeyManager::saveKey's flags.
enum SaveKeyFlag : int {
    kSaveNewPassword = 1,  ///< the password replaces that of the file
};

/// Holder of the user's keys, owned by the context; used by one caller at a time.
///
/// Nothing here takes the lock on the security file: openKeyStore and its sisters (key_store_door.h) do, and everybody
/// opens and saves through them. Operations answer a KeyManagerResult; allocation failure is kKmNoMemory. Each demands
/// a state in which it makes sense; another one is a failed assertion.
class KeyManager {
  public:
    /// What is there.
    enum class State {
        Closed,    ///< nothing
        Creating,  ///< an empty store that the first save writes and opens
        Unseeded,  ///< contents that were read, for looking at them; without a seed, which rbgInit gives
        Open       ///< logged in
    };

    /// Takes back, when it ends, what became of keys, certificates, trust points of the key store and the configuration
    /// record meanwhile, unless that was kept. Taking back needs no memory.
    class Undo {
      public:
        explicit Undo(KeyManager& keys);
        Undo(const Undo&) = delete;
        Undo& operator=(const Undo&) = delete;
        ~Undo();
        /// The change stands; answers the result that it is given: anything but kKmOk keeps nothing.
        KeyManagerResult keep(KeyManagerResult result) noexcept;

      private:
        KeyManager& keys_;
        KeyStoreContents contents_;
        std::shared_ptr<const CRVCfgFile> record_;
        bool changed_;
        bool kept_ = false;
    };

    /// `generatorCycle`: steps of the generator before it is seeded anew (tests shorten it).
    explicit KeyManager(uint64_t generatorCycle = KcRbgHashIso18031::kCycle);
    ~KeyManager();
    KeyManager(const KeyManager&) = delete;
    KeyManager& operator=(const KeyManager&) = delete;

    /// Binds the manager to its context.
    void init(ContextServices& context);

    // --- Opening and closing

    /// Device start (Tarvo, token): forgets the previous profile, finds the device and makes it
    /// ready for log-in. kKmDeviceError, kKmDeviceNotFound, kKmDeviceLibrary, kKmDeviceFunction,
    /// kKmPkcs11NotInitialised, kKmPkcs11Init. Media without a device answer kKmOk.
    [[nodiscard]] KeyManagerResult deviceInit();
    /// After it, before a PIN is asked for: what keeps a token from a log-in already (kKmCardNotFound, kKmCardBlocked,
    /// kKmManyCards and so on). Tells the user how many tries are left; kKmCancelled when he gives none.
    [[nodiscard]] KeyManagerResult announceTokens();
    /// Whether log-in wants the PIN of a slot typed: no for one that is entered on a reader.
    [[nodiscard]] bool wantsTypedPin(PinSlot slot) const;
    /// The label of the token that a slot's PIN is for; empty without one.
    [[nodiscard]] std::string tokenLabel(PinSlot slot) const;
    /// What the medium at work says of itself: names for the user with their values.
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> mediumDetails();

    /// Log-in: opens the key store of the context's current profile with the password from the PIN cache, restores the
    /// configuration record into the configuration manager, seeds the generators, stores a fresh seed and, when asked,
    /// reads the additional trust points. `mode` is an OpenMode.
    /// Closes whatever was open first; the PIN cache is not touched.
    /// A failure forgets everything, but kKmNoSeed leaves the contents (State::Unseeded): what rbgInit and
    /// saveConfiguration add to the file lets the next log-in pass.
    [[nodiscard]] KeyManagerResult initProfile(int mode, bool readAdditional);
    /// Asked now and then while a password is turned into keys, which foreign files may make long; false stops the
    /// opening with kKmStopped. Empty: nobody stops it.
    void setProgress(std::function<bool()> progress) { progress_ = std::move(progress); }

    /// Log-out: forgets and wipes keys, certificates, configuration, seed and generators, and when a profile was logged
    /// in also the PINs. Never fails.
    void deinitProfile() noexcept;

    /// Forgets the previous profile and binds the current one, with nothing in it (State::Creating).
    void beginNewProfile();

    [[nodiscard]] State state() const { return state_; }
    [[nodiscard]] bool isLoggedIn() const { return state_ == State::Open; }
    /// Whether another program wrote the file and it was not adopted.
    [[nodiscard]] bool isForeign() const { return foreign_; }
    /// Whether the last write of the file was cut off, so that what stood there before was opened; a save puts it back.
    [[nodiscard]] bool wasCutOff() const;
    /// Whether saves are refused with kKmReadOnly.
    [[nodiscard]] bool isReadOnly() const {
        return mode_ == OpenMode::ReadOnly || (foreign_ && mode_ != OpenMode::AdoptForeign);
    }
    /// Whether a missing seed simply fails the log-in instead of asking the user for keystrokes. Off at first.
    [[nodiscard]] bool seedingSuppressed() const { return seedingSuppressed_; }
    void suppressSeeding(bool suppress) { seedingSuppressed_ = suppress; }

    // --- The security file

    /// Reads and deciphers the security file of a file profile, pairs its keys with its certificates and takes over its
    /// configuration, a signed one when it verifies (else kKmConfigurationSignature); success ends Unseeded.
    [[nodiscard]] KeyManagerResult loadKey(const SecretText& password);

    /// Writes the security file, whole and atomically; a new file gets mode 0600. Only for file profiles (assertion).
    /// Where the file changed since it was read or written here, it is read again and what this session changed is
    /// merged into it. Without kSaveNewPassword another password than the file's is kKmWrongPassword, so that no stale
    /// PIN changes it. kKmKeyHasTwoNames for what the next log-in would refuse for that. kKmWriteFailed also when the
    /// changed file cannot be deciphered; kKmNoSeed without a seeded generator. A failure changes neither the file nor
    /// the memory.
    [[nodiscard]] KeyManagerResult saveKey(const SecretText& password, int flags);

    /// Draws a new seed and saves it; for media without a security file, and without a seed, does nothing.
    [[nodiscard]] KeyManagerResult saveNewSeed();

    /// Saves the keys and the configuration record on whatever the medium is, with the password from the PIN cache;
    /// what another session changed meanwhile is merged, as in saveKey. A device's record that is none is
    /// kKmDeviceError.
    [[nodiscard]] KeyManagerResult saveConfiguration();

    /// Whether the password is that of the security file as last read or written; false without a file.
    [[nodiscard]] bool opensWith(const SecretText& password) const;

    /// Enciphers the file under a new password, which takes the old one's place in the PIN cache. The old one is not
    /// looked at: the user is logged in. On a token it is the PIN, and the old one counts.
    [[nodiscard]] KeyManagerResult changePin(const SecretText& oldPassword, const SecretText& newPassword);

    /// The protection of the file from the next save on; the caller saves.
    [[nodiscard]] bool isStronglyProtected() const { return contents_.strong; }
    void protectStrongly(bool strong) { contents_.strong = strong; }
    /// Whether the last save could keep the file of before in its history; true also where none is kept.
    [[nodiscard]] bool wasHistoryKept() const { return historyFailure_.empty(); }
    /// What could not be kept.
    [[nodiscard]] const HistoryFailure& historyFailure() const { return historyFailure_; }

    // --- Random generators

    [[nodiscard]] KeyManagerResult initRBGFromTheSeed();
    /// Seeds the generators from material of any length and derives a new stored seed. CryptoError passes through.
    [[nodiscard]] KeyManagerResult rbgInit(ByteView material);
    /// Fills the buffer; kKmNoSeed in any state without a seed. Provider profiles answer kKmOk and leave the buffer
    /// as it is: never use it then.
    [[nodiscard]] KeyManagerResult rbgFill(std::span<uint8_t> out);
    /// The generators as the source of libcrypto's key generation and signatures.
    [[nodiscard]] RandomBridge& random() { return random_; }

    // --- Keys

    /// All keys: the signing key, the encryption key, then the further ones.
    [[nodiscard]] std::span<const StoredKey> keys() const { return contents_.keys; }
    [[nodiscard]] bool hasAnyKey() const { return !contents_.keys.empty(); }
    /// Whether a key has the use already, or for Both one of the two.
    [[nodiscard]] bool hasKey(KeyType use) const;
    /// The key that signs or decrypts; null when there is none. Valid until the next change.
    [[nodiscard]] const Signer* signingKey() const;
    [[nodiscard]] const Signer* encryptionKey() const;
    /// How the signing key signs: an RSA key by PSS when the configured signature algorithm says so. `none` without a
    /// key.
    [[nodiscard]] KeyScheme signingKeyType() const;
    /// How a key is used: that of the signing key as the configuration says, of any other its own.
    [[nodiscard]] KeyScheme schemeOf(const StoredKey& stored) const;
    /// Takes a newly generated key into its role and saves everything. When that fails the key is dropped again and the
    /// result of the save is answered. A role that is taken is a failed assertion: ask hasKey first.
    [[nodiscard]] KeyManagerResult addNewKey(KeyType use, SignerPtr key, Bytes bagAttributes = {});

    // --- Generation of keys for the user. Each generates a key, takes it into its role and saves everything; a failure
    // or a stop changes nothing, but a key that could not be saved is kept aside until it is saved or dropped: it took
    // minutes, and its cause may pass. kKmCancelled when a hook ends it, kKmKeyTooShort, kKmAlgorithmNotSupported,
    // kKmGenerationFailed, kKmRsaFailed, kKmNoSeed, and what saving answers.

    /// What the medium offers that makes its own keys; nothing for one that takes keys made here.
    [[nodiscard]] std::optional<KeyLimits> keyLimits(KeyType use);
    /// An RSA key of 2048 bits or more; for a signing key the scheme (rsa or rsaPss) is remembered in the
    /// configuration.
    [[nodiscard]] KeyManagerResult generateRsaUserKey(KeyType use, uint64_t publicExponent, unsigned bits,
                                                      KeyScheme scheme, const KeyGenHooks& hooks = {});
    /// A DSA key for signing; 1024 bits.
    [[nodiscard]] KeyManagerResult generateDsaUserKey(unsigned bits, const KeyGenHooks& hooks = {});
    /// An EC key for signing, its domain by name or written out.
    [[nodiscard]] KeyManagerResult generateECDsaUserKey(KeyType use, StdECId curve, bool explicitDomain,
                                                        const KeyGenHooks& hooks = {});

    /// The key that waits to take the place of the one that has the use (all of it, for Both); null when there is none.
    [[nodiscard]] const StoredKey* successorOf(KeyType use) const;
    /// The key that waits for the place of the one with the identifier; null when none does.
    [[nodiscard]] const StoredKey* waitingFor(const KeyId& id) const;
    /// Deletes a key with its certificates for good, also where another session merges, and saves; one that waits for
    /// its place takes it at once, and keeps the certificate for the request of its own. The file of before stays in
    /// the history, also where none is wanted. kKmKeyNotFound, kKmNotOnThisMedium, kKmHistoryFailed, and what saving
    /// answers; a failure changes nothing.
    [[nodiscard]] KeyManagerResult deleteKey(const KeyId& id);
    /// Takes a key from elsewhere and saves: into what no other key has of the role.
    /// kKmKeyExists; kKmNotOnThisMedium; a failure changes nothing.
    [[nodiscard]] KeyManagerResult importKey(const PrivateKey& key, KeyRole role, const CertList& certificates);

    /// The use of a generated key that could not be saved; nothing when there is none.
    [[nodiscard]] std::optional<KeyType> unsavedKey() const;
    /// Tries to save it again; as addNewKey.
    [[nodiscard]] KeyManagerResult saveUnsavedKey();
    void dropUnsavedKey() { unsaved_.reset(); }

    // --- The user's certificates

    [[nodiscard]] const CertList& userCerts() const { return contents_.userCerts; }
    /// The newest certificate of a key, or null.
    [[nodiscard]] CertPtr certificateOf(const StoredKey& key) const;
    /// The certificate of the key that signs or decrypts, or null.
    [[nodiscard]] CertPtr signingCertificate() const;
    [[nodiscard]] CertPtr encryptionCertificate() const;
    /// The name that a further certificate is asked for: that of the user's certificate, else CN=<profile name>.
    [[nodiscard]] DistinguishedName requestSubject() const;
    /// Pairs a certificate with the key that it belongs to; the caller saves. kKmNoKeyForCertificate; kKmRoleTaken when
    /// its use belongs to another key; for a key that has a certificate: one of the same name is replaced by a newer
    /// one (one that is valid now stays beside one that is not), else kKmCertificateExists; under another name
    /// kKmKeyHasTwoNames unless option 13 allows it.
    [[nodiscard]] KeyManagerResult installUserCrt(const CertPtr& certificate);
    /// Takes the installations since the last save back.
    void undoInstallUserCrt();

    // --- Trust points

    /// Each trust point once: those of the user, of the key store, the qualified ones of the configuration, the
    /// additional ones. The order is stable.
    [[nodiscard]] std::vector<TrustPoint> trustedPoints() const;
    /// Adds a trust point of the user; the caller saves. kKmNoCaCertificate, kKmBadSignature, kKmTrustPointExists,
    /// kKmTrustPointRefused.
    [[nodiscard]] KeyManagerResult addTrustedCA(const CertPtr& certificate);
    /// Certificates of authorities that another program kept in the file, which are ordinary until addTrustedCA takes
    /// them.
    [[nodiscard]] CertList trustCandidates() const;
    /// Deletes a trust point of the user (`flag` 1, TrustPointFlag::User) from the configuration and from the key
    /// store; the caller saves. kKmNotOnThisMedium for one that cannot be deleted; one that is gone already is kKmOk.
    [[nodiscard]] KeyManagerResult delTrustedCA(const CertPtr& certificate, int flag);
    /// Reads the additional trust-point store that the profile names: none is kKmOk; kKmNoRootsPassword,
    /// kKmWrongRootsPassword, kKmRootsFormat.
    [[nodiscard]] KeyManagerResult readAdditionalTrustedCA();

  private:
    /// The assertion at the head of an operation.
    void demand(std::initializer_list<State> states) const;
    [[nodiscard]] ConfigurationManager& configuration() const;
    [[nodiscard]] KeyStoreMedia& media() const;
    void forget() noexcept;
    void selectMedia();

    [[nodiscard]] KeyManagerResult openContents(bool readAdditional);
    [[nodiscard]] KeyManagerResult openDevice(const SecretText& pin);
    [[nodiscard]] KeyManagerResult readRecord(Bytes& encoding);
    [[nodiscard]] KeyManagerResult saveOnDevice();
    [[nodiscard]] KeyManagerResult signedRecord(const CRVCfgFile& record, Bytes& stored);
    [[nodiscard]] KeyManagerResult readKeyFile(const SecretText& password);
    [[nodiscard]] KeyManagerResult verifyConfiguration();
    [[nodiscard]] KeyManagerResult takeSignedConfiguration();
    [[nodiscard]] KeyManagerResult askPin(SecretText& pin);
    [[nodiscard]] bool ignoresSecurityFile() const;
    [[nodiscard]] bool recertificationAllowed() const;
    void takeRecord(const std::shared_ptr<const CRVCfgFile>& record);
    void copyUserUnqualifiedTrustedCA();
    struct NewKey {
        KeyType use;
        KeyScheme scheme;
        KcHashAlgo hash;
        SignerPtr key;
        bool successor;
    };

    [[nodiscard]] KeyManagerResult saveNewKey(const NewKey& generated);
    [[nodiscard]] KeyManagerResult saveSuccessor(const NewKey& generated);
    [[nodiscard]] bool mayGenerate(KeyType use, bool successor) const;
    [[nodiscard]] KeyManagerResult keepKey(KeyType use, KeyScheme scheme, const KeyGenHooks& hooks, SignerPtr key);
    [[nodiscard]] KeyManagerResult keepGenerated(KeyType use, KeyScheme scheme, const KeyGenHooks& hooks,
                                                 const std::function<SignerPtr()>& generate);

    [[nodiscard]] bool generatorsReady() const;
    [[nodiscard]] KeyStoreContents currentContents() const;
    [[nodiscard]] KeyManagerResult mergeWithDisk(const SecretText* password, KeyStoreContents& contents);
    [[nodiscard]] KeyManagerResult mergeWithDevice(KeyStoreContents& contents);
    [[nodiscard]] KeyManagerResult readKeysAgain();
    [[nodiscard]] KeyManagerResult writeContents(KeyStoreContents contents, const SecretText& password);
    [[nodiscard]] KeyManagerResult keepHistory(const KeyStoreContents& contents, const SecretText& password);
    void noteSaved();

    TokenModulesUse tokenModules_;
    ContextServices* context_ = nullptr;
    State state_ = State::Closed;
    std::unique_ptr<KeyStoreMedia> media_;
    const CrvProfile* startedFor_ = nullptr;  // the profile whose device was started and not yet logged in to
    KeyStoreContents contents_;
    std::unique_ptr<StoredFile> stored_;              // the security file as last read or written; null: not at all
    std::shared_ptr<const CRVCfgFile> deviceRecord_;  // a device's record as last read or written; null: it had none
    Bytes deviceStored_;                              // what the device kept for it
    std::unique_ptr<KeyStoreContents> beforeInstall_;
    std::shared_ptr<const CRVCfgFile> recordBeforeInstall_;
    std::optional<NewKey> unsaved_;
    SecretBytes signedConfiguration_;  // a configuration still to be verified
    std::function<bool()> progress_;
    TrustPoints trust_;
    Generators generators_;
    RandomBridge random_;

    OpenMode mode_ = OpenMode::LogIn;
    bool foreign_ = false;
    bool seedingSuppressed_ = false;
    HistoryFailure historyFailure_;
    bool historyDemanded_ = false;  // without it nothing is written
    bool recordTaken_ = false;      // the configuration manager's record is this key store's
};

}  // namespace crv
