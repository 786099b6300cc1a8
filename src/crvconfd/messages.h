// Tables of the texts that a screen shows for result codes.
#pragma once

#include <span>

namespace crv {

struct CodeText {
    int code;
    const char* text;
};

/// The text of a code, or null.
[[nodiscard]] const char* findText(std::span<const CodeText> table, int code);

/// Shows the text of a code on the message row. A code that the table does not list is a failed assertion, "Assertion 0
/// failed in" the place.
void showCode(std::span<const CodeText> table, int code, const char* place = "src/crvconfd/main");

}  // namespace crv
