// Warnings: what a call got by with. They have numbers and texts of their own.
#pragma once

#include <string>

namespace crv {

/// Numbers for ContextServices::addWarning.
enum WarningCode : int {
    WARN_USER_CRT_NOT_VALID = 1,
    WARN_NET_STORE_NOT_MOVED = 2,
};

/// "NAME: text" of a warning; of an unknown number the number.
std::string warningText(int code);

}  // namespace crv
