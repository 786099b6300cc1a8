#include "db_sql/crt_record.h"

#include "misc/exceptions.h"

namespace crv {

CrtRefusal refusalOf(const CrtRecord& record) {
    if (record.email.size() > kMaxCrtEmail) return CrtRefusal::EmailTooLong;
    if (record.keyId.empty() || record.keyId.size() > kMaxCrtKeyId) return CrtRefusal::KeyIdUnfit;
    return record.dnFlds.size() > kMaxCrtFields ? CrtRefusal::TooManyFields : CrtRefusal::None;
}

void demandStorable(const CrtRecord& record) {
    switch (refusalOf(record)) {
        case CrtRefusal::None:
            return;
        case CrtRefusal::EmailTooLong:
            throw StoreError(StoreCause::Refused, "DbCrtCrv::insertCert. Za dlugie pole email w certyfikacie");
        case CrtRefusal::KeyIdUnfit:
            throw StoreError(StoreCause::Refused, "DbCrtCrv::insertCert. Bledny identyfikator klucza w certyfikacie");
        case CrtRefusal::TooManyFields:
            throw StoreError(StoreCause::Refused, "DbCrtCrv::insertCert. Za duzo pol nazwy w certyfikacie");
    }
}

}  // namespace crv
