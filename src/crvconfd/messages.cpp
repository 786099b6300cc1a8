#include "crvconfd/messages.h"

#include <algorithm>

#include "crvconfd/toolkit.h"
#include "misc/exceptions.h"

namespace crv {

const char* findText(std::span<const CodeText> table, int code) {
    const auto found = std::find_if(table.begin(), table.end(), [code](const auto& row) { return row.code == code; });
    return found == table.end() ? nullptr : found->text;
}

void showCode(std::span<const CodeText> table, int code, const char* place) {
    const char* text = findText(table, code);
    if (!text) failAssertion("0", place, __LINE__);
    errInfo(kMessageRow, "%s", text);
}

}  // namespace crv
