#include "crvconfd/context.h"

#include "api/crvctx.h"

namespace crv {

ContextOwner::ContextOwner() : context_(std::make_unique<CRVctx>()) {
    crvCtx = context_.get();
    cfgManager = &context_->configurationManager;
    netManager = &context_->networkManager;
}

ContextOwner::~ContextOwner() {
    crvCtx = nullptr;
    cfgManager = nullptr;
    netManager = nullptr;
}

std::string ContextOwner::report() const {
    return context_->state.wholeReport();
}

}  // namespace crv
