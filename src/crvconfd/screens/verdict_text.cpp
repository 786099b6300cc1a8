#include "crvconfd/screens/verdict_text.h"

#include <algorithm>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "context/error_table.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/password_quality.h"
#include "crvconfd/session/context.h"
#include "pki/certificate_manager.h"

namespace crv {

namespace {

constexpr int64_t kHour = 3600, kDayOfSeconds = 24 * kHour;

std::string ageText(int64_t age) {
    const bool days = age >= 2 * kDayOfSeconds;
    const int count = static_cast<int>(std::min<int64_t>(age / (days ? kDayOfSeconds : kHour), 9'999'999));
    const char* unit =
        days ? declension(count, "dzień", "dni", "dni") : declension(count, "godzina", "godziny", "godzin");
    return std::to_string(count) + " " + unit;
}

std::string sourceText(const StatusSourceNote& source) {
    if (source.issuer.empty()) return {};
    if (source.ocsp) {
        return ", OCSP " + source.issuer + " z " + timeLine(Time(source.thisUpdate)) +
               " (wiek: " + ageText(source.age) + ")";
    }
    std::string text = ", CRL";
    if (!source.number.empty()) text += " nr " + source.number;
    if (!source.delta.empty()) text += " z przyrostową nr " + source.delta;
    return text + " z " + timeLine(Time(source.thisUpdate)) + " (wiek: " + ageText(source.age) + ")";
}

std::string codeText(int code) {
    const ErrorRow* row = findErrorRow(code);
    return row ? row->text : std::to_string(code);
}

struct StateText {
    CrtStatus::State state;
    const char* text;
};
constexpr StateText kStates[] = {
    {CrtStatus::State::Good, "nieunieważniony"},
    {CrtStatus::State::Revoked, "UNIEWAŻNIONY"},
    {CrtStatus::State::Unknown, "stan nieznany"},
    {CrtStatus::State::Unusable, "LISTA CRL NIE DO UŻYCIA"},
};

std::string statusText(const PathStep& step) {
    if (!step.asked) return "stan nie sprawdzony";
    std::string text;
    for (const StateText& row : kStates)
        if (row.state == step.status.state) text = row.text;
    if (step.status.state == CrtStatus::State::Revoked && step.status.reason != CrlReason::Unspecified)
        text += std::string(" (") + crlReasonName(step.status.reason) + ")";
    if (*step.status.clause) text += std::string(", RFC 5280 ") + step.status.clause;
    if (!step.status.text.empty()) text += ": " + step.status.text;
    return text + sourceText(step.status.source);
}

void addStep(std::vector<std::string>& lines, const PathStep& step, bool trusted) {
    addField(lines, trusted ? "Punkt zaufania:" : "Certyfikat ścieżki:", shortName(step.certificate->subject()));
    if (trusted) return;
    addField(lines, "", statusText(step));
    if (!step.weakness.empty()) addField(lines, "", step.algorithm + ": słaby algorytm (" + step.weakness + ")");
}

}  // namespace

std::vector<std::string> verdictLines(const SignedCertificate& certificate) {
    std::vector<std::string> lines;
    const PathVerdict verdict = crtManager->buildPath(makeCert(certificate.encoded()), {std::time(nullptr)});
    addField(lines, "Ścieżka:", verdict.good() ? "poprawna" : codeText(verdict.code));
    if (!verdict.good()) {
        addField(lines, "Niespełniona reguła:", verdict.clause.empty() ? "-" : "RFC 5280 " + verdict.clause);
        addField(lines, "Powód:", verdict.reason);
        addField(lines, "Zawiódł certyfikat:", shortName(verdict.certs[verdict.failedAt]->subject()));
    }
    if (verdict.exhausted) addField(lines, "Szukanie:", "przerwane na granicy pracy");
    if (!verdict.policies.empty()) addField(lines, "Ważne polityki:", verdict.policyText());
    const bool rooted = contains(crtManager->trustPoints(), *verdict.certs.back());
    for (size_t i = 0; i < verdict.steps.size(); ++i)
        addStep(lines, verdict.steps[i], rooted && i + 1 == verdict.steps.size());
    return lines;
}

}  // namespace crv
