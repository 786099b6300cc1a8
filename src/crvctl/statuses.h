// The texts of exit statuses and faults.
#pragma once

#include <span>

#include "ops/op_error.h"

namespace crv::ctl {

struct StatusRow {
    const char* number;
    const char* meaning;
};
std::span<const StatusRow> statusRows();

/// What to tell of a fault, in English; what it was about follows behind a colon.
const char* faultText(OpFault fault);

}  // namespace crv::ctl
