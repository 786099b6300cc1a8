// How long the process keeps PKCS#11 modules initialised.
#pragma once

namespace crv {

/// Held by every key manager. With the last one go the modules that this process initialised; nothing is left for the
/// destructors that run at its end.
class TokenModulesUse {
  public:
    TokenModulesUse();
    ~TokenModulesUse();
    TokenModulesUse(const TokenModulesUse&) = delete;
    TokenModulesUse& operator=(const TokenModulesUse&) = delete;
};

}  // namespace crv
