#include "db_sql/db_pg_crt_row.h"

#include <algorithm>

#include "crypto/kc_hash.h"

namespace crv {

Bytes pgKeyOf(ByteView der) {
    return hashOf(KcHashAlgo::Sha256, der);
}

PgValues& addPgColumns(PgValues& values, const CrtRecord& record, ByteView sha256) {
    values.octets(sha256).octets(record.serNumHash).octets(record.sbjDnHash).octets(record.keyId);
    values.octets(record.crtHash).octets(asBytes(record.email)).flag(record.isCa);
    record.notAfter ? values.number(*record.notAfter) : values.null();
    return values.octets(record.der);
}

Bytes pgField(uint8_t type, const std::string& value) {
    const std::string kept = dnFldValue(value);
    Bytes key{type};
    key.insert(key.end(), kept.begin(), kept.end());
    return key;
}

std::vector<Bytes> pgFieldsOf(const CrtRecord& record) {
    std::vector<Bytes> fields;
    for (const DnFld& field : record.dnFlds) fields.push_back(pgField(field.type, field.value));
    std::ranges::sort(fields);
    fields.erase(std::unique(fields.begin(), fields.end()), fields.end());
    return fields;
}

}  // namespace crv
