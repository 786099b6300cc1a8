#include "asn/x509/cert_ptr.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"

namespace crv {

CertPtr makeCert(ByteView encoding) {
    auto certificate = std::make_shared<SignedCertificate>();
    const bool read = certificate->readExactly(encoding, ASN_FLAG_CONST | ASN_FLAG_COPY);
    return read ? certificate : nullptr;
}

ByteView encodingOf(const SignedCertificate& certificate) {
    return certificate.keptEncoding();
}

bool contains(const CertList& list, const SignedCertificate& certificate) {
    return std::ranges::any_of(
        list, [&](const CertPtr& other) { return std::ranges::equal(encodingOf(*other), encodingOf(certificate)); });
}

bool removeFrom(CertList& list, const SignedCertificate& certificate) {
    return std::erase_if(list, [&](const CertPtr& other) {
               return std::ranges::equal(encodingOf(*other), encodingOf(certificate));
           }) > 0;
}

bool isNewer(const SignedCertificate& a, const SignedCertificate& b) {
    const auto dates = [](const SignedCertificate& certificate) {
        const Validity& validity = certificate.tbs.validity;
        return std::pair(validity.notBefore.seconds(), validity.notAfter.seconds());
    };
    return dates(a) > dates(b);
}

}  // namespace crv
