// What would mend a path that fell.
#pragma once

#include <string>

#include "pki/path_verdict.h"

namespace crv {

struct PathAdvice {
    std::string command{};  ///< a line for crvctl, with FILE where a file is needed; empty when no command mends it
    std::string about{};    ///< whose certificate or revocation list is needed
};

[[nodiscard]] PathAdvice adviceOn(const PathVerdict& verdict);

}  // namespace crv
