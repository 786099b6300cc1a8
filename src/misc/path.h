// Paths as the user writes them.
#pragma once

#include <string>
#include <string_view>

namespace crv {

/// Replaces a leading "~/" by the value of HOME and a slash; with HOME unset or empty the rest alone remains.
std::string expandHome(std::string_view path);

/// The folder of the running program, with a slash at the end; empty when the system does not tell.
std::string programFolder();

}  // namespace crv
