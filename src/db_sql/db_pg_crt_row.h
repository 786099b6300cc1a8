// A certificate as a row of a PostgreSQL database, and its subject fields.
#pragma once

#include <vector>

#include "db_sql/crt_record.h"
#include "db_sql/db_pg_values.h"

namespace crv {

/// In the order of addPgColumns.
#define CRV_PG_COLUMNS "sha256, ser_num, sbj_dn, key_id, crt_hash, email, is_ca, not_after, der"

/// SHA-256: what says whether a certificate is there.
[[nodiscard]] Bytes pgKeyOf(ByteView der);
PgValues& addPgColumns(PgValues& values, const CrtRecord& record, ByteView sha256);
/// A field of a subject name: its type octet and its value.
[[nodiscard]] Bytes pgField(uint8_t type, const std::string& value);
/// Each once, in the order in which the server sorts them.
[[nodiscard]] std::vector<Bytes> pgFieldsOf(const CrtRecord& record);

}  // namespace crv
