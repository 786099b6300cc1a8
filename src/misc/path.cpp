#include "misc/path.h"

#include <cstdlib>

namespace crv {

std::string expandHome(std::string_view path) {
    if (!path.starts_with("~/")) return std::string(path);
    const char* home = std::getenv("HOME");
    std::string_view rest = path.substr(2);
    return home && *home ? std::string(home).append("/").append(rest) : std::string(rest);
}

}  // namespace crv
