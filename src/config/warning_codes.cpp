#include "config/warning_codes.h"

namespace crv {
namespace {

constexpr struct {
    int code;
    const char* text;
} kWarnings[] = {
    {WARN_USER_CRT_NOT_VALID, "WARN_USER_CRT_NOT_VALID: Certyfikat użytkownika jest poza okresem ważności"},
    {WARN_NET_STORE_NOT_MOVED,
     "WARN_NET_STORE_NOT_MOVED: Nie wszystkie pobrane certyfikaty i listy CRL zapisano w bazie danych"},
};

}  // namespace

std::string warningText(int code) {
    for (const auto& row : kWarnings)
        if (row.code == code) return row.text;
    return "WARN_" + std::to_string(code);
}

}  // namespace crv
