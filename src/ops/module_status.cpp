#include "ops/module_status.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <span>

#include "misc/file_ops.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "ops/op_error.h"
#include "pkcs11/p11_device.h"

namespace crv {
namespace {

constexpr char kModuleName[] = "libcorvane-pkcs11.so";
/// Where p11-kit looks for files that name modules (pkcs11.conf(5)).
constexpr const char* kModuleFolders[] = {"~/.config/pkcs11/modules", "/etc/pkcs11/modules", CRV_P11KIT_FILES};

/// The path that a p11-kit file names, when it is a module of this name; else empty.
std::string moduleOf(const std::string& file) {
    const Bytes octets = readFile(file);
    std::string_view rest = asText(octets);
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (!line.starts_with("module:")) continue;
        line.remove_prefix(line.find(':') + 1);
        while (line.starts_with(' ')) line.remove_prefix(1);
        while (line.ends_with(' ')) line.remove_suffix(1);
        if (std::filesystem::path(line).filename() != kModuleName) return {};
        return line.starts_with('/') ? std::string(line) : std::string(CRV_P11KIT_MODULES "/").append(line);
    }
    return {};
}

/// The first file that names the module, with the module's path.
void findRegistration(ModuleStatus& status) {
    // For the superuser p11-kit leaves the user's files alone.
    const bool all = ::geteuid() != 0;
    status.folder = kModuleFolders[all ? 0 : 1];
    for (const char* folder : std::span(kModuleFolders).subspan(all ? 0 : 1)) {
        const std::string path = expandHome(folder);
        std::vector<std::string> names;
        if (fileOps().list(path, names) != 0) continue;
        std::ranges::sort(names);
        for (const std::string& name : names) {
            const std::string file = path + "/" + name;
            if (!name.ends_with(".module")) continue;
            status.library = moduleOf(file);
            if (!status.library.empty()) return void(status.registration = file);
        }
    }
}

std::string installedModule() {
    std::string own;
    if (fileOps().readlink("/proc/self/exe", own) == 0) {
        const auto beside = std::filesystem::path(own).parent_path().parent_path() / "lib" / kModuleName;
        if (fileExists(beside.string())) return beside.string();
    }
    return std::string(CRV_MODULE_FOLDER "/") + kModuleName;
}

void demandModule(P11Result result, const std::string& path) {
    if (result != kP11Ok) throw OpError(OpFault::LibraryFailed, path + ": " + getP11DErrTxt(result));
}

}  // namespace

ModuleStatus moduleStatus() {
    ModuleStatus status;
    findRegistration(status);
    if (status.library.empty()) status.library = installedModule();
    if (!fileExists(status.library)) throw OpError(OpFault::FileMissing, status.library);
    PKCS11Device device;
    demandModule(device.initLibMap(status.library, true), status.library);
    demandModule(device.initSlots(true), status.library);
    for (int slot = 0; slot < device.slotCount(); ++slot) {
        P11TokenInfo token;
        if (device.getTokenInfo(slot, token) != kP11Ok) continue;  // gone since
        status.tokens.push_back({token.label, token.serial, std::to_string(device.slotId(slot))});
    }
    return status;
}

}  // namespace crv
