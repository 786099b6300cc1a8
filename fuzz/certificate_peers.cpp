// A certificate as we read it, as libcrypto does and as GnuTLS does: what we take they take, and every field is the
// same. What they alone take is no DER, or breaks a rule of kExplained.
#include <gnutls/x509.h>
#include <openssl/asn1err.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>

#include "asn/x509/signed_certificate.h"
#include "der_mutator.h"

CRV_MUTATE_DER

namespace {

using namespace crv;

/// Why libcrypto refuses what we take: a reason, or the field that it looks into.
struct Explained {
    int reason;
    const char* field;
    const char* why;
};
constexpr Explained kExplained[] = {
    {ASN1_R_INVALID_UTF8STRING, nullptr, "names are kept as they came, and shown with what is no text escaped"},
    {ASN1_R_INVALID_BMPSTRING_LENGTH, nullptr, "likewise"},
    {ASN1_R_INVALID_UNIVERSALSTRING_LENGTH, nullptr, "likewise"},
    {ASN1_R_ILLEGAL_PADDING, nullptr,
     "numbers longer than needed (X.690 8.3.2), which old programs wrote, keep their octets"},
    {0, "Field=value,", "likewise, of whatever type they are"},
    {0, "Field=parameter,", "parameters of an algorithm are read by whoever uses it"},
};

bool isExplained() {
    const char* data = nullptr;
    int flags = 0, reason = ERR_GET_REASON(ERR_peek_error());
    while (ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags) != 0) {
        const std::string said = (flags & ERR_TXT_STRING) != 0 ? data : "";
        for (const Explained& row : kExplained) {
            if ((row.reason != 0 && row.reason == reason) || (row.field && said.find(row.field) == 0)) return true;
        }
    }
    return false;
}

void same(bool condition, const char* field, const char* peer) {
    if (condition) return;
    std::fprintf(stderr, "%s differs from %s's\n", field, peer);
    std::abort();
}

/// What an i2d function of libcrypto writes.
template <class Object, class Write>
Bytes derOf(const Object* object, Write write) {
    unsigned char* octets = nullptr;
    const int length = write(object, &octets);
    Bytes der(octets, octets + (length > 0 ? length : 0));
    OPENSSL_free(octets);
    return der;
}

/// What a function of GnuTLS fills in.
template <class Get>
Bytes octetsOf(Get get) {
    Bytes octets(8192);
    size_t size = octets.size();
    octets.resize(get(octets.data(), &size) == 0 ? size : 0);
    return octets;
}

bool equal(ByteView a, ByteView b) {
    return std::ranges::equal(a, b);
}

void compareTime(const ASN1_TIME* theirs, const Time& ours, time_t gnutls, const char* field) {
    struct tm civil {};
    const auto seconds = ours.seconds();
    if (!seconds) return;
    if (ASN1_TIME_to_tm(theirs, &civil) == 1) same(timegm(&civil) == *seconds, field, "libcrypto");
    // GnuTLS says 1970 for what was before.
    if (gnutls != -1) same(gnutls == std::max<int64_t>(*seconds, 0), field, "GnuTLS");
}

void compareExtensions(const SignedCertificate& ours, const X509* theirs, gnutls_x509_crt_t gnutls) {
    int at = 0;
    for (const Extension& extension : ours.extensions()) {
        X509_EXTENSION* other = X509_get_ext(theirs, at);
        same(other, "number of extensions", "libcrypto");
        const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(other);
        same(equal(extension.extnValue.value(),
                   {ASN1_STRING_get0_data(value), static_cast<size_t>(ASN1_STRING_length(value))}),
             "value of an extension", "libcrypto");
        same((X509_EXTENSION_get_critical(other) != 0) == extension.critical.value(), "critical", "libcrypto");
        char oid[1024];
        size_t size = sizeof oid;
        unsigned critical = 0;
        if (gnutls_x509_crt_get_extension_info(gnutls, static_cast<unsigned>(at), oid, &size, &critical) == 0)
            same((critical != 0) == extension.critical.value(), "critical", "GnuTLS");
        ++at;
    }
    same(X509_get_ext_count(theirs) == at, "number of extensions", "libcrypto");
}

void compare(const SignedCertificate& ours, const X509* theirs, gnutls_x509_crt_t gnutls) {
    same(derOf(X509_get0_serialNumber(theirs), i2d_ASN1_INTEGER) == ours.serialNumber().encoded(), "serial number",
         "libcrypto");
    same(derOf(X509_get_subject_name(theirs), i2d_X509_NAME) == ours.subject().encoded(), "subject", "libcrypto");
    same(derOf(X509_get_issuer_name(theirs), i2d_X509_NAME) == ours.issuer().encoded(), "issuer", "libcrypto");
    // libcrypto clears bits that do not count, and writes parameters in its own way that are none of what algorithms
    // have.
    const auto& parameters = ours.keyInfo().algorithm.parameters;
    const int tag = parameters ? parameters->getMemory()[0] : V_ASN1_NULL;
    constexpr int kSequence = V_ASN1_SEQUENCE | V_ASN1_CONSTRUCTED;
    const bool changed = tag != kSequence && tag != V_ASN1_OBJECT && tag != V_ASN1_NULL;
    same(changed || ours.keyInfo().subjectPublicKey.unusedBits() != 0 ||
             derOf(X509_get_X509_PUBKEY(theirs), i2d_X509_PUBKEY) == ours.keyInfo().encoded(),
         "key", "libcrypto");
    same(X509_get_version(theirs) == ours.tbs.version.valueOr(0), "version", "libcrypto");
    const ASN1_BIT_STRING* signature = nullptr;
    X509_get0_signature(&signature, nullptr, theirs);
    same(ours.signature.unusedBits() != 0 ||
             equal({ASN1_STRING_get0_data(signature), static_cast<size_t>(ASN1_STRING_length(signature))},
                   ours.signature.octets()),
         "signature", "libcrypto");
    compareTime(X509_get0_notBefore(theirs), ours.tbs.validity.notBefore, gnutls_x509_crt_get_activation_time(gnutls),
                "notBefore");
    compareTime(X509_get0_notAfter(theirs), ours.tbs.validity.notAfter, gnutls_x509_crt_get_expiration_time(gnutls),
                "notAfter");
    gnutls_datum_t name{};
    if (gnutls_x509_crt_get_raw_dn(gnutls, &name) == 0) {
        same(equal({name.data, name.size}, ours.subject().encoded()), "subject", "GnuTLS");
        gnutls_free(name.data);
    }
    const Bytes serial = octetsOf([&](void* to, size_t* size) { return gnutls_x509_crt_get_serial(gnutls, to, size); });
    same(serial.empty() || equal(serial, ours.serialNumber().contents()), "serial number", "GnuTLS");
    compareExtensions(ours, theirs, gnutls);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SignedCertificate ours;
    const bool taken = ours.readExactly({data, size}, ASN_FLAG_CONST);
    const unsigned char* at = data;
    X509* theirs = d2i_X509(nullptr, &at, static_cast<long>(size));
    gnutls_x509_crt_t gnutls = nullptr;
    gnutls_x509_crt_init(&gnutls);
    const gnutls_datum_t datum{const_cast<unsigned char*>(data), static_cast<unsigned>(size)};
    const bool inGnuTls = gnutls_x509_crt_import(gnutls, &datum, GNUTLS_X509_FMT_DER) == 0;
    if (taken && theirs && inGnuTls) compare(ours, theirs, gnutls);
    if (taken && !theirs) same(isExplained(), "the verdict on what we take", "libcrypto");
    ERR_clear_error();
    X509_free(theirs);
    gnutls_x509_crt_deinit(gnutls);
    return 0;
}
