// Handles to the one library context of the run and to its managers, read by every screen. They point into the context
// from its creation to its end and are null outside of that.
#pragma once

namespace crv {

class ConfigurationManager;

inline ConfigurationManager* cfgManager = nullptr;

/// The context of the run: created with its managers, destroyed when the object ends.
class ContextOwner {
  public:
    ContextOwner();
    ~ContextOwner();
    ContextOwner(const ContextOwner&) = delete;
    ContextOwner& operator=(const ContextOwner&) = delete;
};

}  // namespace crv
