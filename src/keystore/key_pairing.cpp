#include "keystore/key_pairing.h"

#include <algorithm>
#include <ctime>
#include <functional>

#include "asn/asn_primitives.h"
#include "asn/pkcs/attribute.h"
#include "asn/pkcs/private_key_info.h"
#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/crv_cfg_file.h"
#include "keystore/security_file.h"

namespace crv {
namespace {

KeyRole roleOfUse(uint32_t bits) {
    const KeyRole signing = (bits & (kDigitalSignature | kNonRepudiation)) ? KeyRole::Signing : KeyRole::Further;
    const KeyRole encryption = (bits & (kKeyEncipherment | kDataEncipherment)) ? KeyRole::Encryption : KeyRole::Further;
    return signing | encryption;
}

/// Only RSA keys decrypt.
KeyRole possibleRole(const Signer& key, KeyRole wanted) {
    return isRsa(key.scheme()) ? wanted : wanted & KeyRole::Signing;
}

/// Hands out roles, each once.
class RoleGiver {
  public:
    void give(StoredKey& key, KeyRole wanted) {
        key.role = without(possibleRole(*key.key, wanted), taken_);
        taken_ = taken_ | key.role;
    }
    [[nodiscard]] KeyRole free() const { return without(KeyRole::Both, taken_); }

  private:
    KeyRole taken_ = KeyRole::Further;
};

/// What another program put into its file is trusted when the user says so, not before.
void sortCertificates(const LoadedSecurityFile& file, KeyStoreContents& out) {
    for (const CertPtr& certificate : file.certificates) {
        const bool paired = out.findKey(certificate->computeKeyIdentifierSha1Hash()) != nullptr;
        const bool root = !paired && certificate->isCaCrt() && certificate->isSelfIssued();
        if (root && file.foreign) markOrdinary(out.certAttributes, *certificate, true);
        const bool trusted = root && !isOrdinary(out.certAttributes, *certificate);
        (trusted ? out.trustedCerts : out.userCerts).push_back(certificate);
    }
}

/// Our own word about a key comes before its certificate's. Other programs set the attribute for reasons of their own
/// (0x10 on keys that sign), so in their files the certificate comes first.
void giveRoles(const LoadedSecurityFile& file, KeyStoreContents& out) {
    using Source = std::function<std::optional<KeyRole>(size_t)>;
    const Source attribute = [&](size_t i) {
        return file.keys[i].use ? std::optional(roleOfUse(*file.keys[i].use)) : std::nullopt;
    };
    const Source certificate = [&](size_t i) {
        const CertPtr paired = out.certificateOf(out.keys[i].key->keyId());
        return paired ? roleOfCertificate(*paired) : std::nullopt;
    };
    RoleGiver giver;
    std::vector<bool> decided(out.keys.size());
    const auto giveBy = [&](const Source& source) {
        for (size_t i = 0; i < out.keys.size(); ++i) {
            const auto role = decided[i] ? std::nullopt : source(i);
            if (role) giver.give(out.keys[i], *role);
            decided[i] = decided[i] || role;
        }
    };
    giveBy(file.foreign ? certificate : attribute);
    giveBy(file.foreign ? attribute : certificate);
    giveBy([&](size_t) {
        const KeyRole free = giver.free();
        return shares(free, KeyRole::Signing) ? KeyRole::Signing : free;
    });
}

/// Takes attributes of its bag away.
void dropMarks(StoredKey& key, std::initializer_list<const KnownOid*> marks) {
    for (const KnownOid* mark : marks) {
        Attributes held;
        if (held.readExactly(key.bagAttributes) && held.find(*mark)) key.bagAttributes = held.encodedWithout(*mark);
    }
}

/// For the request of a key that came to the place of a deleted one before it was certified.
void keepPredecessor(StoredKey& key, const SignedCertificate& certificate) {
    Attributes held;
    held.addEncoded(key.bagAttributes);
    held.set(OID_CRV_BAG_PREDECESSOR, ASNoctstr(encodingOf(certificate)));
    key.bagAttributes = held.encoded();
}

}  // namespace

bool isOrdinary(const CertAttributes& attributes, const SignedCertificate& certificate) {
    Attributes held;
    const auto found = attributes.find(toBytes(encodingOf(certificate)));
    return found != attributes.end() && held.readExactly(found->second) && held.find(OID_CRV_BAG_ORDINARY);
}

void markOrdinary(CertAttributes& attributes, const SignedCertificate& certificate, bool ordinary) {
    Bytes encoding = toBytes(encodingOf(certificate));
    Attributes held;
    held.addEncoded(attributes[encoding]);
    if (ordinary) held.set(OID_CRV_BAG_ORDINARY, ASNnull());
    Bytes kept = ordinary ? held.encoded() : held.encodedWithout(OID_CRV_BAG_ORDINARY);
    attributes.erase(encoding);
    if (!kept.empty()) attributes.emplace(std::move(encoding), std::move(kept));
}

Bytes successorMark(const KeyId& inUse, const std::optional<AlgorithmIdentifier>& signsWith, ByteView others) {
    Attributes held;
    held.addEncoded(others);
    held.set(OID_CRV_BAG_SUCCESSOR, ASNoctstr(inUse));
    if (signsWith) held.set(OID_CRV_BAG_SUCCESSOR_SCHEME, *signsWith);
    return held.encoded();
}

std::optional<KeyId> successorTo(const StoredKey& key) {
    Attributes held;
    ASNoctstr id;
    KeyId inUse{};
    if (key.role != KeyRole::Further || !held.readExactly(key.bagAttributes) || !held.get(OID_CRV_BAG_SUCCESSOR, id) ||
        id.value().size() != inUse.size())
        return std::nullopt;
    std::ranges::copy(id.value(), inUse.begin());
    return inUse;
}

std::optional<AlgorithmIdentifier> successorAlgorithm(const StoredKey& key) {
    Attributes held;
    AlgorithmIdentifier algorithm;
    const bool says = held.readExactly(key.bagAttributes) && held.get(OID_CRV_BAG_SUCCESSOR_SCHEME, algorithm);
    return says ? std::optional(algorithm) : std::nullopt;
}

void dropSuccessorMark(StoredKey& key) {
    dropMarks(key, {&OID_CRV_BAG_SUCCESSOR, &OID_CRV_BAG_SUCCESSOR_SCHEME});
}

CertPtr predecessorCertificate(const StoredKey& key) {
    Attributes held;
    ASNoctstr encoding;
    const bool has = held.readExactly(key.bagAttributes) && held.get(OID_CRV_BAG_PREDECESSOR, encoding);
    return has ? makeCert(encoding.value()) : nullptr;
}

void dropDeleted(KeyStoreContents& contents, const CRVCfgFile& record) {
    const auto deleted = record.getDeletedKeys();
    const auto gone = [&](const KeyId& id) {
        return std::ranges::any_of(deleted, [&](const Bytes& one) { return std::ranges::equal(one, id); });
    };
    for (StoredKey& waiting : contents.keys) {
        const auto inUse = successorTo(waiting);
        if (!inUse || !gone(*inUse) || gone(waiting.key->keyId())) continue;
        const auto before =
            std::ranges::find(contents.keys, *inUse, [](const StoredKey& key) { return key.key->keyId(); });
        if (before == contents.keys.end()) continue;
        waiting.role = possibleRole(*waiting.key, before->role);
        before->role = without(before->role, waiting.role);
        dropSuccessorMark(waiting);
        if (const CertPtr certificate = contents.certificateOf(*inUse)) keepPredecessor(waiting, *certificate);
    }
    std::erase_if(contents.keys, [&](const StoredKey& key) { return gone(key.key->keyId()); });
    std::erase_if(contents.userCerts, [&](const CertPtr& one) { return gone(one->computeKeyIdentifierSha1Hash()); });
    sortByRole(contents.keys);
}

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
    for (const LoadedSecurityFile::Key& key : file.keys) {
        contents.keys.push_back(
            {std::make_shared<PrivateKey>(key.key), KeyRole::Further, key.attributes, key.bagAttributes});
    }
    contents.certAttributes = file.certAttributes;
    sortCertificates(file, contents);
    if (!recertification && hasTwoNames(contents)) return kKmKeyHasTwoNames;
    giveRoles(file, contents);
    sortByRole(contents.keys);
    contents.configuration = file.configuration;
    contents.seed = file.seed;
    contents.others = file.others;
    contents.strong = file.strong;
    out = std::move(contents);
    return kKmOk;
}

KeyManagerResult pairCertificate(KeyStoreContents& contents, const CertPtr& certificate, bool recertification) {
    const KeyId id = certificate->computeKeyIdentifierSha1Hash();
    const auto key =
        std::ranges::find_if(contents.keys, [&](const StoredKey& stored) { return stored.key->keyId() == id; });
    if (key == contents.keys.end()) return kKmNoKeyForCertificate;

    const auto inUse = successorTo(*key);
    const StoredKey* predecessor = inUse ? contents.findKey(*inUse) : nullptr;
    const KeyRole usual = predecessor                     ? predecessor->role
                          : key->role == KeyRole::Further ? KeyRole::Signing
                                                          : key->role;
    KeyRole wanted = possibleRole(*key->key, roleOfCertificate(*certificate).value_or(usual));
    if (predecessor) wanted = wanted & predecessor->role;
    // A certificate for something else is no end of the waiting; nor is there one to wait for when that key is gone.
    const bool waitsOn = predecessor && wanted == KeyRole::Further;
    for (const StoredKey& other : contents.keys)
        if (&other != &*key && &other != predecessor && shares(other.role, wanted)) return kKmRoleTaken;

    const int64_t now = std::time(nullptr);
    CertList kept;
    for (const CertPtr& old : contents.userCerts) {
        const bool sameKey = old->computeKeyIdentifierSha1Hash() == id;
        const bool sameName = sameKey && old->subject() == certificate->subject();
        if (sameKey && !sameName && !recertification) return kKmKeyHasTwoNames;
        const bool valid = certificate->isValidAt(now), oldValid = old->isValidAt(now);
        if (sameName && !isNewer(*certificate, *old) && (oldValid || !valid)) return kKmCertificateExists;
        // One that is valid now goes only for another one that is, and one that is still to come for none.
        if (!sameName || (oldValid && !valid) || isNewer(*old, *certificate)) kept.push_back(old);
    }
    kept.push_back(certificate);
    contents.userCerts = std::move(kept);
    for (StoredKey& other : contents.keys)
        if (&other == predecessor) other.role = without(other.role, wanted);
    key->role = key->role | wanted;
    if (inUse && !waitsOn) dropSuccessorMark(*key);
    if (shares(wanted, key->role)) dropMarks(*key, {&OID_CRV_BAG_PREDECESSOR});
    sortByRole(contents.keys);
    return kKmOk;
}

}  // namespace crv
