// Calls on single certificates, and those that find them.
#include "api/handles.h"
#include "api/key_store_call.h"
#include "asn/x509/signed_certificate.h"
#include "misc/hex.h"
#include "ops/certificates.h"
#include "pki/cert_file_reader.h"

namespace crv {
namespace {

using CertText = std::optional<std::string>;

std::string longText(int64_t number) {
    const auto value = static_cast<long>(number);
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string octetText(ByteView octets) {
    return std::string(asText(octets));
}

CertText timeText(const Time& time) {
    const auto seconds = time.seconds();
    return seconds ? CertText(longText(*seconds)) : std::nullopt;
}

/// An attribute of a certificate; nothing when it has none.
constexpr struct {
    long id;
    CertText (*value)(const SignedCertificate& one);
} kCertAttrs[] = {
    {CRVCERT_ATTR_DER, [](const SignedCertificate& c) { return CertText(octetText(encodingOf(c))); }},
    {CRVCERT_ATTR_SUBJECT, [](const SignedCertificate& c) { return CertText(c.subject().rfc4514()); }},
    {CRVCERT_ATTR_ISSUER, [](const SignedCertificate& c) { return CertText(c.issuer().rfc4514()); }},
    {CRVCERT_ATTR_SERIAL, [](const SignedCertificate& c) { return CertText(toHex(c.serialNumber().contents())); }},
    {CRVCERT_ATTR_NOT_BEFORE, [](const SignedCertificate& c) { return timeText(c.tbs.validity.notBefore); }},
    {CRVCERT_ATTR_NOT_AFTER, [](const SignedCertificate& c) { return timeText(c.tbs.validity.notAfter); }},
    {CRVCERT_ATTR_EMAIL,
     [](const SignedCertificate& c) {
         const std::string email = c.email();
         return email.empty() ? std::nullopt : CertText(email);
     }},
    {CRVCERT_ATTR_KEY_KIND,
     [](const SignedCertificate& c) { return CertText(longText(keyKindNumber(c.keyInfo().publicKey()))); }},
    {CRVCERT_ATTR_KEY_BITS,
     [](const SignedCertificate& c) { return CertText(longText(c.keyInfo().publicKey().bits())); }},
    {CRVCERT_ATTR_KEY_ID,
     [](const SignedCertificate& c) { return CertText(octetText(c.computeKeyIdentifierSha1Hash())); }},
    {CRVCERT_ATTR_KEY_USAGE,
     [](const SignedCertificate& c) {
         const auto usage = c.keyUsage();
         return usage ? CertText(longText(usage->namedBits())) : std::nullopt;
     }},
    {CRVCERT_ATTR_IS_CA, [](const SignedCertificate& c) { return CertText(longText(c.isCaCrt())); }},
    {CRVCERT_ATTR_SHA1,
     [](const SignedCertificate& c) { return CertText(octetText(c.fingerprint(KcHashAlgo::Sha1))); }},
    {CRVCERT_ATTR_SHA256,
     [](const SignedCertificate& c) { return CertText(octetText(c.fingerprint(KcHashAlgo::Sha256))); }},
    {CRVCERT_ATTR_SUBJECT_DER, [](const SignedCertificate& c) { return CertText(octetText(c.subject().encoded())); }},
    {CRVCERT_ATTR_ISSUER_DER, [](const SignedCertificate& c) { return CertText(octetText(c.issuer().encoded())); }},
    {CRVCERT_ATTR_PUBLIC_KEY, [](const SignedCertificate& c) { return CertText(octetText(c.keyInfo().encoded())); }},
};

int crvGetCertAttrInt(const CrvCert* cert, long id, char* buf, long* len) {
    const auto* row = std::ranges::find_if(kCertAttrs, [&](const auto& one) { return one.id == id; });
    demand(cert && len && row != std::end(kCertAttrs));
    const CertText value = row->value(*cert->certificate);
    return value ? copyOut(*value, buf, len) : ECRV_ATTR_HAS_NO_VALUE;
}

int crvReadCertsInt(CRVctx& ctx, ByteView octets, long* count, CrvCertIterator** iterator) {
    demand(iterator);
    *iterator = nullptr;
    auto made = std::make_unique<CrvCertIterator>();
    CertFileReader reader(toBytes(octets));
    bool whole = true;
    for (ByteView der; whole && reader.next(der);) {
        whole = makeCert(der) != nullptr;
        if (whole) made->found.push_back(toBytes(der));
    }
    if (made->found.empty()) return ECRV_INV_CRT_FMT;
    if (!whole || reader.stoppedEarly()) ctx.state.addWarning(WARN_REST_NOT_READ);
    if (count) *count = static_cast<long>(made->found.size());
    give(std::move(made), iterator);
    return CRV_OK;
}

int crvGetUserCertInt(CRVctx& ctx, long use, CrvCert** cert) {
    demand(cert && (use == CRVKEY_USE_SIGN || use == CRVKEY_USE_DECRYPT));
    *cert = nullptr;
    demandLogIn(ctx);
    CertPtr found =
        use == CRVKEY_USE_SIGN ? ctx.keyManager.signingCertificate() : ctx.keyManager.encryptionCertificate();
    if (!found) return ECRV_USERCRT;
    give(handleOf(std::move(found)), cert);
    return CRV_OK;
}

CertSelector selectorFrom(const CrvCertQuery* query) {
    if (!query) return {};
    const CrvCertQuery given = takeIn(query);
    return {std::string(textIn(given.sha256)), std::string(textIn(given.serial)), std::string(textIn(given.issuer)),
            std::string(textIn(given.subject)), std::string(textIn(given.email))};
}

int crvFindCertsInt(CRVctx& ctx, const CrvCertQuery* query, long* count, CrvCertIterator** iterator) {
    demand(iterator);
    *iterator = nullptr;
    const CertSelector selector = selectorFrom(query);
    demandDatabase(ctx);
    auto made = std::make_unique<CrvCertIterator>();
    eachCert(ctx.dbManager, [&](int64_t, const SignedCertificate& one, ByteView der) {
        if (selector.matches(one)) made->found.push_back(toBytes(der));
        return true;
    });
    if (count) *count = static_cast<long>(made->found.size());
    give(std::move(made), iterator);
    return CRV_OK;
}

int crvGetNextCertInt(CrvCertIterator* iterator, CrvCert** cert) {
    demand(iterator && cert);
    *cert = nullptr;
    if (iterator->found.empty()) return ECRV_CRTNOTFOUND;
    give(handleOf(makeCert(iterator->found.front())), cert);
    iterator->found.pop_front();
    return CRV_OK;
}

}  // namespace

std::unique_ptr<CrvCert> handleOf(CertPtr certificate) {
    demand(certificate != nullptr);
    auto made = std::make_unique<CrvCert>();
    made->certificate = std::move(certificate);
    return made;
}

}  // namespace crv

using namespace crv;

int crvGetCertAttrAPI(CRVctx* ctx, const CrvCert* cert, long id, char* buf, long* len) {
    return apiFrame(ctx, [&] { return crvGetCertAttrInt(cert, id, buf, len); });
}

int crvFreeCertAPI(CRVctx* ctx, CrvCert* cert) {
    return freeHandle(ctx, cert);
}

int crvReadCertsAPI(CRVctx* ctx, const unsigned char* octets, long len, long* count, CrvCertIterator** iterator) {
    return apiFrame(ctx, [&] { return crvReadCertsInt(*ctx, octetsIn(octets, len), count, iterator); });
}

int crvGetUserCertAPI(CRVctx* ctx, long use, CrvCert** cert) {
    return apiFrame(ctx, [&] { return crvGetUserCertInt(*ctx, use, cert); });
}

int crvFindCertsAPI(CRVctx* ctx, const CrvCertQuery* query, long* count, CrvCertIterator** iterator) {
    return apiFrame(ctx, [&] { return crvFindCertsInt(*ctx, query, count, iterator); });
}

int crvGetNextCertAPI(CRVctx* ctx, CrvCertIterator* iterator, CrvCert** cert) {
    return apiFrame(ctx, [&] { return crvGetNextCertInt(iterator, cert); });
}

int crvFreeCertIteratorAPI(CRVctx* ctx, CrvCertIterator* iterator) {
    return freeHandle(ctx, iterator);
}
