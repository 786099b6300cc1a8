#include "crvconfd/screens/crt_source.h"

#include <algorithm>

#include "crvconfd/session/context.h"
#include "db_sql/db_manager.h"

namespace crv {

CrtSource::Position CrtSource::positionOf(int64_t id) const {
    if (id == kFirst) return ids_->begin();
    return id == kBehindAll ? ids_->end() : std::ranges::find(*ids_, id);
}

bool CrtSource::readFrom(Position first, size_t count, CrtItemList& list) const {
    return read(first, first + std::min<ptrdiff_t>(ids_->end() - first, static_cast<ptrdiff_t>(count)), list);
}

bool CrtSource::from(int64_t id, size_t count, CrtItemList& list) const {
    if (!ids_) return dbManager->readForward(std::max<int64_t>(id - 1, kFirst), count, list);
    return readFrom(positionOf(id), count, list);
}

bool CrtSource::forward(int64_t after, size_t count, CrtItemList& list) const {
    if (!ids_) return dbManager->readForward(after, count, list);
    const Position at = positionOf(after);
    return readFrom(at == ids_->end() ? at : at + 1, count, list);
}

bool CrtSource::backward(int64_t before, size_t count, CrtItemList& list) const {
    if (!ids_) {
        const bool read = dbManager->readBackward(before, count, list);
        std::reverse(list.begin(), list.end());
        return read;
    }
    const Position last = positionOf(before);
    return read(last - std::min<ptrdiff_t>(last - ids_->begin(), static_cast<ptrdiff_t>(count)), last, list);
}

bool CrtSource::read(Position first, Position last, CrtItemList& list) const {
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
