#include "crvconfd/session/context.h"

#include "context/crvctx.h"
#include "crvconfd/session/token_dialog.h"

namespace crv {

CrvProfile& boundProfile() {
    return *cfgManager->profile();
}

ContextOwner::ContextOwner() : context_(std::make_unique<CRVctx>()) {
    crvCtx = context_.get();
    cfgManager = &context_->configurationManager;
    keyManager = &context_->keyManager;
    dbManager = &context_->dbManager;
    crtManager = &context_->certificateManager;
    revManager = &context_->revocationManager;
    crtCache = &context_->certificateCache;
    netManager = &context_->networkManager;
    talkToTokens(context_->state);
}

ContextOwner::~ContextOwner() {
    crvCtx = nullptr;
    cfgManager = nullptr;
    keyManager = nullptr;
    dbManager = nullptr;
    crtManager = nullptr;
    revManager = nullptr;
    crtCache = nullptr;
    netManager = nullptr;
}

std::string ContextOwner::report() const {
    return context_->state.wholeReport();
}

}  // namespace crv
