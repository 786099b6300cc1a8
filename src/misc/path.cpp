#include "misc/path.h"

#include <cstdlib>

#include "misc/file_ops.h"

namespace crv {

std::string expandHome(std::string_view path) {
    if (!path.starts_with("~/")) return std::string(path);
    const char* home = std::getenv("HOME");
    std::string_view rest = path.substr(2);
    return home && *home ? std::string(home).append("/").append(rest) : std::string(rest);
}

std::string programFolder() {
    std::string path;
    if (fileOps().readlink("/proc/self/exe", path) != 0) return {};
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

}  // namespace crv
