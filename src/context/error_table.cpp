#include "context/error_table.h"

#include <algorithm>
#include <iterator>

#include "corvane/crverrors.h"

namespace crv {
namespace {

#define CRV_ROW(number, name, text) {number, text, #name},
#define CRV_SAME(number, constant, name, text) {number, text, #name},

constexpr ErrorRow kRows[] = {CRV_ERROR_LIST(CRV_ROW, CRV_SAME)};

#undef CRV_ROW
#undef CRV_SAME

}  // namespace

const ErrorRow* findErrorRow(long code) noexcept {
    const auto* row = std::ranges::find(kRows, code, &ErrorRow::code);
    return row == std::end(kRows) ? nullptr : row;
}

}  // namespace crv
