#include "crvconfd/screens/key_view.h"

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/cert_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/key_gen.h"
#include "crvconfd/screens/key_store_view.h"
#include "crvconfd/session/context.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"
#include "misc/hex.h"
#include "ops/key_plan.h"

namespace crv {
namespace {

void addKey(std::vector<std::string>& lines, const StoredKey& key) {
    const PublicKey publicKey = key.key->publicKey();
    addField(lines, "Zastosowanie:", roleText(key.role));
    addField(lines, "Algorytm:",
             std::string(signAlgoName(keyManager->schemeOf(key), KcHashAlgo::None)) + " " +
                 std::to_string(publicKey.bits()));
    addField(lines, "Identyfikator klucza:", toHex(publicKey.keyId(), " "));
    if (const auto inUse = successorTo(key)) addField(lines, "Zastąpi klucz:", toHex(*inUse, " "));
    const CertPtr certificate = keyManager->certificateOf(key);
    addField(lines, "Certyfikat:", certificate ? shortName(certificate->subject()) : "brak certyfikatu");
}

/// The key in use, the one that waits for its place, and all further ones.
std::vector<std::string> keyLines(KeyRole role) {
    std::vector<std::string> lines;
    for (const StoredKey& key : keyManager->keys()) {
        if (!shares(key.role, role) && key.role != KeyRole::Further) continue;
        if (!lines.empty()) lines.emplace_back();
        addKey(lines, key);
    }
    return lines;
}

class KeyView {
  public:
    explicit KeyView(KeyType use) : use_(use), signing_(use == KeyType::Signing) { refresh(); }

    [[nodiscard]] bool isEmpty() const { return view_.lines.empty(); }

    void run() {
        const auto withCertificate = [this] { return certificate_ != nullptr; };
        const auto withKey = [this] { return wholeUse(*keyManager, use_).has_value(); };
        const auto isFile = [] { return cfgManager->keyMedium() == KeyMedium::File; };
        view_.gap = "  ";
        view_.actions = {
            {'d', "~Dane", false, [this](size_t) { turnTo(dataLines(*certificate_)); }, withCertificate},
            {'r', "Pa~rametry", false, [this](size_t) { turnTo(parametersAndVerdict(*certificate_)); },
             withCertificate},
            {'k', "~Klucze", false, [this](size_t) { turnTo(keyLines(roleOf(use_))); }, withKey},
            {'g', "Z~głoszenie", false, [this](size_t) { saveRequestAgain(use_); }, withKey},
            {'m', "Wy~mień klucz", false, [this](size_t) { replace(); }, withKey},
            {'o', "~Obsługa", false, [this](size_t) { handleKeys(); }, isFile},
            {'s', "Zapi~sz", false, [this](size_t) { saveCertificateToFile(*certificate_); }, withCertificate}};
        runTextView(view_);
    }

  private:
    void refresh() {
        certificate_ = signing_ ? keyManager->signingCertificate() : keyManager->encryptionCertificate();
        view_.header = certificate_ ? (signing_ ? "Certyfikat klucza podpisującego" : "Certyfikat klucza szyfrującego")
                                    : (signing_ ? "Klucz podpisujący" : "Klucz szyfrujący");
        if (certificate_) return turnTo(dataLines(*certificate_));
        turnTo(wholeUse(*keyManager, use_) ? keyLines(roleOf(use_)) : std::vector<std::string>());
    }

    void turnTo(std::vector<std::string> page) {
        if (page != view_.lines) view_.top = 0;
        view_.lines = std::move(page);
    }

    /// What is left of the keys is shown, a key without a use as none.
    void handleKeys() {
        OnKeyStore();
        refresh();
    }

    void replace() {
        if (const auto whole = wholeUse(*keyManager, use_)) OnKeyReplace(*whole);
        refresh();
        turnTo(keyLines(roleOf(use_)));
    }

    KeyType use_;
    bool signing_;
    CertPtr certificate_;
    TextView view_;
};

}  // namespace

void showCert(KeyType key) {
    KeyView view(key);
    if (!view.isEmpty()) return view.run();
    errInfo(kMessageRow, "%s",
            key == KeyType::Signing ? "Brak certyfikatu klucza podpisującego" : "Brak certyfikatu klucza szyfrującego");
}

}  // namespace crv
