#include "crvconfd/context.h"

#include "src/configuration_manager.h"

namespace crv {

namespace {
ConfigurationManager configuration;
}

ContextOwner::ContextOwner() {
    cfgManager = &configuration;
}

ContextOwner::~ContextOwner() {
    cfgManager->setProfile(nullptr);
    cfgManager = nullptr;
}

}  // namespace crv
