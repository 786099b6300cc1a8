// Texts made from the table.
#pragma once

#include <string>

#include "crvctl/table.h"

namespace crv::ctl {

/// "crvctl [options] profile create NAME"
std::string usageLine(const VerbRow& verb);
std::string overview();
std::string groupHelp(const std::string& group);
std::string verbHelp(const VerbRow& verb);
/// The manual page crvctl(1), in the language in force; docs/man is made with it.
std::string manualPage();
/// docs/json.md.
std::string jsonDocument();

}  // namespace crv::ctl
