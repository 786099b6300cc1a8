// Chains with CRLs made from what the fuzzer says, judged by us, by libcrypto and by GnuTLS. Each disagreement is one
// that a row of kExplained accounts for.
#include <fuzzer/FuzzedDataProvider.h>
#include <gnutls/x509.h>
#include <openssl/evp.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <stdexcept>

#include "asn/tlv_view.h"
#include "misc/hex.h"
#include "pki/certificate_manager.h"
#include "pki/crl_facts.h"
#include "pki/revocation_manager.h"
#include "support/cert_maker.h"

namespace {

using namespace crv;
using test::CertPlan;
using test::MadeCert;
using test::TestKey;

/// Who refuses what another one takes, what he says, and why that is right or does no harm.
struct Explained {
    enum Who { kOurs, kLibcrypto, kGnuTls } who;
    const char* says;  // our clause, libcrypto's error number, GnuTLS's status in hexadecimal
    const char* why;
};

constexpr Explained kExplained[] = {
    {Explained::kOurs, "4.1", "TRUE must be FF in DER; the others read BER"},
    {Explained::kOurs, "4.1.2.4", "an issuer must have a name; libcrypto compares empty ones as equal"},
    {Explained::kOurs, "4.1.2.5", "a validity that cannot be read; GnuTLS takes it for an open one"},
    {Explained::kOurs, "4.1.2.9", "extensions stand in version 3 only; the others do not look at the version"},
    {Explained::kOurs, "4.2", "an extension must stand once; the others take the first, or the last"},
    {Explained::kOurs, "4.2.1.3", "a malformed key usage is one; GnuTLS takes it for none"},
    {Explained::kOurs, "4.2.1.4", "a malformed policy extension; the others look at policies only when asked"},
    {Explained::kOurs, "4.2.1.5", "as 4.2.1.4"},
    {Explained::kOurs, "4.2.1.6", "malformed names; the others look at them only when names are constrained"},
    {Explained::kOurs, "4.2.1.9", "malformed basic constraints, or a TRUE that is no DER"},
    {Explained::kOurs, "4.2.1.10", "malformed constraints; the others look at them only when a name meets them"},
    {Explained::kOurs, "4.2.1.11", "as 4.2.1.4"},
    {Explained::kOurs, "4.2.1.12", "malformed purposes; the others look at them only for a purpose"},
    {Explained::kOurs, "4.2.1.13", "malformed distribution points; the others look at them only for CRLs"},
    {Explained::kOurs, "4.2.1.14", "as 4.2.1.4"},
    {Explained::kOurs, "5.1.2.1", "a version without extensions, or none at all; the others do not look at it"},
    {Explained::kOurs, "5.1.2.6", "an entry that is no DER; the others read BER"},
    {Explained::kOurs, "5.2.3", "a CRL number that is none; the others pass over it"},
    {Explained::kOurs, "5.2.4", "likewise the number of a base"},
    {Explained::kOurs, "5.2.5", "a scope that is malformed, no DER or for nobody; the others pass over it"},
    {Explained::kOurs, "5.3.1", "removeFromCRL in a complete CRL; libcrypto takes it for no entry, GnuTLS for one"},
    {Explained::kOurs, "6.3.3 (g)", "identifiers of the signature algorithm that differ (5.1.1.2), as in certificates"},
    {Explained::kOurs, "several CRLs",
     "what speaks against a certificate counts; libcrypto asks the CRL that suits best"},
    {Explained::kOurs, "6.1.1", "names that differ beyond ASCII case, or octets that are no certificate here"},
    {Explained::kOurs, "6.1.3 (b)", "names of forms that GnuTLS does not constrain, mailboxes in other case"},
    {Explained::kOurs, "6.1.3 (c)", "as 6.1.3 (b)"},
    {Explained::kOurs, "6.1.3 (f)", "explicit policies; the others look at policies only when asked"},
    {Explained::kOurs, "unused bits", "a key of no whole octets; libcrypto clears the bits, GnuTLS takes them"},
    {Explained::kOurs, "6.1.4 (a)", "mappings of any policy, likewise"},
    {Explained::kOurs, "6.1.4 (k)", "an authority without basic constraints; libcrypto takes key usage for them"},
    {Explained::kOurs, "6.1.4 (l)", "GnuTLS counts self-issued certificates otherwise"},
    {Explained::kOurs, "6.1.4 (n)", "GnuTLS lets a key usage without keyCertSign pass when it is not critical"},
    {Explained::kOurs, "6.1.4 (o)", "unknown critical extensions; the others know further ones"},
    {Explained::kOurs, "6.1.5 (f)", "as 6.1.4 (o)"},
    {Explained::kOurs, "6.1.5 (g)", "as 6.1.3 (f)"},
    {Explained::kGnuTls, "10002",
     "it takes a common name for a host name where DNS names are constrained; 4.2.1.10 does not"},
    {Explained::kLibcrypto, "decode", "names that are no text, which certificate_peers explains"},
    {Explained::kGnuTls, "22", "it looks neither at the dates of a CRL nor at its scope and critical extensions"},
    {Explained::kLibcrypto, "several CRLs", "the one that it asks may be signed by nobody, where another one is good"},
    {Explained::kLibcrypto, "trust point", "with CRLs it asks for the status of the trust point, too"},
    {Explained::kLibcrypto, "10", "the validity ends in this second, which 4.1.2.5 counts in"},
    {Explained::kLibcrypto, "12", "as 10, of a CRL"},
    {Explained::kLibcrypto, "invalid extension", "identifiers of keys that are none, which no check of 6.1 asks for"},
    {Explained::kLibcrypto, "malformed CRL", "it counts for nothing here; libcrypto takes what it can read of it"},
    {Explained::kLibcrypto, "53", "a NUL in a common name, which it takes for a host name where names are constrained"},
    {Explained::kLibcrypto, "1", "the last certificate's key cannot be read; nothing on a path is checked with it"},
};

std::string explain(Explained::Who who, const std::string& says) {
    const auto* row =
        std::ranges::find_if(kExplained, [&](const Explained& one) { return one.who == who && says == one.says; });
    return row == std::end(kExplained) ? "" : row->why;
}

/// Ways in which a certificate can be made; the fuzzer picks one of each.
constexpr const char* kBasic[] = {"critical,CA:TRUE",          "CA:TRUE", "", "CA:FALSE", "critical,CA:TRUE,pathlen:0",
                                  "critical,CA:TRUE,pathlen:1"};
constexpr const char* kUsage[] = {"critical,keyCertSign,cRLSign", "", "keyCertSign", "digitalSignature",
                                  "critical,cRLSign"};
constexpr const char* kNames[] = {"",
                                  "DNS:a.firma.pl",
                                  "DNS:firma.pl",
                                  "email:Jan@firma.pl",
                                  "email:a@x.firma.pl",
                                  "IP:10.0.0.1",
                                  "URI:http://a.firma.pl/x",
                                  "DNS:zla.pl",
                                  "email:a@zla.pl,DNS:firma.pl",
                                  "RID:1.2.3"};
constexpr const char* kConstraints[] = {"",
                                        "permitted;DNS:firma.pl",
                                        "critical,excluded;DNS:zla.pl",
                                        "permitted;email:firma.pl",
                                        "excluded;IP:10.0.0.0/255.0.0.0",
                                        "critical,permitted;URI:.firma.pl",
                                        "permitted;IP:10.0.0.0/255.255.0.0",
                                        "permitted;email:.firma.pl,excluded;DNS:a.firma.pl"};
constexpr const char* kPolicies[] = {"", "DER:3006300406022A03", "DER:300C300406022A03300406022A04",
                                     "critical,DER:300830060604551D2000"};
constexpr const char* kOther[] = {"", "critical,DER:0500", "DER:0500"};

template <size_t N>
const char* pick(FuzzedDataProvider& input, const char* const (&rows)[N]) {
    return rows[input.ConsumeIntegralInRange<size_t>(0, N - 1)];
}

const TestKey& key(size_t index) {
    static const TestKey keys[] = {test::makeKey(), test::makeKey(), test::makeKey(), test::makeKey(), test::makeKey()};
    return keys[index % std::size(keys)];
}

CertPlan planOf(FuzzedDataProvider& input, size_t depth) {
    CertPlan plan{.subject = {{"CN", "Ogniwo " + std::to_string(depth)}}, .serial = "0" + std::to_string(depth + 1)};
    const auto add = [&](const char* name, const char* value) {
        if (*value) plan.extensions.emplace_back(name, value);
    };
    add("basicConstraints", pick(input, kBasic));
    add("keyUsage", pick(input, kUsage));
    add("subjectAltName", pick(input, kNames));
    add("nameConstraints", pick(input, kConstraints));
    add("2.5.29.32", pick(input, kPolicies));
    add("1.2.3.4", pick(input, kOther));
    constexpr int64_t kEnds[] = {test::kDay, test::kDay, test::kDay, -60};
    plan.notAfter = kEnds[input.ConsumeIntegralInRange<size_t>(0, 3)];
    return plan;
}

Bytes element(uint8_t tag, const Bytes& body) {
    Bytes out{tag};
    if (body.size() >= 0x80) {
        out.push_back(0x82);
        out.push_back(static_cast<uint8_t>(body.size() >> 8));
    }
    out.push_back(static_cast<uint8_t>(body.size()));
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

/// Changes octets of what is signed, and signs it again.
void mutate(FuzzedDataProvider& input, Bytes& der, const TestKey& signer) {
    ByteView rest = der;
    ByteView body = takeTlv(rest)->body;
    Bytes tbs = toBytes(takeTlv(body)->whole);
    const Bytes algorithm = toBytes(takeTlv(body)->whole);
    for (size_t count = input.ConsumeIntegralInRange<size_t>(1, 3); count > 0; --count)
        tbs[input.ConsumeIntegralInRange<size_t>(0, tbs.size() - 1)] = input.ConsumeIntegral<uint8_t>();
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    size_t length = 128;
    Bytes signature(1 + length);
    if (EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, signer.get()) != 1 ||
        EVP_DigestSign(ctx, signature.data() + 1, &length, tbs.data(), tbs.size()) != 1) {
        std::abort();
    }
    EVP_MD_CTX_free(ctx);
    signature.resize(1 + length);
    Bytes whole = tbs;
    whole.insert(whole.end(), algorithm.begin(), algorithm.end());
    const Bytes bits = element(0x03, signature);
    whole.insert(whole.end(), bits.begin(), bits.end());
    der = element(0x30, whole);
}

/// From the certificate to the trust point, and the CRLs of those above it; without any nobody asks for a status.
struct Chain {
    std::vector<Bytes> certificates, crls;
};

constexpr const char* kScopes[] = {"",
                                   "",
                                   "critical,onlyuser:TRUE",
                                   "critical,onlyCA:TRUE",
                                   "critical,onlyAA:TRUE",
                                   "critical,indirectCRL:TRUE",
                                   "critical,onlysomereasons:keyCompromise",
                                   "critical,fullname:URI:http://a.firma.pl/x"};

/// A CRL of an authority about the certificate below it, or one that should not count.
Bytes crlOf(FuzzedDataProvider& input, const MadeCert& authority, size_t below) {
    test::CrlPlan plan{.extensions = {}};
    const auto number = [&](int64_t most) { return input.ConsumeIntegralInRange<int64_t>(0, most); };
    constexpr int64_t kUntil[] = {test::kDay, test::kDay, -60};
    constexpr int kReasons[] = {-1, 1, 6, 8};
    if (number(2) == 0) plan.entries.push_back({"0" + std::to_string(below + 1), kReasons[number(3)]});
    plan.nextUpdate = kUntil[number(2)];
    plan.thisUpdate = number(5) == 0 ? 3600 : -3600;
    if (const char* scope = pick(input, kScopes); *scope)
        plan.extensions.emplace_back("issuingDistributionPoint", scope);
    if (const char* other = pick(input, kOther); *other) plan.extensions.emplace_back("1.2.3.4", other);
    MadeCert signer = authority;
    if (number(5) == 0) signer.key = key(below + 2);
    Bytes der = makeCrl(plan, signer);
    if (number(3) == 0) mutate(input, der, signer.key);
    return der;
}

Chain chainOf(FuzzedDataProvider& input) {
    MadeCert above =
        test::makeCert({.subject = {{"CN", "Korzeń"}}, .extensions = test::caExtensions()}, nullptr, key(0));
    Chain chain{{above.der}, {}};
    const size_t count = input.ConsumeIntegralInRange<size_t>(1, 4);
    const bool withCrls = input.ConsumeBool();
    for (size_t i = 0; i < count; ++i) {
        const CertPlan plan = planOf(input, i);
        const MadeCert next = test::makeCert(plan, &above, key(i + 1));
        Bytes der = next.der;
        if (input.ConsumeIntegralInRange(0, 3) == 0) mutate(input, der, above.key);
        chain.certificates.insert(chain.certificates.begin(), der);
        for (size_t left = withCrls ? input.ConsumeIntegralInRange<size_t>(1, 2) : 0; left > 0; --left)
            chain.crls.push_back(crlOf(input, above, i));
        above = next;
    }
    return chain;
}

/// The time at which all three check.
std::time_t now = 0;

struct Answer {
    bool good = false;
    std::string says{};
    bool malformedCrl = false;
};

/// Whether a certificate's key, a BIT STRING (RFC 5280 4.1), says of its last octet that not all bits count.
bool hasKeyWithUnusedBits(const Chain& chain) {
    constexpr long kUnusedBits = 7;  // of the flags that libcrypto keeps
    return std::ranges::any_of(chain.certificates, [](const Bytes& der) {
        const uint8_t* at = der.data();
        X509* const one = d2i_X509(nullptr, &at, static_cast<long>(der.size()));
        const bool unused = one && (X509_get0_pubkey_bitstr(one)->flags & kUnusedBits) != 0;
        X509_free(one);
        return unused;
    });
}

Answer ours(const Chain& chain) {
    static int databases = 0;
    DbManager database;
    DbConfig config;
    config.setType("w pamieci");
    config.dbName = std::to_string(++databases);
    database.init(config);
    CertificateCache cache;
    CertificateManager manager;
    RevocationManager revocation;
    CertList all;
    for (const Bytes& der : chain.certificates) {
        all.push_back(makeCert(ByteView(der)));
        if (!all.back()) return {false, "6.1.1"};
    }
    manager.init(database, cache, [&] { return CertList{all.back()}; });
    revocation.init(manager);
    bool malformedCrl = false;
    for (const Bytes& der : chain.crls) {
        const CrlFactsPtr crl = CrlFacts::make(der);
        malformedCrl = malformedCrl || !crl || crl->fault;
        static_cast<void>(revocation.insert(der));
    }
    const RevocationCheck check = chain.crls.empty() ? RevocationCheck::None : RevocationCheck::Required;
    const PathVerdict found = manager.buildPath(all.front(), {now, 0, check}, all);
    const PathVerdict given = manager.checkPath(all, {now, 0, check});
    if (given.good() && !found.good()) std::abort();
    const bool signatureRefused = found.clause == "6.1.3 (a)(1)";
    return {found.good(), signatureRefused && hasKeyWithUnusedBits(chain) ? "unused bits" : found.clause, malformedCrl};
}

Answer libcrypto(const Chain& chain) {
    constexpr const char* kNoIssuer = "20";
    std::vector<X509*> all;
    STACK_OF(X509)* untrusted = sk_X509_new_null();
    for (const Bytes& der : chain.certificates) {
        const uint8_t* at = der.data();
        if (X509* one = d2i_X509(nullptr, &at, static_cast<long>(der.size()))) sk_X509_push(untrusted, one);
    }
    Answer answer{false, "decode"};
    X509_STORE* store = X509_STORE_new();
    if (static_cast<size_t>(sk_X509_num(untrusted)) == chain.certificates.size()) {
        X509_STORE_add_cert(store, sk_X509_value(untrusted, sk_X509_num(untrusted) - 1));
        for (const Bytes& der : chain.crls) {
            const uint8_t* at = der.data();
            if (X509_CRL* crl = d2i_X509_CRL(nullptr, &at, static_cast<long>(der.size()))) {
                X509_STORE_add_crl(store, crl);
                X509_CRL_free(crl);
            }
        }
        constexpr unsigned long kWithCrls =
            X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL | X509_V_FLAG_EXTENDED_CRL_SUPPORT;
        if (!chain.crls.empty()) X509_STORE_set_flags(store, kWithCrls);
        X509_VERIFY_PARAM_set_time(X509_STORE_get0_param(store), now);
        X509_STORE_CTX* ctx = X509_STORE_CTX_new();
        X509_STORE_CTX_init(ctx, store, sk_X509_value(untrusted, 0), untrusted);
        answer.good = X509_verify_cert(ctx) == 1;
        const bool ofTrustPoint =
            X509_STORE_CTX_get_error_depth(ctx) + 1 == static_cast<int>(chain.certificates.size());
        answer.says =
            !chain.crls.empty() && ofTrustPoint ? "trust point" : std::to_string(X509_STORE_CTX_get_error(ctx));
        for (int i = 0; i < sk_X509_num(untrusted) && answer.says == kNoIssuer; ++i) {
            if (X509_get_extension_flags(sk_X509_value(untrusted, i)) & EXFLAG_INVALID)
                answer.says = "invalid extension";
        }
        X509_STORE_CTX_free(ctx);
    }
    X509_STORE_free(store);
    sk_X509_pop_free(untrusted, X509_free);
    return answer;
}

Answer gnutls(const Chain& chain) {
    std::vector<gnutls_x509_crt_t> all;
    std::vector<gnutls_x509_crl_t> crls;
    bool read = true;
    for (const Bytes& der : chain.certificates) {
        gnutls_x509_crt_init(&all.emplace_back());
        const gnutls_datum_t datum{const_cast<unsigned char*>(der.data()), static_cast<unsigned>(der.size())};
        read = gnutls_x509_crt_import(all.back(), &datum, GNUTLS_X509_FMT_DER) == 0 && read;
    }
    Answer answer{false, "decode"};
    if (read) {
        gnutls_x509_trust_list_t list = nullptr;
        gnutls_x509_trust_list_init(&list, 0);
        gnutls_x509_trust_list_add_cas(list, &all.back(), 1, 0);
        for (const Bytes& der : chain.crls) {
            gnutls_x509_crl_t crl = nullptr;
            gnutls_x509_crl_init(&crl);
            const gnutls_datum_t datum{const_cast<unsigned char*>(der.data()), static_cast<unsigned>(der.size())};
            if (gnutls_x509_crl_import(crl, &datum, GNUTLS_X509_FMT_DER) == 0)
                gnutls_x509_trust_list_add_crls(list, &crl, 1, 0, 0);
            crls.push_back(crl);
        }
        unsigned status = 0;
        const int done =
            gnutls_x509_trust_list_verify_crt(list, all.data(), static_cast<unsigned>(all.size()), 0, &status, nullptr);
        char text[16];
        std::snprintf(text, sizeof text, "%x", status);
        answer = {done == 0 && status == 0, text};
        gnutls_x509_trust_list_deinit(list, 0);
    }
    for (gnutls_x509_crt_t one : all) gnutls_x509_crt_deinit(one);
    for (gnutls_x509_crl_t one : crls) gnutls_x509_crl_deinit(one);
    return answer;
}

/// GnuTLS passes over a CRL that cannot be used and a status that nothing tells.
bool isAboutCrls(const Answer& refused) {
    return refused.says.starts_with("5.") || refused.says.starts_with("6.3.3") || refused.says == "6.1.3 (a)(3)";
}

/// With several CRLs of an authority it is their choice that decides.
std::string saysOf(const Chain& chain, const Answer& refused) {
    constexpr const char* kLibcryptoSignature = "8";
    const bool several = chain.crls.size() >= chain.certificates.size();
    return several && (isAboutCrls(refused) || refused.says == kLibcryptoSignature) ? "several CRLs" : refused.says;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const Chain chain = chainOf(input);
    now = std::time(nullptr);
    gnutls_global_set_time_function([](std::time_t* told) { return told ? *told = now : now; });
    const Answer own = ours(chain), ssl = libcrypto(chain), tls = gnutls(chain);
    const auto demand = [&](Explained::Who who, const Answer& refused) {
        if (!explain(who, saysOf(chain, refused)).empty()) return;
        std::cerr << "not explained: ours " << own.good << ' ' << own.says << ", libcrypto " << ssl.good << ' '
                  << ssl.says << ", GnuTLS " << tls.good << ' ' << tls.says << '\n';
        for (const auto* part : {&chain.certificates, &chain.crls})
            for (const Bytes& der : *part) std::cerr << toHex(der) << '\n';
        if (!std::getenv("CRV_FUZZ_LIST")) std::abort();
    };
    if (!own.good && (ssl.good || (tls.good && !isAboutCrls(own)))) demand(Explained::kOurs, own);
    if (own.good && !ssl.good) demand(Explained::kLibcrypto, own.malformedCrl ? Answer{false, "malformed CRL"} : ssl);
    if (own.good && !tls.good) demand(Explained::kGnuTls, tls);
    return 0;
}
