#include "pki/network_manager.h"

#include <algorithm>

#include "config/context_services.h"
#include "config/warning_codes.h"

namespace crv {

bool NetworkManager::add(std::vector<Bytes>& store, ByteView item) {
    if (std::ranges::any_of(store, [item](const Bytes& kept) { return std::ranges::equal(kept, item); })) return false;
    store.push_back(toBytes(item));
    return true;
}

void NetworkManager::moveFromNetStoreToDB(const std::function<bool(ByteView)>& insertCert,
                                          const std::function<bool(ByteView)>& insertCrl) {
    const auto refused = std::ranges::count_if(certificates_, std::not_fn(insertCert)) +
                         std::ranges::count_if(crls_, std::not_fn(insertCrl));
    clearNetStore();
    if (refused && context_) context_->addWarning(WARN_NET_STORE_NOT_MOVED);
}

void NetworkManager::clearNetStore() {
    certificates_.clear();
    crls_.clear();
}

}  // namespace crv
