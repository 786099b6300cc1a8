// The text of the exception that an action ends with.
#pragma once

#include <exception>
#include <functional>
#include <string>

namespace crv::test {

/// Empty when the action ends without an exception.
inline std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

}  // namespace crv::test
