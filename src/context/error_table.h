// The result codes as data, from the one list in corvane/crverrors.h.
#pragma once

namespace crv {

struct ErrorRow {
    long code;
    const char* text;
    const char* name;
};

/// The row of a code, or null.
const ErrorRow* findErrorRow(long code) noexcept;

}  // namespace crv
