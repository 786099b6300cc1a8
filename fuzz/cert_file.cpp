// Certificates and CRLs out of files of any form.
#include "asn/x509/signed_certificate.h"
#include "db_sql/crt_keys.h"
#include "pki/cert_file_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace crv;
    const Bytes content(data, data + size);
    CertFileReader reader(content);
    for (ByteView der; reader.next(der);) {
        CrtRecord record;
        if (makeCrtRecord(der, record)) static_cast<void>(hasOtherKeyId(der, record.keyId));
    }
    static_cast<void>(crlFromFile(content));
    return 0;
}
