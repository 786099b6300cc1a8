#include "crvconfd/screens/crt_text.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <span>

#include "corvane/crvapi.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/password_quality.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/ends_record.h"
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

/// "384 bity", "2048 bitów": the last digit decides, the teens apart.
std::string bitsText(unsigned bits) {
    const unsigned digit = bits % 10;
    const bool few = digit >= 2 && digit <= 4 && (bits / 10) % 10 != 1;
    return std::to_string(bits) + (bits == 1 ? " bit" : few ? " bity" : " bitów");
}

std::string keyText(const SubjectPublicKeyInfo& info) {
    try {
        const PublicKey key = info.publicKey();
        const bool pss = key.scheme() == KeyScheme::RsaPss;
        std::string text = pss ? info.algorithm.algorithm.name() : signAlgoName(key.scheme(), KcHashAlgo::None);
        text += ", " + bitsText(key.bits());
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
    const std::string text = displayText(name.text(), dnDisplay());
    return text.empty() ? "<brak>" : text;
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
    if (now > *last || now < *first) return validityDate(validity, now);
    const int days = static_cast<int>(std::min<int64_t>((*last - now) / kDay, 9'999'999));
    return "ważny jeszcze " + std::to_string(days) + " " + declension(days, "dzień", "dni", "dni");
}

std::string validityDate(const Validity& validity, int64_t now) {
    const auto first = validity.notBefore.seconds();
    const auto last = validity.notAfter.seconds();
    if (last && now > *last) return "PRZETERMINOWANY od " + dateLine(validity.notAfter);
    if (first && now < *first) return "ważny od " + dateLine(validity.notBefore);
    return "ważny do " + dateLine(validity.notAfter);
}

char endMark(const Validity& validity, int64_t now) {
    const auto end = validity.notAfter.seconds();
    if (!end) return '?';
    if (*end < now) return '!';
    return *end - now <= kSoonEnds ? '*' : ' ';
}

const char* standingWord(const CertificateState& state) {
    switch (state.standing) {
        case CertificateStanding::Revoked:
            return "unieważniony";
        case CertificateStanding::NoPath:
            return "brak ścieżki";
        case CertificateStanding::NotCovered:
            return "nieznany";
        case CertificateStanding::Trusted:
            break;
    }
    return "zaufany";
}

void addState(std::vector<std::string>& lines, const CertificateState& state) {
    const CrtStatus& status = state.status;
    std::string text = "nieunieważniony";
    if (status.state == CrtStatus::State::Revoked) {
        text = "UNIEWAŻNIONY " + timeLine(Time(status.revokedAt));
        if (status.reason != CrlReason::Unspecified)  // what an entry without a reason means (RFC 5280 5.3.1)
            text += std::string(", przyczyna: ") + crlReasonName(status.reason);
    } else if (state.isTrustPoint()) {
        text = "nie dotyczy";
    } else if (status.state != CrtStatus::State::Good) {
        text = std::string("nieznany: ") + crvErrorTextAPI(nullptr, status.code);
    }
    addField(lines, "Unieważnienie:", text);
    if (state.isTrustPoint()) return addField(lines, "Ścieżka:", "punkt zaufania");
    if (!state.path.good())
        return addField(lines, "Ścieżka:", std::string("brak: ") + crvErrorTextAPI(nullptr, state.path.code));
    bool first = true;
    for (const CertPtr& one : std::span(state.path.certs).subspan(1)) {
        addField(lines, first ? "Ścieżka:" : kFurtherNames, nameLine(one->subject()));
        first = false;
    }
}

CertificateState currentState(const CertPtr& certificate) {
    return certificateState(*revManager, *crtManager, certificate, std::time(nullptr));
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
    const CertPtr own = makeCert(certificate.encoded());
    const CertificateState state = own ? currentState(own) : CertificateState();
    const bool revoked = state.standing == CertificateStanding::Revoked;
    addField(lines, "Stan:", revoked ? "UNIEWAŻNIONY" : validityNote(validity, std::time(nullptr)));
    if (own) addState(lines, state);
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
