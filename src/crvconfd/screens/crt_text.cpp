#include "crvconfd/screens/crt_text.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/password_quality.h"
#include "crvconfd/session/settings.h"
#include "crypto/crypto_error.h"
#include "crypto/ec_curves.h"
#include "crypto/sign_algo_map.h"

namespace crv {

namespace {

constexpr int64_t kDay = 86400;
constexpr std::string_view kFurtherNames;

std::string localTime(const Time& time, const char* format) {
    const auto seconds = time.seconds();
    if (!seconds) return "?";
    const std::time_t moment = *seconds;
    std::tm parts{};
    std::array<char, 32> text{};
    if (!localtime_r(&moment, &parts) || std::strftime(text.data(), text.size(), format, &parts) == 0) return "?";
    return text.data();
}

void addName(std::vector<std::string>& lines, std::string_view label, const DistinguishedName& name) {
    bool first = true;
    for (const std::string& line : name.lines(dnDisplay())) {
        addField(lines, first ? label : kFurtherNames, line);
        first = false;
    }
    if (first) addField(lines, label, "<brak>");
}

std::string keyText(const SubjectPublicKeyInfo& info) {
    try {
        const PublicKey key = info.publicKey();
        const bool pss = key.scheme() == KeyScheme::RsaPss;
        std::string text = pss ? info.algorithm.algorithm.name() : signAlgoName(key.scheme(), KcHashAlgo::None);
        text += ", " + std::to_string(key.bits()) + " bitów";
        if (key.scheme() == KeyScheme::Ecdsa && key.curve() != StdECId::None)
            text += std::string(", ") + findCurve(key.curve())->name;
        return text;
    } catch (const CryptoError&) {
        return info.algorithm.algorithm.name();
    }
}

}  // namespace

DnDisplay dnDisplay() {
    return {displDnInUft8, displDnEscaped};
}

std::string nameLine(const DistinguishedName& name) {
    return displayText(name.text(), dnDisplay());
}

std::string shortName(const DistinguishedName& name) {
    const auto common = name.find(OID_AT_COMMON_NAME);
    return common && !common->empty() ? displayText(*common, dnDisplay()) : nameLine(name);
}

std::string hexText(ByteView octets) {
    std::string text;
    std::array<char, 4> pair{};
    for (const uint8_t octet : octets) {
        std::snprintf(pair.data(), pair.size(), "%.2X ", static_cast<unsigned>(octet));
        text += pair.data();
    }
    if (!text.empty()) text.pop_back();
    return text;
}

std::string timeLine(const Time& time) {
    return localTime(time, "%Y.%m.%d %H:%M:%S");
}

std::string dateLine(const Time& time) {
    return localTime(time, "%Y.%m.%d");
}

std::string validityNote(const Validity& validity, int64_t now) {
    const auto first = validity.notBefore.seconds();
    const auto last = validity.notAfter.seconds();
    if (!first || !last) return "nieczytelny okres ważności";
    if (now > *last) return "PRZETERMINOWANY";
    if (now < *first) return "jeszcze nieważny";
    const int days = static_cast<int>(std::min<int64_t>((*last - now) / kDay, 9'999'999));
    return "ważny jeszcze " + std::to_string(days) + " " + declension(days, "dzień", "dni", "dni");
}

std::vector<std::string> dataLines(const SignedCertificate& certificate) {
    std::vector<std::string> lines;
    addField(lines, "Numer seryjny:", hexText(certificate.serialNumber().contents()));
    addName(lines, "Wystawca:", certificate.issuer());
    addName(lines, "Właściciel:", certificate.subject());
    bool first = true;
    for (const std::string& email : certificate.emails()) {
        addField(lines, first ? "E-mail:" : kFurtherNames, displayText(email, dnDisplay()));
        first = false;
    }
    const Validity& validity = certificate.tbs.validity;
    addField(lines, "Ważny od:", timeLine(validity.notBefore));
    addField(lines, "Ważny do:", timeLine(validity.notAfter));
    addField(lines, "Stan:", validityNote(validity, std::time(nullptr)));
    addField(lines, "Skrót SHA-1:", hexText(certificate.fingerprint(KcHashAlgo::Sha1)));
    addField(lines, "Skrót SHA-256:", hexText(certificate.fingerprint(KcHashAlgo::Sha256)));
    return lines;
}

std::vector<std::string> parameterLines(const SignedCertificate& certificate) {
    std::vector<std::string> lines;
    addField(lines, "Wersja:", std::to_string(certificate.tbs.version.valueOr(0) + 1));
    addField(lines, "Algorytm podpisu:", signAlgorithmName(certificate.signatureAlgorithm));
    addField(lines, "Klucz publiczny:", keyText(certificate.keyInfo()));
    addField(lines, "Skrót z klucza:", hexText(certificate.computeKeyIdentifierSha1Hash()));
    addField(lines, "Certyfikat urzędu:", certificate.isCaCrt() ? "tak" : "nie");
    addExtensions(lines, certificate.extensions());
    return lines;
}

}  // namespace crv
