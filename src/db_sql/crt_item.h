// One certificate found in the database.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "misc/bytes.h"

namespace crv {

/// A search result: the record id of the certificate and its DER octets. Ids are positive, stay the same while the
/// certificate is stored (the removal of expired certificates gives new ones), and grow in the order of insertion.
struct CrtItem {
    int64_t id = 0;
    Bytes der;
    bool operator==(const CrtItem&) const = default;
};

using CrtItemList = std::vector<CrtItem>;

inline void insertCrtItem(CrtItemList& list, int64_t id, Bytes der) {
    list.push_back({id, std::move(der)});
}

}  // namespace crv
