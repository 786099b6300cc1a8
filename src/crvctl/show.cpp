#include "crvctl/show.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>

#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "crvctl/secrets.h"
#include "crypto/crypto_error.h"
#include "crypto/sign_algo_map.h"
#include "keystore/file_history.h"
#include "misc/ascii.h"
#include "misc/base64_file.h"
#include "misc/hex.h"

namespace crv::ctl {
namespace {

constexpr const char* kMidnight = "T00:00:00Z";

/// RFC 8017 A.1.1.
class RsaNumbers : public ASNsequenceF {
  public:
    ASNinteger modulus, exponent;

  protected:
    [[nodiscard]] MemberTable members() const override {
        static constexpr Member kMembers[] = {member<&RsaNumbers::modulus>, member<&RsaNumbers::exponent>};
        return kMembers;
    }
};

/// The length of an RSA key alone; making the key takes as long as everything else in a list.
std::optional<size_t> rsaBits(const SubjectPublicKeyInfo& info) {
    RsaNumbers numbers;
    if (info.algorithm.algorithm != OID_RSA_ENC) return {};
    if (!numbers.readExactly(info.subjectPublicKey.octets(), ASN_FLAG_CONST)) return {};
    const ByteView octets = numbers.modulus.magnitude();
    if (octets.empty()) return {};
    return octets.size() * 8 - static_cast<size_t>(std::countl_zero(octets.front()));
}

std::string keyText(const SubjectPublicKeyInfo& info) {
    const auto named = [](KeyScheme scheme, size_t bits) {
        return std::string(signAlgoName(scheme, KcHashAlgo::None)) + " " + std::to_string(bits);
    };
    if (const auto bits = rsaBits(info)) return named(KeyScheme::Rsa, *bits);
    try {
        const PublicKey key = info.publicKey();
        return named(key.scheme(), key.bits());
    } catch (const CryptoError&) {
        return info.algorithm.algorithm.text();
    }
}

}  // namespace

std::string hexOf(ByteView octets) {
    std::string digits = toHex(octets);
    std::ranges::transform(digits, digits.begin(), asciiLower<char>);
    return digits;
}

Value timeOf(std::optional<int64_t> seconds) {
    if (!seconds) return {};
    std::string text = timeText(*seconds) + "Z";
    std::ranges::replace(text, ' ', 'T');
    return text;
}

Value timeOf(const Time& time) {
    return timeOf(time.seconds());
}

int64_t timeFrom(const std::string& text) {
    int64_t seconds = 0;
    if (text.starts_with('@')) {
        const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), seconds);
        if (error == std::errc() && end == text.data() + text.size()) return seconds;
    }
    const std::string whole = text.size() == 10 ? text + kMidnight : text;
    int year = 0;
    CivilTime time{};
    int used = 0;
    const int count = std::sscanf(whole.c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ%n", &year, &time.month, &time.day,
                                  &time.hour, &time.minute, &time.second, &used);
    time.year = year;
    const auto moment = fromCivil(time);
    if (count != 6 || static_cast<size_t>(used) != whole.size() || !moment)
        throw CallError("the value does not fit", text);
    return *moment;
}

Values namesOf(const DistinguishedName& name) {
    Values names;
    for (const RelativeDistinguishedName& set : name)
        for (const AttributeTypeAndValue& one : set) names.emplace_back(one.label() + "=" + one.valueUtf8());
    return names;
}

Fields certFields(const SignedCertificate& certificate, bool der) {
    Values emails;
    for (const std::string& email : certificate.emails()) emails.emplace_back(email);
    Fields fields{{"subject", certificate.subject().rfc4514()},
                  {"issuer", certificate.issuer().rfc4514()},
                  {"serial", hexOf(certificate.serialNumber().contents())},
                  {"notBefore", timeOf(certificate.tbs.validity.notBefore)},
                  {"notAfter", timeOf(certificate.tbs.validity.notAfter)},
                  {"ca", certificate.isCaCrt()},
                  {"key", keyText(certificate.keyInfo())},
                  {"keyId", hexOf(certificate.computeKeyIdentifierSha1Hash())},
                  {"sha256", hexOf(certificate.fingerprint(KcHashAlgo::Sha256))},
                  {"emails", std::move(emails)},
                  {"subjectNames", namesOf(certificate.subject())},
                  {"issuerNames", namesOf(certificate.issuer())}};
    if (der) fields.emplace_back("der", toBase64(encodingOf(certificate)));
    return fields;
}

Session::Secrets storeSecrets(const Run& run, const CrvProfile& profile) {
    Session::Secrets secrets;
    if (profile.kind() != ProfileKind::Pkcs11)
        secrets.password = readSecret(run.call, profile.kind() == ProfileKind::Tarvo23 ? "pin" : "password");
    std::string roots;
    profile.getAttr(CRVPROFILE_ATTR_ROOTS_FILE, roots);
    long empty = 0;
    profile.getAttr(CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, empty);
    SecretText password;
    if (!roots.empty() && (empty != 0 || readGivenSecret(run.call, "roots-password", password)))
        secrets.roots = password;
    return secrets;
}

namespace {

/// Tokens say themselves which PIN they want, and may have it entered on the reader.
void letTokensAsk(const Run& run, Session& session) {
    session.context().state.prompt = [&run](PinSlot slot, SecretText& pin) {
        const bool decrypts = slot == PinSlot::DecryptionToken;
        pin = readSecret(run.call, decrypts ? "decryption-pin" : slot == PinSlot::SigningKey ? "key-pin" : "pin");
        return kPinOk;
    };
    session.context().state.tokenNotices = [&run](TokenNotice notice, const std::string& label) {
        if (notice == TokenNotice::FinalTry) run.confirm("A wrong PIN locks the card now. Go on?", label);
        if (notice == TokenNotice::FewTries) run.out.warn("a wrong PIN was given to the card before", label);
        if (notice == TokenNotice::PinOnReader) run.out.warn("the PIN is entered on the reader", label);
        return true;
    };
}

Session openStore(const Run& run, void (Session::*open)(const Session::Secrets& secrets)) {
    FoundProfile found = run.profile();
    const Session::Secrets secrets = storeSecrets(run, *found.profile);
    Session session(std::move(found), run.mode);
    letTokensAsk(run, session);
    try {
        (session.*open)(secrets);
    } catch (const OpError& failure) {
        const bool damaged = failure.fault() == OpFault::KeyStoreFailed && failure.code() == libraryCode(kKmBadFormat);
        if (damaged || failure.fault() == OpFault::StoreMissing)
            hintAtHistory(run, session.configuration().securityFileName());
        throw;
    }
    if (session.keys().wasCutOff()) {
        run.out.warn("a write was cut off; what stood there before was opened",
                     session.configuration().securityFileName());
    }
    return session;
}

}  // namespace

Session openReading(const Run& run) {
    return openStore(run, &Session::openForReading);
}

Session openChanging(const Run& run) {
    return openStore(run, &Session::openForChange);
}

void warnOfHistory(const Run& run, Session& session) {
    if (session.keys().wasHistoryKept()) return;
    run.out.warn("the security file of before could not be kept", session.keys().historyFailure().text());
}

void hintAtHistory(const Run& run, const std::string& file) {
    if (!file.empty() && !historyOf(file).empty())
        run.out.warn("former security files are there; \"crvctl store restore\" puts one back", historyFolder(file));
}

void warnOfCopies(const Run& run, Session& session, const char* text) {
    const std::string file = session.configuration().securityFileName();
    if (run.mode.dryRun || file.empty() || historyOf(file).empty()) return;
    run.out.warn(text, historyFolder(file) + ": crvctl store history --clear");
}

void save(const Run& run, Session& session) {
    session.save();
    if (!run.mode.dryRun) warnOfHistory(run, session);
}

Session openDatabase(const Run& run) {
    Session session(run.profile(), run.mode);
    session.demandDatabase();
    return session;
}

CertSelector selectorOf(const Call& call) {
    const auto text = [&](const char* name) { return call.value(name).value_or(""); };
    CertSelector selector{text("sha256"), text("serial"), text("issuer"), text("subject"), text("email")};
    if (!selector.serial.empty() && selector.issuer.empty()) throw CallError("missing", "--issuer");
    return selector;
}

std::vector<ASNobjectId> identifiersOf(const Call& call, const char* name) {
    std::vector<ASNobjectId> list;
    if (!call.has(name)) return list;
    for (const std::string& text : call.options.find(name)->second) list.push_back(*ASNobjectId::fromText(text));
    return list;
}

RevocationCheck revocationOf(const Call& call) {
    const std::string word = call.value("revocation").value_or("known");
    if (word == "none") return RevocationCheck::None;
    return word == "known" ? RevocationCheck::IfKnown : RevocationCheck::Required;
}

ExportTarget targetOf(const Run& run, const std::string& path) {
    // Octets and an answer in JSON would stand on one stream.
    if (path == "-" && run.out.form() != OutputForm::Text) throw CallError("the value does not fit", "- --json");
    return {path, run.place.file, run.call.has("force"), !run.mode.dryRun};
}

}  // namespace crv::ctl
