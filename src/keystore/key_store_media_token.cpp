// Keys on PKCS#11 tokens: one that signs and, where the profile names another, one that decrypts.
#include <algorithm>
#include <chrono>
#include <future>

#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "crypto/random_bridge.h"
#include "keystore/key_store_media.h"
#include "keystore/token_matching.h"
#include "keystore/token_record.h"
#include "misc/ascii.h"

namespace crv {
namespace {

constexpr std::chrono::milliseconds kProgressPeriod{100};
constexpr size_t kProvisionalId = 16;

/// The token of this label is not logged in to for its randomness; option 46 says whether it is at all at opening.
constexpr std::string_view kQuietLabel = "profil bezpieczny";

/// Keeps sessions open, and other sessions' saves away.
struct TogetherGuard {
    explicit TogetherGuard(const std::string& lockFile) : saves(lockFile, lockFile.empty(), lockFile) {}
    std::vector<std::unique_ptr<TokenSession::Together>> sessions;
    FileSemaphore saves;
};

KeyLimits limitsOf(TokenSession& token) {
    P11KeyMechanisms rsa;
    if (token.device().getRSAMechanismInfo(token.slot(), rsa) != kP11Ok) return {};
    return {rsa.generates, rsa.signs, rsa.decrypts, static_cast<unsigned>(rsa.minBits),
            static_cast<unsigned>(rsa.maxBits)};
}

struct KeyTemplates {
    P11Template publicKey = objectsOf(CKO_PUBLIC_KEY);
    P11Template privateKey = objectsOf(CKO_PRIVATE_KEY);
};

KeyTemplates templatesFor(KeyType use, ByteView id) {
    const bool signs = shares(roleOf(use), KeyRole::Signing), decrypts = shares(roleOf(use), KeyRole::Encryption);
    const char* const label = signs ? "klucz do podpisu" : "klucz do szyfrowania";
    KeyTemplates keys;
    keys.publicKey.octets(CKA_ID, id).text(CKA_LABEL, label).flag(CKA_PRIVATE, false);
    keys.publicKey.flag(CKA_VERIFY, signs).flag(CKA_ENCRYPT, decrypts);
    keys.privateKey.octets(CKA_ID, id).text(CKA_LABEL, label).flag(CKA_PRIVATE, true);
    keys.privateKey.flag(CKA_SENSITIVE, true).flag(CKA_EXTRACTABLE, false);
    keys.privateKey.flag(CKA_SIGN, signs).flag(CKA_DECRYPT, decrypts);
    return keys;
}

/// A certificate by its octets.
P11Template templateOf(const SignedCertificate& certificate) {
    P11Template wanted = objectsOf(CKO_CERTIFICATE);
    wanted.octets(CKA_VALUE, encodingOf(certificate));
    return wanted;
}

P11Result addCertificate(PKCS11Device& device, const SignedCertificate& certificate, ByteView id) {
    PKCS11Device::Handles there;
    if (const P11Result found = device.findObjects(templateOf(certificate), there); found != kP11Ok || !there.empty())
        return found;
    const Bytes subject = certificate.subject().encoded(), issuer = certificate.issuer().encoded();
    const Bytes serial = certificate.serialNumber().encoded();
    CK_OBJECT_HANDLE made = 0;
    return device.addKeyCertificate({encodingOf(certificate), id, subject, issuer, serial,
                                     certificate.subject().find(OID_AT_COMMON_NAME).value_or("")},
                                    made);
}

P11Result removeCertificate(PKCS11Device& device, const SignedCertificate& certificate) {
    PKCS11Device::Handles there;
    P11Result result = device.findObjects(templateOf(certificate), there);
    for (const CK_OBJECT_HANDLE handle : there)
        if (result == kP11Ok) result = device.deleteObject(handle);
    return result;
}

class TokenMedia final : public KeyStoreMedia {
  public:
    explicit TokenMedia(ContextServices& context)
        : context_(context), criteria_(tokenCriteria(*context.configuration().profile())) {}

    [[nodiscard]] bool needsPin() const override { return false; }
    [[nodiscard]] bool signsConfiguration() const override { return true; }

    KeyManagerResult start() override {
        const KeyManagerResult loaded = loadModules(context_, criteria_, modules_);
        if (loaded != kKmOk) return loaded;
        matched_ = findTokens();
        if (matched_ == kKmCardNotFound) {
            // A token that came back may be seen only by a module that begins anew.
            for (PKCS11Device& module : modules_) static_cast<void>(module.restart());
            matched_ = findTokens();
        }
        started_ = true;
        return kKmOk;
    }

    KeyManagerResult announce() override {
        if (const KeyManagerResult begun = started_ ? kKmOk : start(); begun != kKmOk) return begun;
        if (matched_ != kKmOk || isQuiet()) return matched_;
        for (const TokenSessionPtr& token : tokens_)
            if (const KeyManagerResult said = token->announce(); said != kKmOk) return said;
        return kKmOk;
    }

    KeyManagerResult login(const SecretText&) override {
        if (const KeyManagerResult ready = announce(); ready != kKmOk) return ready;
        objects_.clear();
        for (const TokenSessionPtr& token : tokens_)
            if (const KeyManagerResult read = readObjects(*token); read != kKmOk) return read;
        return kKmOk;
    }

    void logout() noexcept override {
        for (const TokenSessionPtr& token : tokens_) token->close();
    }

    [[nodiscard]] bool wantsTypedPin(PinSlot slot) const override {
        const TokenSession* token = tokenOf(slot);
        return !isQuiet() && !(token && token->hasPinPad());
    }

    [[nodiscard]] std::string tokenLabel(PinSlot slot) const override {
        const TokenSession* token = tokenOf(slot);
        return token ? token->info().label : "";
    }

    std::vector<std::pair<std::string, std::string>> details() override {
        std::vector<std::pair<std::string, std::string>> lines;
        for (const TokenSessionPtr& token : tokens_) {
            P11LibInfo module;
            const P11TokenInfo& info = token->info();
            lines.emplace_back("Karta:", info.label + " (" + info.serial + ")");
            lines.emplace_back("Producent i model:", info.manufacturer + ", " + info.model);
            lines.emplace_back("Czytnik:", token->reader());
            if (token->device().getLibInfo(module) == kP11Ok)
                lines.emplace_back("Moduł:", module.description + " " + module.version + ", " + module.manufacturer);
            lines.emplace_back("Oprogramowanie karty:", info.firmware);
            lines.emplace_back("Wolna pamięć:",
                               info.freePrivate ? std::to_string(*info.freePrivate) + " B" : "brak danych");
        }
        return lines;
    }

    std::shared_ptr<void> together(bool forChange) override {
        mayLogIn_ = mayLogIn_ || forChange;
        auto guard = std::make_shared<TogetherGuard>(forChange && !tokens_.empty() ? savesLock() : "");
        if (forChange && guard->saves.p(kExclusiveLock) == 0) return nullptr;
        for (const TokenSessionPtr& token : tokens_)
            guard->sessions.push_back(std::make_unique<TokenSession::Together>(*token));
        return guard;
    }

    KeyManagerResult readKeys(KeyStoreContents& contents) override {
        std::optional<size_t> signs, decrypts;
        const TokenObjects &signing = objects_.front(), &decryption = objects_.back();
        if (const KeyManagerResult one = matchKey(signing, KeyRole::Signing, criteria_, signs); one != kKmOk)
            return one;
        if (const KeyManagerResult other = matchKey(decryption, KeyRole::Encryption, criteria_, decrypts);
            other != kKmOk)
            return other;
        for (size_t token = 0; token < objects_.size(); ++token) {
            const std::vector<TokenKeyFacts>& keys = objects_[token].keys;
            for (size_t i = 0; i < keys.size(); ++i) {
                const bool first = token == 0 && signs == i, last = token + 1 == objects_.size() && decrypts == i;
                const KeyRole role =
                    (first ? KeyRole::Signing : KeyRole::Further) | (last ? KeyRole::Encryption : KeyRole::Further);
                contents.keys.push_back({std::make_shared<TokenKey>(tokens_[token], keys[i]), role});
            }
        }
        sortByRole(contents.keys);
        takeCertificates(contents);
        return kKmOk;
    }

    KeyManagerResult writeCertificates(const CertList& certificates) override {
        for (const CertPtr& one : certificates) {
            if (contains(certificates_, *one)) continue;
            const auto [token, id] = homeOf(*one);
            if (!token) continue;
            const KeyManagerResult added =
                onToken(*token, [&, id = id](PKCS11Device& device) { return addCertificate(device, *one, id); });
            if (added != kKmOk) return added;
        }
        for (const CertPtr& one : certificates_) {
            const auto [token, id] = homeOf(*one);
            if (!token || contains(certificates, *one)) continue;
            const KeyManagerResult removed =
                onToken(*token, [&](PKCS11Device& device) { return removeCertificate(device, *one); });
            if (removed != kKmOk) return removed;
        }
        certificates_ = certificates;
        return kKmOk;
    }

    KeyManagerResult readConfiguration(const RecordCheck& check, Bytes& record) override {
        record.clear();
        return criteria_.ignoresRecord || !mayLogIn_ ? kKmOk : readTokenRecord(*tokens_.front(), check, record);
    }

    KeyManagerResult writeConfiguration(ByteView record) override {
        return criteria_.ignoresRecord ? kKmOk : writeTokenRecord(*tokens_.front(), record);
    }

    KeyManagerResult gatherSeed(const std::optional<RbgSeed>&, SeedMaterial out, bool& filled) override {
        TokenSession& token = *tokens_.front();
        filled = false;
        if (hasQuietLabel() || !(token.info().flags & CKF_RNG)) return kKmOk;
        const KeyManagerResult drawn = onToken(token, [&](PKCS11Device& device) { return device.generateRandom(out); });
        filled = drawn == kKmOk;
        return drawn == kKmCancelled ? kKmOk : drawn;
    }

    std::optional<KeyLimits> keyLimits(KeyType use) override {
        return tokens_.empty() ? KeyLimits() : limitsOf(*tokenFor(use));
    }

    KeyManagerResult generateRsa(const KeyOrder& order, SignerPtr& key) override {
        const TokenSessionPtr token = tokenFor(order.use);
        Bytes id(kProvisionalId);
        if (!systemRandom(id)) return kKmNoSeed;
        bool tried = false;
        return token->run([&](PKCS11Device& device) {
            // A token that was taken out meanwhile may have made the key all the same.
            const P11Result made = tried ? kP11Ok : generatePair(device, order, id);
            tried = true;
            if (made != kP11Ok) return tokenResult(context_, device, made);
            return takeGenerated(token, device, order, id, key);
        });
    }

    KeyManagerResult changePin(const SecretText& oldPin, const SecretText& newPin) override {
        return tokens_.front()->changePin(oldPin, newPin);
    }

  private:
    [[nodiscard]] KeyManagerResult findTokens() {
        MatchedTokens matched;
        tokens_.clear();
        const KeyManagerResult found = matchTokens(enumerateTokens(modules_, criteria_), criteria_, matched);
        const auto take = [&](std::optional<FoundToken>& token, const TokenUse& use) {
            if (token) tokens_.push_back(std::make_shared<TokenSession>(context_, std::move(*token), use));
        };
        take(matched.signing, criteria_.signing.use);
        take(matched.decryption, criteria_.decryption.use);
        return found;
    }

    [[nodiscard]] bool hasQuietLabel() const {
        return !tokens_.empty() && equalIgnoreCase(tokens_.front()->info().label, kQuietLabel);
    }
    [[nodiscard]] bool isQuiet() const {
        return hasQuietLabel() && context_.configuration().record().getIntOpt(kOptLoginDuringAuthenticate) == 0;
    }

    [[nodiscard]] KeyManagerResult readObjects(TokenSession& token) {
        TokenObjects objects;
        mayLogIn_ = !isQuiet();
        const auto read = [&](PKCS11Device& device) {
            return tokenResult(context_, device, readTokenObjects(device, mayLogIn_, objects));
        };
        const KeyManagerResult result = mayLogIn_ ? token.run(read) : token.look(read);
        objects_.push_back(std::move(objects));
        return result;
    }

    void takeCertificates(KeyStoreContents& contents) {
        certificates_.clear();
        for (const TokenObjects& objects : objects_) {
            for (const CertPtr& one : objects.certificates) {
                if (contents.findKey(one->computeKeyIdentifierSha1Hash()) && !contains(certificates_, *one))
                    certificates_.push_back(one);
            }
        }
        contents.userCerts = certificates_;
    }

    [[nodiscard]] const TokenSession* tokenOf(PinSlot slot) const {
        if (slot == PinSlot::SigningKey) slot = PinSlot::SigningToken;
        const auto found = std::ranges::find(tokens_, slot, [](const auto& token) { return token->pinSlot(); });
        return found != tokens_.end() ? found->get() : tokens_.empty() ? nullptr : tokens_.front().get();
    }
    [[nodiscard]] const TokenSessionPtr& tokenFor(KeyType use) const {
        return use == KeyType::Encryption ? tokens_.back() : tokens_.front();
    }

    [[nodiscard]] std::string savesLock() const {
        const P11TokenInfo& info = tokens_.front()->info();
        return convertPathToSyncName(info.label + "\n" + info.serial);
    }

    template <class Work>
    [[nodiscard]] KeyManagerResult onToken(TokenSession& token, const Work& work) {
        return token.run([&](PKCS11Device& device) { return tokenResult(context_, device, work(device)); });
    }

    /// The token with the key of a certificate, and the key's CKA_ID.
    struct Home {
        TokenSession* token = nullptr;
        Bytes id;
    };
    [[nodiscard]] Home homeOf(const SignedCertificate& certificate) const {
        const KeyId wanted = certificate.computeKeyIdentifierSha1Hash();
        for (size_t token = 0; token < objects_.size(); ++token) {
            const std::vector<TokenKeyFacts>& keys = objects_[token].keys;
            const auto key =
                std::ranges::find(keys, wanted, [](const TokenKeyFacts& one) { return one.publicKey.keyId(); });
            if (key != keys.end()) return {tokens_[token].get(), key->id};
        }
        return {};
    }

    /// On a thread of its own, so that the screen lives.
    static P11Result generatePair(PKCS11Device& device, const KeyOrder& order, ByteView id) {
        auto generation = std::async(std::launch::async, [&] {
            KeyTemplates keys = templatesFor(order.use, id);
            CK_OBJECT_HANDLE publicKey = 0, privateKey = 0;
            return device.generateRSAKeyPair(order.bits, order.exponent, std::move(keys.publicKey),
                                             std::move(keys.privateKey), publicKey, privateKey);
        });
        while (generation.wait_for(kProgressPeriod) != std::future_status::ready)
            if (order.progress) static_cast<void>(order.progress());
        return generation.get();
    }

    /// Finds the new pair by its provisional identifier and gives it the lasting one, where the token lets it be set.
    KeyManagerResult takeGenerated(const TokenSessionPtr& token, PKCS11Device& device, const KeyOrder& order,
                                   const Bytes& id, SignerPtr& key) {
        CK_OBJECT_HANDLE publicKey = 0, privateKey = 0;
        P11Attributes attributes;
        P11Result found = device.getRSAPublicKeyHandle(id, publicKey);
        if (found == kP11Ok) found = device.getRSAPrivateKeyHandle(id, privateKey);
        if (found == kP11NotFound) return kKmGenerationFailed;
        if (found == kP11Ok) found = device.getObjectAttributeTab(publicKey, kPublicKeyAttributes, attributes);
        if (found != kP11Ok) return tokenResult(context_, device, found);
        const auto made = publicKeyOf(attributes);
        if (!made || made->bits() != order.bits) return kKmGenerationFailed;
        const KeyId lasting = made->keyId();
        const bool set = device.setObjectAttribute(privateKey, CKA_ID, lasting) == kP11Ok &&
                         device.setObjectAttribute(publicKey, CKA_ID, lasting) == kP11Ok;
        if (!set) static_cast<void>(device.setObjectAttribute(privateKey, CKA_ID, id));
        const KeyRole role = roleOf(order.use);
        const TokenKeyFacts facts{*made, set ? toBytes(lasting) : id, shares(role, KeyRole::Signing),
                                  shares(role, KeyRole::Encryption)};
        objects_[static_cast<size_t>(token == tokens_.front() ? 0 : 1)].keys.push_back(facts);
        key = std::make_shared<TokenKey>(token, facts);
        return kKmOk;
    }

    ContextServices& context_;
    TokenCriteria criteria_;
    std::vector<PKCS11Device> modules_;
    std::vector<TokenSessionPtr> tokens_;  // the one that signs, then another that decrypts
    std::vector<TokenObjects> objects_;    // of each
    CertList certificates_;                // the user's that the tokens hold
    KeyManagerResult matched_ = kKmCardNotFound;
    bool started_ = false;
    bool mayLogIn_ = false;
};

}  // namespace

std::unique_ptr<KeyStoreMedia> makeTokenMedia(ContextServices& context) {
    return std::make_unique<TokenMedia>(context);
}

}  // namespace crv
