#include "keystore/key_pairing.h"

#include <algorithm>

#include "asn/pkcs/private_key_info.h"
#include "asn/x509/signed_certificate.h"
#include "keystore/security_file.h"

namespace crv {
namespace {

KeyRole roleOfUse(uint32_t bits) {
    const KeyRole signing = (bits & (kDigitalSignature | kNonRepudiation)) ? KeyRole::Signing : KeyRole::Further;
    const KeyRole encryption = (bits & (kKeyEncipherment | kDataEncipherment)) ? KeyRole::Encryption : KeyRole::Further;
    return signing | encryption;
}

/// Only RSA keys decrypt.
KeyRole possibleRole(const PrivateKey& key, KeyRole wanted) {
    return isRsa(key.scheme()) ? wanted : wanted & KeyRole::Signing;
}

/// Hands out roles, each once.
class RoleGiver {
  public:
    void give(StoredKey& key, KeyRole wanted) {
        key.role = without(possibleRole(key.key, wanted), taken_);
        taken_ = taken_ | key.role;
    }
    [[nodiscard]] KeyRole free() const { return without(KeyRole::Both, taken_); }

  private:
    KeyRole taken_ = KeyRole::Further;
};

void sortCertificates(const CertList& certificates, KeyStoreContents& out) {
    for (const CertPtr& certificate : certificates) {
        const bool paired = out.findKey(certificate->computeKeyIdentifierSha1Hash()) != nullptr;
        const bool trusted = !paired && certificate->isCaCrt() && certificate->isSelfIssued();
        (trusted ? out.trustedCerts : out.userCerts).push_back(certificate);
    }
}

void giveRoles(const LoadedSecurityFile& file, KeyStoreContents& out) {
    RoleGiver giver;
    std::vector<StoredKey*> undecided;
    for (size_t i = 0; i < out.keys.size(); ++i)
        if (file.keys[i].use) giver.give(out.keys[i], roleOfUse(*file.keys[i].use));
    for (size_t i = 0; i < out.keys.size(); ++i) {
        if (file.keys[i].use) continue;
        const CertPtr certificate = out.certificateOf(out.keys[i].key.keyId());
        const auto role = certificate ? roleOfCertificate(*certificate) : std::nullopt;
        if (role) {
            giver.give(out.keys[i], *role);
        } else {
            undecided.push_back(&out.keys[i]);
        }
    }
    for (StoredKey* key : undecided) {
        const KeyRole free = giver.free();
        giver.give(*key, shares(free, KeyRole::Signing) ? KeyRole::Signing : free);
    }
}

}  // namespace

bool hasTwoNames(const KeyStoreContents& contents) {
    const auto clash = [](const CertPtr& a, const CertPtr& b) {
        return a->computeKeyIdentifierSha1Hash() == b->computeKeyIdentifierSha1Hash() &&
               !(a->subject() == b->subject());
    };
    const CertList& certs = contents.userCerts;
    for (size_t i = 0; i < certs.size(); ++i) {
        if (!contents.findKey(certs[i]->computeKeyIdentifierSha1Hash())) continue;
        for (size_t j = i + 1; j < certs.size(); ++j)
            if (clash(certs[i], certs[j])) return true;
    }
    return false;
}

std::optional<KeyRole> roleOfCertificate(const SignedCertificate& certificate) {
    const auto usage = certificate.keyUsage();
    return usage ? std::optional(roleOfUse(usage->namedBits())) : std::nullopt;
}

KeyManagerResult analyzeKeysAndCerts(const LoadedSecurityFile& file, bool recertification, KeyStoreContents& out) {
    KeyStoreContents contents;
    for (const LoadedSecurityFile::Key& key : file.keys)
        contents.keys.push_back({key.key, KeyRole::Further, key.attributes, key.bagAttributes});
    sortCertificates(file.certificates, contents);
    if (!recertification && hasTwoNames(contents)) return kKmKeyHasTwoNames;
    giveRoles(file, contents);
    sortByRole(contents.keys);
    contents.configuration = file.configuration;
    contents.seed = file.seed;
    contents.certAttributes = file.certAttributes;
    contents.others = file.others;
    out = std::move(contents);
    return kKmOk;
}

KeyManagerResult pairCertificate(KeyStoreContents& contents, const CertPtr& certificate, bool recertification) {
    const KeyId id = certificate->computeKeyIdentifierSha1Hash();
    const auto key =
        std::ranges::find_if(contents.keys, [&](const StoredKey& stored) { return stored.key.keyId() == id; });
    if (key == contents.keys.end()) return kKmNoKeyForCertificate;

    const KeyRole wanted = possibleRole(
        key->key,
        roleOfCertificate(*certificate).value_or(key->role == KeyRole::Further ? KeyRole::Signing : key->role));
    for (const StoredKey& other : contents.keys)
        if (&other != &*key && shares(other.role, wanted)) return kKmRoleTaken;

    CertList kept;
    for (const CertPtr& old : contents.userCerts) {
        const bool sameKey = old->computeKeyIdentifierSha1Hash() == id;
        const bool sameName = sameKey && old->subject() == certificate->subject();
        if (sameKey && !sameName && !recertification) return kKmKeyHasTwoNames;
        if (sameName && !isNewer(*certificate, *old)) return kKmCertificateExists;
        if (!sameName) kept.push_back(old);
    }
    kept.push_back(certificate);
    contents.userCerts = std::move(kept);
    key->role = key->role | wanted;
    sortByRole(contents.keys);
    return kKmOk;
}

}  // namespace crv
