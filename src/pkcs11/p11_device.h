// A token reached through a PKCS#11 module: the module, its slots, and one session on one of them.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "misc/secret.h"
#include "pkcs11/p11_call.h"
#include "pkcs11/p11_objects.h"

namespace crv {

struct P11SlotInfo {
    std::string description;
    std::string manufacturer;
    bool tokenPresent = false;
};

struct P11TokenInfo {
    std::string label;
    std::string manufacturer;
    std::string model;
    std::string serial;
    std::string firmware;  ///< "1.2"
    CK_FLAGS flags = 0;
    CK_ULONG minPin = 0;
    CK_ULONG maxPin = 0;
    std::optional<CK_ULONG> freePrivate;  ///< octets; nothing when the token does not say
};

struct P11LibInfo {
    std::string manufacturer;
    std::string description;
    std::string version;
};

/// What a token does with keys of one algorithm.
struct P11KeyMechanisms {
    bool generates = false;
    bool signs = false;
    bool decrypts = false;
    CK_ULONG minBits = 0;
    CK_ULONG maxBits = 0;
};

/// A mechanism with its parameters, which it refers to.
struct P11Mechanism {
    CK_MECHANISM_TYPE type;
    std::span<uint8_t> parameters = {};
};

/// Done between an operation's Init and the operation: where a key wants its PIN each time, it is given here. A failure
/// ends the operation and closes the session.
using P11BeforeUse = std::function<P11Result()>;

/// Operations answer a P11Result; after kP11ModuleError, and only then, lastRv() says what the module said. Everything
/// that a module gives is distrusted: lists may grow while they are read, lengths may be absurd (kP11BadData,
/// kP11TooMany). A session that an initialisation of the module ended (after a fork, after another device restarted it)
/// is CKR_SESSION_HANDLE_INVALID. Neither PINs nor values of objects reach the log. One thread at a time.
class PKCS11Device {
  public:
    static constexpr CK_SESSION_HANDLE kNoSession = static_cast<CK_SESSION_HANDLE>(-1);

    PKCS11Device() = default;
    PKCS11Device(PKCS11Device&& other) noexcept;
    PKCS11Device& operator=(PKCS11Device&&) = delete;
    ~PKCS11Device();

    // --- Module and slots

    /// Loads a module (osLocking: it serialises calls itself) or, without a path, gives the one that was loaded up;
    /// a session is closed first.
    [[nodiscard]] P11Result initLibMap(const std::string& path = {}, bool osLocking = false);
    /// Another device on the same module with the same slots, without a session.
    [[nodiscard]] PKCS11Device cloneDevice() const;
    /// Reads the list of slots. Slots with an index refer to it.
    [[nodiscard]] P11Result initSlots(bool tokenPresent);
    [[nodiscard]] int slotCount() const { return static_cast<int>(slots_.size()); }
    [[nodiscard]] CK_SLOT_ID slotId(int index) const { return slots_[static_cast<size_t>(index)]; }
    [[nodiscard]] P11Result getSlotInfo(int slot, P11SlotInfo& info);
    /// kP11NoToken for a slot without one.
    [[nodiscard]] P11Result getTokenInfo(int slot, P11TokenInfo& info);
    [[nodiscard]] P11Result getLibInfo(P11LibInfo& info);
    [[nodiscard]] P11Result getRSAMechanismInfo(int slot, P11KeyMechanisms& info);
    [[nodiscard]] P11Result getDSAMechanismInfo(int slot, P11KeyMechanisms& info);
    /// Whether the token offers a mechanism for a use (CKF_SIGN, CKF_DECRYPT ...).
    [[nodiscard]] bool offers(int slot, CK_MECHANISM_TYPE mechanism, CK_FLAGS use);
    /// Ends every session of the process with the module and begins anew, where the module was initialised by us.
    [[nodiscard]] P11Result restart();

    // --- Session

    /// An open session and a wrong index are failed assertions.
    [[nodiscard]] P11Result openSession(int slot, bool readWrite);
    /// Forgets the session also when the module fails to close it.
    P11Result closeSession();
    [[nodiscard]] bool hasSession() const { return session_ != kNoSession; }
    /// Whether the module was initialised anew since the session was opened, here or in a forked process.
    [[nodiscard]] bool isSessionGone() const;
    /// Without a session a failed assertion. `externalPin`: the PIN is entered on the reader, and `pin` is not looked
    /// at. To be logged in already is success.
    [[nodiscard]] P11Result login(const char* pin, size_t length, CK_USER_TYPE user, bool externalPin);
    P11Result logout();
    /// External: both PINs are entered on the reader.
    [[nodiscard]] P11Result changePIN(const SecretText& oldPin, const SecretText& newPin, bool externalPin);
    /// Held over calls that belong together, so that no other process comes between them.
    [[nodiscard]] P11Lock::Hold hold() { return P11Lock::Hold(*lock_); }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] CK_RV lastRv() const { return lastRv_; }

    // --- Objects

    using Handle = CK_OBJECT_HANDLE;
    using Handles = std::vector<Handle>;

    [[nodiscard]] P11Result findObjects(P11Template wanted, Handles& found);
    [[nodiscard]] P11Result getAllPublicKeyHandles(Handles& found);
    [[nodiscard]] P11Result getAllPrivateKeyHandles(Handles& found);
    [[nodiscard]] P11Result getAllKeyCertHandles(Handles& found);
    /// The first object of the kind and CKA_ID; kP11NotFound.
    [[nodiscard]] P11Result getRSAPublicKeyHandle(ByteView id, Handle& found);
    [[nodiscard]] P11Result getRSAPrivateKeyHandle(ByteView id, Handle& found);
    [[nodiscard]] P11Result getECPublicKeyHandle(ByteView id, Handle& found);
    [[nodiscard]] P11Result getECPrivateKeyHandle(ByteView id, Handle& found);
    [[nodiscard]] P11Result getKeyCertHandle(ByteView id, Handle& found);
    [[nodiscard]] P11Result getDataObjectHandle(const std::string& application, const std::string& label,
                                                Handle& found);

    /// kP11NoAttribute when the object does not have it or does not give it away.
    [[nodiscard]] P11Result getObjectAttribute(Handle object, CK_ATTRIBUTE_TYPE type, Bytes& value);
    /// Those of the attributes that can be had.
    [[nodiscard]] P11Result getObjectAttributeTab(Handle object, std::span<const CK_ATTRIBUTE_TYPE> types,
                                                  P11Attributes& values);
    [[nodiscard]] P11Result setObjectAttribute(Handle object, CK_ATTRIBUTE_TYPE type, ByteView value);

    [[nodiscard]] P11Result createObject(P11Template attributes, Handle& made);
    /// The certificate in DER and what it is found by (each in DER but the label): a public object.
    struct KeyCertificate {
        ByteView encoding, id, subject, issuer, serial;
        std::string label;
    };
    [[nodiscard]] P11Result addKeyCertificate(const KeyCertificate& certificate, Handle& made);
    struct DataObject {
        std::string application, label;
        ByteView objectId;  ///< in DER
        ByteView value;
    };
    /// A private object that lasts.
    [[nodiscard]] P11Result createDataObject(const DataObject& data, Handle& made);
    [[nodiscard]] P11Result deleteObject(Handle object);

    // --- Cryptography

    /// PKCS#1 v1.5 over a DigestInfo in DER (CKM_RSA_PKCS).
    [[nodiscard]] P11Result signRSA(Handle key, ByteView digestInfo, Bytes& signature, const P11BeforeUse& before = {});
    [[nodiscard]] P11Result signRSAWithMechanism(Handle key, const P11Mechanism& mechanism, ByteView data,
                                                 Bytes& signature, const P11BeforeUse& before = {});
    /// The two numbers one after the other.
    [[nodiscard]] P11Result signECDSA(Handle key, ByteView digest, Bytes& signature, const P11BeforeUse& before = {});
    /// Whether the module finds the signature over a DigestInfo right.
    [[nodiscard]] P11Result verifyRSA(Handle key, ByteView digestInfo, ByteView signature, bool& right);
    [[nodiscard]] P11Result decryptRSA(Handle key, const P11Mechanism& mechanism, ByteView ciphertext,
                                       SecretBytes& plain, const P11BeforeUse& before = {});
    /// The templates need no numbers; those of the public key get the bits and the exponent.
    [[nodiscard]] P11Result generateRSAKeyPair(unsigned bits, uint64_t exponent, P11Template publicKey,
                                               P11Template privateKey, Handle& madePublic, Handle& madePrivate);
    /// The value that a private key shares with another's public one (CKM_DH_PKCS_DERIVE over its number, else
    /// CKM_ECDH1_DERIVE over its point), `length` octets.
    [[nodiscard]] P11Result generateDHSecret(Handle key, CK_MECHANISM_TYPE mechanism, Bytes peer, size_t length,
                                             SecretBytes& secret);
    [[nodiscard]] P11Result generateRandom(std::span<uint8_t> out);

  private:
    template <class Function, class... Args>
    CK_RV call(Function CK_FUNCTION_LIST::*member, Args... args);
    /// The same with the session in front.
    template <class Function, class... Args>
    CK_RV callSession(Function CK_FUNCTION_LIST::*member, Args... args);
    /// kP11Ok for CKR_OK, else keeps and reports the failure.
    P11Result check(const char* function, const char* name, CK_RV rv);
    P11Result reportError(const char* function, const char* name, P11Result code, CK_RV rv = CKR_OK);
    [[nodiscard]] bool isSlot(int slot) const { return slot >= 0 && slot < slotCount(); }
    [[nodiscard]] P11Result getKeyMechanisms(int slot, std::span<const CK_MECHANISM_TYPE> uses,
                                             CK_MECHANISM_TYPE generation, P11KeyMechanisms& info);
    [[nodiscard]] P11Result findFirst(P11Template wanted, Handle& found);
    [[nodiscard]] CK_RV readAttributes(Handle object, std::span<CK_ATTRIBUTE> attributes);
    [[nodiscard]] P11Result finishSearch(Handles& found);
    /// Closes the session, the only way to end an operation that was begun in it.
    P11Result abandon(P11Result result);
    void forgetSession();

    std::string path_;
    P11LibraryPtr library_;
    std::unique_ptr<P11Lock> lock_;
    std::vector<CK_SLOT_ID> slots_;
    int slot_ = -1;
    CK_SESSION_HANDLE session_ = kNoSession;
    unsigned epoch_ = 0;  // of the module when the session was opened
    CK_RV lastRv_ = CKR_OK;
};

}  // namespace crv
