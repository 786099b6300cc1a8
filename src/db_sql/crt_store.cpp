#include "db_sql/crt_store.h"

#include "asn/x509/signed_certificate.h"

namespace crv {

CrtStore::Removed CrtStore::removeCertsOverTime(int64_t time) {
    return removeCerts([time](ByteView der) {
        SignedCertificate certificate;
        if (!certificate.readExactly(der, ASN_FLAG_CONST)) return false;
        const std::optional<int64_t> end = certificate.tbs.validity.notAfter.seconds();
        return end && *end < time;
    });
}

}  // namespace crv
