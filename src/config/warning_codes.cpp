#include "config/warning_codes.h"

namespace crv {
namespace {

#define CRV_WARNING_ROW(number, constant, text) {number, #constant ": " text},
constexpr struct {
    long code;
    const char* text;
} kWarnings[] = {CRV_WARNING_LIST(CRV_WARNING_ROW)};
#undef CRV_WARNING_ROW

}  // namespace

const char* warningText(long code) noexcept {
    for (const auto& row : kWarnings)
        if (row.code == code) return row.text;
    return nullptr;
}

}  // namespace crv
