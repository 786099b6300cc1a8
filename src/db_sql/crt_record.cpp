#include "db_sql/crt_record.h"

namespace crv {

std::string refusalOf(const CrtRecord& record) {
    if (record.email.size() > kMaxCrtEmail) return kTextEmailTooLong;
    if (record.keyId.empty() || record.keyId.size() > kMaxCrtKeyId) {
        return "DbCrtCrv::insertCert. Bledny identyfikator klucza w certyfikacie";
    }
    if (record.dnFlds.size() > kMaxCrtFields) return "DbCrtCrv::insertCert. Za duzo pol nazwy w certyfikacie";
    return {};
}

}  // namespace crv
