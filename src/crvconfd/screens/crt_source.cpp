#include "crvconfd/screens/crt_source.h"

#include <algorithm>

#include "crvconfd/session/context.h"
#include "db_sql/db_manager.h"

namespace crv {

bool CrtSource::forward(int64_t after, size_t count, CrtItemList& list) const {
    if (!ids_) return dbManager->readForward(after, count, list);
    const auto first = std::upper_bound(ids_->begin(), ids_->end(), after);
    return read(first, first + std::min<ptrdiff_t>(ids_->end() - first, static_cast<ptrdiff_t>(count)), list);
}

bool CrtSource::backward(int64_t before, size_t count, CrtItemList& list) const {
    if (!ids_) {
        const bool read = dbManager->readBackward(before, count, list);
        std::reverse(list.begin(), list.end());
        return read;
    }
    const auto last = std::lower_bound(ids_->begin(), ids_->end(), before);
    return read(last - std::min<ptrdiff_t>(last - ids_->begin(), static_cast<ptrdiff_t>(count)), last, list);
}

bool CrtSource::read(std::vector<int64_t>::const_iterator first, std::vector<int64_t>::const_iterator last,
                     CrtItemList& list) const {
    for (; first != last; ++first) {
        // Somebody else may have deleted it since the search.
        CrtItemList one;
        if (!dbManager->readForward(*first - 1, 1, one)) return false;
        if (!one.empty() && one[0].id == *first) list.push_back(std::move(one[0]));
    }
    return true;
}

void CrtSource::forget(int64_t id) {
    if (ids_) std::erase(*ids_, id);
}

}  // namespace crv
