#include "config/trusted_list_manager.h"

namespace crv {

TrustedListManager& TrustedListManager::instance() {
    static TrustedListManager manager;
    return manager;
}

void TrustedListManager::setProxy(const Proxy& proxy) {
    std::scoped_lock lock(mutex_);
    proxy_ = proxy;
}

Proxy TrustedListManager::proxy() const {
    std::scoped_lock lock(mutex_);
    return proxy_;
}

}  // namespace crv
