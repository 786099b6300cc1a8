// Values of a result, before they become text or JSON.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "misc/nothing.h"

namespace crv::ctl {

struct Value;
/// In the order in which they are shown.
using Fields = std::vector<std::pair<std::string, Value>>;
using Values = std::vector<Value>;

struct Value {
    std::variant<Nothing, bool, int64_t, std::string, Values, Fields> held;

    Value() = default;
    Value(bool value) : held(value) {}
    Value(int value) : held(int64_t{value}) {}
    Value(long value) : held(int64_t{value}) {}
    Value(size_t value) : held(static_cast<int64_t>(value)) {}
    Value(const char* value) : held(std::string(value)) {}
    Value(std::string value) : held(std::move(value)) {}
    Value(Values value) : held(std::move(value)) {}
    Value(Fields value) : held(std::move(value)) {}
};

}  // namespace crv::ctl
