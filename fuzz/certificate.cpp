// Any octets as a certificate: what is accepted must survive everything that a view does with it, and keep its octets.
#include <algorithm>
#include <cstdlib>

#include "asn/x509/ext_distribution.h"
#include "asn/x509/ext_names.h"
#include "asn/x509/ext_policies.h"
#include "asn/x509/signed_certificate.h"
#include "misc/memory_file.h"

namespace {

using namespace crv;

void check(bool condition) {
    if (!condition) std::abort();
}

template <class T>
void decode(const Extension& extension) {
    T value;
    if (!extension.decode(value)) return;
    T again;
    check(again.readExactly(value.encoded()));
    check(again.encoded() == value.encoded());
}

void look(const SignedCertificate& cert) {
    static_cast<void>(cert.subject().lines({false, true}));
    // An empty set, which should not be there, has no text.
    const auto shown = std::ranges::count_if(cert.subject(), [](const auto& set) { return !set.empty(); });
    if (const auto parsed = DistinguishedName::fromText(cert.subject().text()))
        check(static_cast<long>(parsed->size()) == shown);
    static_cast<void>(cert.isCaCrt());
    static_cast<void>(cert.emails());
    static_cast<void>(cert.isValidAt(0));
    check(!cert.getKeyIdFromCert().empty());
    static_cast<void>(cert.authorityKeyId());
    static_cast<void>(cert.serialNumber().decimal());
    static_cast<void>(signAlgorithmName(cert.signatureAlgorithm));
    for (const Extension& e : cert.extensions()) {
        static_cast<void>(e.extnId.name());
        decode<GeneralNames>(e);
        decode<CertificatePolicies>(e);
        decode<CrlDistributionPoints>(e);
        decode<IssuingDistributionPoint>(e);
        decode<AuthorityKeyIdentifier>(e);
        decode<NameConstraints>(e);
        decode<InfoAccess>(e);
        decode<QcStatements>(e);
        decode<KeyUsage>(e);
    }
    if (const auto names = cert.extensions().get<GeneralNames>(OID_CE_SUBJECT_ALT_NAME))
        for (const GeneralName& name : *names) static_cast<void>(name.text());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ByteView octets(data, size);
    SignedCertificate kept;
    const long length = kept.readFromBuff(octets, ASN_FLAG_CONST);
    SignedCertificate copied;
    check((copied.readFromBuff(octets) > 0) == (length > 0));
    if (length <= 0) return 0;
    const Bytes same = kept.encoded();
    check(std::equal(same.begin(), same.end(), data, data + length));
    look(kept);
    look(copied);
    SignedCertificate again;
    const Bytes der = copied.encoded();
    check(long(der.size()) == copied.getLength() && again.readExactly(der) && again.encoded() == der);

    // Piece by piece it is the same.
    SignedCertificate streamed;
    MemoryFile nothing;
    MemoryFile first(octets.first(size / 2));
    MemoryFile second(octets.subspan(size / 2));
    if (streamed.doReadData(first, false, nothing) >= 0 && !streamed.streamDone())
        static_cast<void>(streamed.doReadData(second, true, nothing));
    check(streamed.streamDone() && streamed.encoded() == same);
    return 0;
}
