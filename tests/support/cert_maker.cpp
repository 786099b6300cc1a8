#include "support/cert_maker.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <stdexcept>

namespace crv::test {

namespace {

template <class T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

template <class T>
T* need(T* made) {
    if (!made) throw std::runtime_error("libcrypto");
    return made;
}

void need(int done) {
    if (done <= 0) throw std::runtime_error("libcrypto");
}

template <class T, class Encode>
Bytes encode(T* object, Encode i2d) {
    Bytes der(static_cast<size_t>(i2d(object, nullptr)));
    unsigned char* to = der.data();
    need(i2d(object, &to));
    return der;
}

Owned<X509_NAME> nameOf(const NameFields& fields) {
    Owned<X509_NAME> name(need(X509_NAME_new()), X509_NAME_free);
    for (const NameField& field : fields) {
        // Values come as UTF-8 and are turned into the string type that is asked for.
        Owned<ASN1_STRING> text(nullptr, ASN1_STRING_free);
        ASN1_STRING* made = nullptr;
        need(ASN1_mbstring_copy(&made, reinterpret_cast<const unsigned char*>(field.value.data()),
                                static_cast<int>(field.value.size()), MBSTRING_UTF8, ASN1_tag2bit(field.stringType)));
        text.reset(made);
        need(X509_NAME_add_entry_by_txt(name.get(), field.type, field.stringType, ASN1_STRING_get0_data(made),
                                        ASN1_STRING_length(made), -1, 0));
    }
    return name;
}

Owned<ASN1_INTEGER> integerOf(const std::string& hex) {
    BIGNUM* number = nullptr;
    need(BN_hex2bn(&number, hex.c_str()));
    const Owned<BIGNUM> owner(number, BN_free);
    return {need(BN_to_ASN1_INTEGER(number, nullptr)), ASN1_INTEGER_free};
}

Owned<ASN1_TIME> timeOf(int64_t fromNow) {
    return {need(ASN1_TIME_adj(nullptr, std::time(nullptr), static_cast<int>(fromNow / kDay),
                               static_cast<long>(fromNow % kDay))),
            ASN1_TIME_free};
}

template <class Target, class Add>
void addExtensions(Target* target, X509V3_CTX& ctx, const std::vector<std::pair<std::string, std::string>>& texts,
                   Add add) {
    for (const auto& [name, value] : texts) {
        const Owned<X509_EXTENSION> extension(need(X509V3_EXT_nconf(nullptr, &ctx, name.c_str(), value.c_str())),
                                              X509_EXTENSION_free);
        need(add(target, extension.get(), -1));
    }
}

void addInteger(X509_CRL* crl, int nid, long value, bool critical) {
    const Owned<ASN1_INTEGER> number(need(ASN1_INTEGER_new()), ASN1_INTEGER_free);
    need(ASN1_INTEGER_set(number.get(), value));
    need(X509_CRL_add1_ext_i2d(crl, nid, number.get(), critical ? 1 : 0, 0));
}

void addEntry(X509_CRL* crl, const CrlEntry& entry) {
    X509_REVOKED* revoked = need(X509_REVOKED_new());
    need(X509_REVOKED_set_serialNumber(revoked, integerOf(entry.serial).get()));
    need(X509_REVOKED_set_revocationDate(revoked, timeOf(entry.when).get()));
    if (entry.reason >= 0) {
        const Owned<ASN1_ENUMERATED> reason(need(ASN1_ENUMERATED_new()), ASN1_ENUMERATED_free);
        need(ASN1_ENUMERATED_set(reason.get(), entry.reason));
        need(X509_REVOKED_add1_ext_i2d(revoked, NID_crl_reason, reason.get(), 0, 0));
    }
    need(X509_CRL_add0_revoked(crl, revoked));
}

Owned<X509> parse(const Bytes& der) {
    const unsigned char* from = der.data();
    return {need(d2i_X509(nullptr, &from, static_cast<long>(der.size()))), X509_free};
}

}  // namespace

TestKey makeKey() {
    return {need(EVP_EC_gen("P-256")), EVP_PKEY_free};
}

MadeCert makeCert(const CertPlan& plan, const MadeCert* issuer, TestKey key) {
    if (!key) key = makeKey();
    const Owned<X509> cert(need(X509_new()), X509_free);
    need(X509_set_version(cert.get(), plan.version1 ? X509_VERSION_1 : X509_VERSION_3));
    need(X509_set_serialNumber(cert.get(), integerOf(plan.serial).get()));
    need(X509_set_subject_name(cert.get(), nameOf(plan.subject).get()));
    need(X509_set_issuer_name(cert.get(), nameOf(issuer ? issuer->subject : plan.subject).get()));
    need(X509_set1_notBefore(cert.get(), timeOf(plan.notBefore).get()));
    need(X509_set1_notAfter(cert.get(), timeOf(plan.notAfter).get()));
    need(X509_set_pubkey(cert.get(), key.get()));
    const Owned<X509> issuerCert = issuer ? parse(issuer->der) : Owned<X509>(nullptr, X509_free);
    X509V3_CTX ctx{};
    X509V3_set_ctx(&ctx, issuer ? issuerCert.get() : cert.get(), cert.get(), nullptr, nullptr, 0);
    addExtensions(cert.get(), ctx, plan.extensions, X509_add_ext);
    need(X509_sign(cert.get(), (issuer ? issuer->key : key).get(), EVP_sha256()));
    return {encode(cert.get(), i2d_X509), plan.subject, std::move(key)};
}

std::vector<std::pair<std::string, std::string>> caExtensions(int pathLength) {
    const std::string limit = pathLength < 0 ? "" : ",pathlen:" + std::to_string(pathLength);
    return {{"basicConstraints", "critical,CA:TRUE" + limit},
            {"keyUsage", "critical,keyCertSign,cRLSign"},
            {"subjectKeyIdentifier", "hash"}};
}

Bytes makeCrl(const CrlPlan& plan, const MadeCert& issuer) {
    const Owned<X509_CRL> crl(need(X509_CRL_new()), X509_CRL_free);
    need(X509_CRL_set_version(crl.get(), X509_CRL_VERSION_2));
    need(X509_CRL_set_issuer_name(crl.get(), nameOf(issuer.subject).get()));
    need(X509_CRL_set1_lastUpdate(crl.get(), timeOf(plan.thisUpdate).get()));
    need(X509_CRL_set1_nextUpdate(crl.get(), timeOf(plan.nextUpdate).get()));
    for (const CrlEntry& entry : plan.entries) addEntry(crl.get(), entry);
    addInteger(crl.get(), NID_crl_number, plan.number, false);
    if (plan.base >= 0) addInteger(crl.get(), NID_delta_crl, plan.base, true);
    const Owned<X509> issuerCert = parse(issuer.der);
    X509V3_CTX ctx{};
    X509V3_set_ctx(&ctx, issuerCert.get(), nullptr, nullptr, crl.get(), 0);
    addExtensions(crl.get(), ctx, plan.extensions, X509_CRL_add_ext);
    need(X509_CRL_sign(crl.get(), issuer.key.get(), EVP_sha256()));
    return encode(crl.get(), i2d_X509_CRL);
}

Bytes makeBundle(const std::vector<Bytes>& certificates) {
    const Owned<PKCS7> bundle(need(PKCS7_new()), PKCS7_free);
    need(PKCS7_set_type(bundle.get(), NID_pkcs7_signed));
    need(PKCS7_content_new(bundle.get(), NID_pkcs7_data));
    for (const Bytes& der : certificates) need(PKCS7_add_certificate(bundle.get(), parse(der).get()));
    return encode(bundle.get(), i2d_PKCS7);
}

}  // namespace crv::test
