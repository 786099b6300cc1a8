#include "asn/pkcs/km_key_file.h"

namespace crv {

MemberTable KMKeyFile::members() const {
    using File = KMKeyFile;
    static constexpr Member kMembers[] = {
        member<&File::presence>, member<&File::option>,   member<&File::number1>,     member<&File::number2>,
        member<&File::number3>,  member<&File::number4>,  member<&File::number5>,     member<&File::number6>,
        member<&File::number7>,  member<&File::number8>,  member<&File::name1>,       member<&File::name2>,
        member<&File::number9>,  member<&File::number10>, member<&File::certificate>, member<&File::digest>,
    };
    return kMembers;
}

bool KMKeyFile::validMembers() const {
    return !digest || digest->value().size() == kDigestLength;
}

}  // namespace crv
