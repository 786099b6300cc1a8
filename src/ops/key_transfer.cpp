#include "ops/key_transfer.h"

#include <algorithm>
#include <ctime>

#include "asn/known_oids.h"
#include "asn/pkcs/pfx.h"
#include "asn/pkcs/secret_encoding.h"
#include "asn/x509/signed_certificate.h"
#include "crypto/crypto_error.h"
#include "crypto/random_bridge.h"
#include "keystore/key_pairing.h"
#include "keystore/security_file.h"
#include "misc/ascii.h"
#include "misc/base64_file.h"
#include "misc/hex.h"
#include "ops/op_error.h"
#include "ops/password_rules.h"
#include "ops/session.h"
#include "pki/certificate_manager.h"

namespace crv {
namespace {

constexpr const char* kPlainKey = "PRIVATE KEY";
constexpr const char* kEncipheredKey = "ENCRYPTED PRIVATE KEY";

using Salt = SecretArray<20>;

Salt randomSalt() {
    Salt salt;
    if (!systemRandom(salt)) throw OpError(OpFault::LibraryFailed, "getrandom");
    return salt;
}

PrivateKeyInfo infoOf(const StoredKey& stored) {
    const auto* key = dynamic_cast<const PrivateKey*>(stored.key.get());
    PrivateKeyInfo info;
    if (!key || !info.readExactly(key->toPkcs8())) demandKeys(kKmNotOnThisMedium);
    return info;
}

SecretBytes exportedPkcs12(const StoredKey& key, const CertList& chain, const SecretText& password) {
    Pfx pfx;
    pfx.update(infoOf(key), key.key->keyId());
    for (const CertPtr& one : chain) pfx.update(*one, one->computeKeyIdentifierSha1Hash());
    if (pfx.finalStrong(password.view(), randomSalt()) != PfxResult::Ok) demandKeys(kKmNoMemory);
    return encodedSecret(pfx);
}

SecretBytes exportedPem(const StoredKey& key, const CertList& chain, const SecretText& password) {
    const PbePassword pbe(password.view());
    const Salt random = randomSalt(), vector = randomSalt();
    Pbes2Settings pbes2(pbe, ByteView(random).first(Pfx::kStrongSaltLength), Pfx::kStrongIterations);
    pbes2.setVector(ByteView(vector).first(Pbes2Settings::kVectorLength));
    EncryptedPrivateKeyInfo shrouded;
    shrouded.encrypt(pbes2, infoOf(key));
    std::string text = toPem(kEncipheredKey, shrouded.encoded());
    for (const CertPtr& one : chain) text += toPem("CERTIFICATE", encodingOf(*one));
    return toSecret(asBytes(text));
}

void takePem(std::string_view block, const PbePassword& password, KeysOfFile& out) {
    std::string label;
    const auto octets = fromPem(block, &label);
    if (!octets) throw OpError(OpFault::BadFile);
    if (label == kEncipheredKey) {
        EncryptedPrivateKeyInfo shrouded;
        if (!shrouded.readExactly(*octets)) throw OpError(OpFault::BadFile, label);
        out.keys.push_back(shrouded.decrypt(password).key());
    } else if (label == kPlainKey) {
        out.keys.push_back(PrivateKey::fromPkcs8(*octets));
    } else if (label == "CERTIFICATE") {
        out.certificates.push_back(makeCert(*octets));
        if (!out.certificates.back()) throw OpError(OpFault::BadFile, label);
    }
}

KeysOfFile keysOfPem(std::string_view text, const PbePassword& password) {
    constexpr std::string_view kBegin = "-----BEGIN ";
    KeysOfFile found;
    for (size_t at = text.find(kBegin); at != std::string_view::npos;) {
        const size_t next = text.find(kBegin, at + 1);
        takePem(text.substr(at, next == std::string_view::npos ? next : next - at), password, found);
        at = next;
    }
    return found;
}

/// What can be wrong with an enciphered key.
KeyManagerResult resultOfFailure(CryptoFailure failure) {
    if (failure == CryptoFailure::Unsupported) return kKmProtectionNotSupported;
    if (failure == CryptoFailure::Cancelled) return kKmStopped;
    return failure == CryptoFailure::BadData ? kKmWrongPassword : kKmBadFormat;
}

}  // namespace

const StoredKey& keyNamed(Session& session, const std::string& text) {
    const auto begins = [&](const StoredKey& key) {
        return equalIgnoreCase(toHex(key.key->keyId()).substr(0, text.size()), text);
    };
    const auto keys = session.keys().keys();
    const auto found = std::ranges::find_if(keys, begins);
    if (found == keys.end()) throw OpError(OpFault::ObjectMissing, text);
    if (std::find_if(found + 1, keys.end(), begins) != keys.end()) throw OpError(OpFault::Ambiguous, text);
    return *found;
}

CertList chainOf(CertificateManager& certificates, const KeyManager& keys, const StoredKey& key) {
    const CertPtr certificate = keys.certificateOf(key);
    if (!certificate) return {};
    PathOptions options;
    options.time = std::time(nullptr);
    options.revocation = RevocationCheck::None;
    CertList chain = certificates.buildPath(certificate, options).certs;
    if (chain.empty()) chain.push_back(certificate);
    return chain;
}

SecretBytes exportedKey(const StoredKey& key, const CertList& chain, KeyFileFormat format, const SecretText& password) {
    demandGoodPassword(password);
    return format == KeyFileFormat::Pkcs12 ? exportedPkcs12(key, chain, password) : exportedPem(key, chain, password);
}

KeysOfFile keysOfFile(ByteView octets, const SecretText& password, const std::function<bool()>& goOn) {
    const std::string_view text = asText(octets);
    KeysOfFile found;
    if (text.find("-----BEGIN ") != std::string_view::npos) {
        try {
            found = keysOfPem(text, PbePassword(password.view(), goOn));
        } catch (const CryptoError& error) {
            demandKeys(resultOfFailure(error.failure()));
        }
    } else {
        LoadedSecurityFile loaded;
        demandKeys(readSecurityFile(octets, password, false, loaded, goOn));
        for (const LoadedSecurityFile::Key& key : loaded.keys) found.keys.push_back(key.key);
        found.certificates = loaded.certificates;
    }
    if (found.keys.empty()) throw OpError(OpFault::BadFile);
    return found;
}

CertList authoritiesOf(const KeysOfFile& found) {
    CertList authorities;
    for (const CertPtr& one : found.certificates)
        if (one->isCaCrt()) authorities.push_back(one);
    return authorities;
}

KeyManagerResult importKeyInto(KeyManager& keys, const PrivateKey& key, const CertList& certificates,
                               std::optional<KeyRole> role, bool write) {
    for (const CertPtr& one : certificates)
        if (!role && one->computeKeyIdentifierSha1Hash() == key.keyId()) role = roleOfCertificate(*one);
    KeyRole wanted = role.value_or(KeyRole::Signing);
    if (!isRsa(key.scheme())) wanted = wanted & KeyRole::Signing;
    const auto known = [&](const StoredKey& one) { return one.key->keyId() == key.keyId(); };
    if (std::ranges::any_of(keys.keys(), known)) return kKmKeyExists;
    return write ? keys.importKey(key, wanted, certificates) : kKmOk;
}

}  // namespace crv
