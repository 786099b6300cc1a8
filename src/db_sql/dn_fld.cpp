#include "db_sql/dn_fld.h"

#include <algorithm>
#include <utility>

namespace crv {

std::string dnFldValue(std::string value) {
    value.resize(std::min({value.size(), kMaxDnFldValue, value.find('\0')}));
    return value;
}

void addToListNoRepeat(DnFldList& list, uint8_t type, std::string value) {
    DnFld field{type, dnFldValue(std::move(value))};
    if (std::ranges::find(list, field) == list.end()) list.push_back(std::move(field));
}

}  // namespace crv
