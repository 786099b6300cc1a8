#include "crvconfd/screens/cert_view.h"

#include <algorithm>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/crt_text.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/screens/net_screens.h"
#include "crvconfd/screens/save_to_file.h"
#include "crvconfd/screens/verdict_text.h"
#include "crvconfd/session/context.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"
#include "misc/hex.h"

namespace crv {

namespace {

constexpr int kTableRow = 2;
/// Where the main menu is still to fit below the table.
constexpr BottomRow kTableEnd{18};

struct RoleText {
    KeyRole role;
    const char* text;
};

constexpr RoleText kRoles[] = {
    {KeyRole::Signing, "podpis"},
    {KeyRole::Encryption, "szyfrowanie"},
    {KeyRole::Both, "podpis i szyfr."},
    {KeyRole::Further, "dodatkowy"},
};

constexpr const char* kEndMarks = "! przeterminowany   * wygasa w ciągu 30 dni";

/// Draws a key and tells whether it got a mark: its certificate ends soon, or has ended.
bool drawKey(int row, const StoredKey& key) {
    const CertPtr certificate = keyManager->certificateOf(key);
    const bool inUse = key.role != KeyRole::Further;
    const char mark = certificate && inUse ? endMark(certificate->tbs.validity, std::time(nullptr)) : ' ';
    displText(row, 0, "%c", mark);
    const PublicKey publicKey = key.key->publicKey();
    displText(row, 1, "%s", roleText(key.role));
    std::string text = signAlgoName(keyManager->schemeOf(key), KcHashAlgo::None);
    text = fitText(text + " " + std::to_string(publicKey.bits()), 19) + " ";
    if (certificate) {
        const CertificateState state = currentState(certificate);
        text += validityDate(certificate->tbs.validity, std::time(nullptr));
        if (state.standing != CertificateStanding::Trusted) text += std::string(" (") + standingWord(state) + ")";
        text += " " + shortName(certificate->subject());
    } else {
        text += "brak certyfikatu";
    }
    displText(row, 17, "%s", text.c_str());
    return mark != ' ';
}

}  // namespace

const char* roleText(KeyRole role) {
    return std::find_if(std::begin(kRoles), std::end(kRoles), [&](const auto& row) { return row.role == role; })->text;
}

std::string shortKeyId(const StoredKey& key) {
    constexpr size_t kShown = 4;
    return toHex(ByteView(key.key->keyId()).first(kShown));
}

std::vector<std::string> parametersAndVerdict(const SignedCertificate& certificate) {
    std::vector<std::string> lines = parameterLines(certificate);
    const std::vector<std::string> verdict = verdictLines(certificate);
    lines.insert(lines.end(), verdict.begin(), verdict.end());
    return lines;
}

int displayDN(int row, const DistinguishedName& name) {
    const AttrGuard emphasis(kAttrEmphasis);
    for (const std::string& line : name.lines(dnDisplay())) {
        if (row >= kMessageRow - 1) break;
        displText(row++, 1, "%s", line.c_str());
    }
    return row;
}

void saveCertificateToFile(const SignedCertificate& certificate) {
    if (const auto file = askForFile("Podaj nazwę pliku certyfikatu:"); file && !file->typed.empty())
        saveToFile(file->typed, certificate);
}

void showCertificate(const SignedCertificate& certificate, const std::string& title) {
    TextView view{.header = title, .lines = dataLines(certificate), .gap = "  "};
    const auto turnTo = [&view](std::vector<std::string> page) {
        if (page != view.lines) view.top = 0;
        view.lines = std::move(page);
    };
    view.actions = {{'d', "~Dane", false, [&](size_t) { turnTo(dataLines(certificate)); }},
                    {'r', "Pa~rametry", false, [&](size_t) { turnTo(parametersAndVerdict(certificate)); }},
                    {'t', "Stan ~teraz", false, [&](size_t) { turnTo(statusNow(certificate)); }},
                    {'s', "Zapi~sz", false, [&](size_t) { saveCertificateToFile(certificate); }}};
    runTextView(view);
}

int showKeyInfo() {
    int row = kTableRow;
    displText(row++, 1, "Klucze użytkownika:");
    const auto keys = keyManager->keys();
    if (keys.empty()) displText(row, 1, "Brak kluczy");
    const auto room = static_cast<size_t>(kTableEnd - kTableRow);
    const size_t shown = keys.size() <= room ? keys.size() : room - 1;
    bool marked = false;
    for (size_t i = 0; i < shown; ++i) marked = drawKey(row++, keys[i]) || marked;
    if (marked) displText(kTableRow, 30, "%s", kEndMarks);
    if (shown < keys.size()) displText(row++, 1, "i jeszcze %zu", keys.size() - shown);
    return keys.empty() ? row : row - 1;
}

}  // namespace crv
