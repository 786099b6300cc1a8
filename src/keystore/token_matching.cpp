#include "keystore/token_matching.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "corvane/crvprofile.h"
#include "keystore/key_pairing.h"
#include "misc/ascii.h"
#include "misc/hex.h"
#include "misc/logger.h"
#include "misc/path.h"
#include "profiles/profile_kinds.h"

namespace crv {
namespace {

std::string textAttr(const CrvProfile& profile, long id) {
    std::string text;
    if (profile.getAttr(id, text) != kAttrOk) text.clear();
    text.resize(text.find_last_not_of(' ') + 1);
    return text;
}

Bytes octetsAttr(const CrvProfile& profile, long id) {
    std::vector<char> octets;
    if (profile.getAttr(id, octets) != kAttrOk) octets.clear();
    return {octets.begin(), octets.end()};
}

bool flagAttr(const CrvProfile& profile, long id) {
    long value = 0;
    return profile.getAttr(id, value) == kAttrOk && value != 0;
}

/// Fields that a certificate filter may look at, by their numbers in a profile.
constexpr std::string (*kFilterFields[])(const SignedCertificate& certificate) = {
    [](const SignedCertificate& one) { return one.subject().text(); },
    [](const SignedCertificate& one) { return one.subject().find(OID_AT_COMMON_NAME).value_or(""); },
    [](const SignedCertificate& one) { return one.issuer().text(); },
    [](const SignedCertificate& one) { return one.email(); },
    [](const SignedCertificate& one) { return toHex(one.serialNumber().magnitude()); },
};

bool fitsFilter(const SignedCertificate& certificate, const TokenCriteria& criteria) {
    const auto field = static_cast<size_t>(criteria.certField);
    if (field >= std::size(kFilterFields)) return false;
    return asciiUpper(kFilterFields[field](certificate)).find(asciiUpper(criteria.certFilter)) != std::string::npos;
}

std::string nameOf(const FoundToken& token) {
    return "\"" + token.info.label + "\" (" + token.info.serial + ", " + token.reader + ")";
}

/// Why a choice failed, for the log: everything that would have done.
template <class List, class Name>
void logAll(const char* what, const List& list, Name name) {
    std::string text = what;
    for (const auto& one : list) text += " " + name(one);
    logLine(LogLevel::Error, text);
}

/// Reads what is public on a token that is only looked at.
bool readPublic(FoundToken& token, TokenObjects& objects) {
    if (token.device.openSession(token.slot, false) != kP11Ok) return false;
    const P11Result read = readTokenObjects(token.device, false, objects);
    token.device.closeSession();
    return read == kP11Ok;
}

bool hasKey(const TokenObjects& objects, const Bytes& id) {
    return std::ranges::any_of(objects.keys, [&](const TokenKeyFacts& key) { return key.id == id; });
}

bool fitsCertificates(const TokenObjects& objects, const TokenCriteria& criteria) {
    return criteria.certFilter.empty() ||
           std::ranges::any_of(objects.certificates, [&](const CertPtr& one) { return fitsFilter(*one, criteria); });
}

std::vector<size_t> candidates(std::vector<FoundToken>& tokens, const RoleCriteria& role,
                               const TokenCriteria& criteria) {
    std::vector<size_t> fitting, holding;
    for (size_t i = 0; i < tokens.size(); ++i) {
        if (!role.label.empty() && tokens[i].info.label != role.label) continue;
        TokenObjects objects;
        const bool looks = !criteria.certFilter.empty() || !role.keyId.empty();
        if (looks && !readPublic(tokens[i], objects)) continue;
        if (!fitsCertificates(objects, criteria)) continue;
        fitting.push_back(i);
        if (!role.keyId.empty() && hasKey(objects, role.keyId)) holding.push_back(i);
    }
    // A key that shows nothing without a log-in may still be there.
    return holding.empty() ? fitting : holding;
}

KeyManagerResult chooseOne(std::vector<FoundToken>& tokens, const RoleCriteria& role, const TokenCriteria& criteria,
                           KeyManagerResult several, size_t& chosen) {
    const std::vector<size_t> fitting = candidates(tokens, role, criteria);
    if (fitting.empty()) return kKmCardNotFound;
    chosen = fitting.front();
    if (fitting.size() == 1) return kKmOk;
    logAll("several tokens fit the profile:", fitting, [&](size_t i) { return nameOf(tokens[i]); });
    return several;
}

bool can(const TokenKeyFacts& key, KeyRole role) {
    return role == KeyRole::Signing ? key.signs : key.decrypts && isRsa(key.publicKey.scheme());
}

/// Whether the key's certificates give it the role; nothing when they do not say.
std::optional<bool> certified(const TokenObjects& objects, const TokenKeyFacts& key, KeyRole role) {
    std::optional<bool> given;
    for (const CertPtr& one : objects.certificates) {
        if (one->computeKeyIdentifierSha1Hash() != key.publicKey.keyId()) continue;
        if (const auto usage = roleOfCertificate(*one)) given = given.value_or(false) || shares(*usage, role);
    }
    return given;
}

}  // namespace

TokenCriteria tokenCriteria(const CrvProfile& profile) {
    TokenCriteria criteria;
    for (const std::string& path : Pkcs11Profile::splitLibs(textAttr(profile, CRVPROFILE_ATTR_PKCS11_LIBRARY)))
        criteria.libraries.push_back(expandHome(path));
    criteria.osLocking = flagAttr(profile, CRVPROFILE_ATTR_PKCS11_SYNC_BY_LIB);
    criteria.reader = textAttr(profile, CRVPROFILE_ATTR_READER_NAME);
    criteria.certFilter = textAttr(profile, CRVPROFILE_ATTR_CERT_FILTER);
    profile.getAttr(CRVPROFILE_ATTR_CERT_FILTER_FIELD_TYPE, criteria.certField);
    criteria.signingCertificate = octetsAttr(profile, CRVPROFILE_ATTR_SKEY_CERT);
    criteria.ignoresRecord = flagAttr(profile, CRVPROFILE_ATTR_IGNORE_SFT_FILE);
    const TokenUse use{PinSlot::SigningToken, flagAttr(profile, CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN),
                       flagAttr(profile, CRVPROFILE_ATTR_EXTERN_SPIN),
                       !flagAttr(profile, CRVPROFILE_ATTR_AUTO_EXTERN_PINS)};
    criteria.signing = {textAttr(profile, CRVPROFILE_ATTR_SKEY_TOK), octetsAttr(profile, CRVPROFILE_ATTR_SKEY_ID), use};
    criteria.decryption = {textAttr(profile, CRVPROFILE_ATTR_DKEY_TOK), octetsAttr(profile, CRVPROFILE_ATTR_DKEY_ID),
                           use};
    criteria.decryption.use.pin = PinSlot::DecryptionToken;
    criteria.decryption.use.externalPin = flagAttr(profile, CRVPROFILE_ATTR_EXTERN_DPIN);
    return criteria;
}

KeyManagerResult loadModules(ContextServices& context, const TokenCriteria& criteria,
                             std::vector<PKCS11Device>& modules) {
    for (const std::string& path : criteria.libraries) {
        PKCS11Device device;
        if (const P11Result loaded = device.initLibMap(path, criteria.osLocking); loaded != kP11Ok) {
            static_cast<void>(tokenResult(context, device, loaded));
            context.setDiagnosticText(path + ": " + getP11DErrTxt(loaded));
            return kKmPkcs11Init;
        }
        modules.push_back(std::move(device));
    }
    return modules.empty() ? kKmPkcs11NotInitialised : kKmOk;
}

std::vector<FoundToken> enumerateTokens(std::vector<PKCS11Device>& modules, const TokenCriteria& criteria) {
    std::vector<FoundToken> tokens;
    for (PKCS11Device& module : modules) {
        if (module.initSlots(true) != kP11Ok) continue;
        for (int slot = 0; slot < module.slotCount(); ++slot) {
            P11SlotInfo reader;
            P11TokenInfo info;
            if (module.getSlotInfo(slot, reader) != kP11Ok || module.getTokenInfo(slot, info) != kP11Ok) continue;
            // Some modules list an empty token as one that is there.
            if (!(info.flags & CKF_TOKEN_INITIALIZED)) continue;
            if (!criteria.reader.empty() && reader.description != criteria.reader) continue;
            tokens.push_back({module.cloneDevice(), slot, info, reader.description});
        }
    }
    return tokens;
}

KeyManagerResult matchTokens(std::vector<FoundToken> tokens, const TokenCriteria& criteria, MatchedTokens& matched) {
    const RoleCriteria &signing = criteria.signing, &decryption = criteria.decryption;
    const bool separate = !decryption.label.empty() && decryption.label != signing.label;
    size_t signs = 0, decrypts = 0;
    const KeyManagerResult several = separate ? kKmManySigningCards : kKmManyCards;
    if (const KeyManagerResult one = chooseOne(tokens, signing, criteria, several, signs); one != kKmOk) return one;
    if (separate) {
        const KeyManagerResult other = chooseOne(tokens, decryption, criteria, kKmManyDecryptionCards, decrypts);
        if (other != kKmOk) return other;
    }
    if (separate && decrypts != signs) matched.decryption.emplace(std::move(tokens[decrypts]));
    matched.signing.emplace(std::move(tokens[signs]));
    return kKmOk;
}

KeyManagerResult matchKey(const TokenObjects& objects, KeyRole role, const TokenCriteria& criteria,
                          std::optional<size_t>& index) {
    index.reset();
    const bool signing = role == KeyRole::Signing;
    const Bytes& id = signing ? criteria.signing.keyId : criteria.decryption.keyId;
    const CertPtr named =
        signing && !criteria.signingCertificate.empty() ? makeCert(criteria.signingCertificate) : nullptr;
    std::vector<size_t> able, certifiedFor, dedicated;
    for (size_t i = 0; i < objects.keys.size(); ++i) {
        const TokenKeyFacts& key = objects.keys[i];
        if (!can(key, role) || (!id.empty() && key.id != id)) continue;
        if (id.empty() && named && named->computeKeyIdentifierSha1Hash() != key.publicKey.keyId()) continue;
        const auto said = certified(objects, key, role);
        if (id.empty() && said == false) continue;
        able.push_back(i);
        if (said == true) certifiedFor.push_back(i);
        if (!can(key, without(KeyRole::Both, role))) dedicated.push_back(i);
    }
    const std::vector<size_t>& fitting = !certifiedFor.empty() ? certifiedFor : !dedicated.empty() ? dedicated : able;
    if (fitting.empty()) return id.empty() && !named ? kKmOk : kKmTokenKeyNotFound;
    index = fitting.front();
    if (fitting.size() == 1) return kKmOk;
    logAll("several keys fit the profile:", fitting, [&](size_t i) { return toHex(objects.keys[i].id); });
    return kKmRoleTaken;
}

}  // namespace crv
