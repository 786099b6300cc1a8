#include "ops/module_status.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "misc/file_ops.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "ops/op_error.h"
#include "pkcs11/p11_device.h"

namespace crv {
namespace {

constexpr char kModuleName[] = "libcorvane-pkcs11.so";
/// The user's files for p11-kit (its p11_path_expand: an empty XDG_CONFIG_HOME is none).
std::string userFolder() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    return (config && *config ? std::string(config) : expandHome("~/.config")) + "/pkcs11/modules";
}

/// Where p11-kit looks for files that name modules (pkcs11.conf(5)); for the superuser it leaves the user's alone.
std::vector<std::string> moduleFolders() {
    std::vector<std::string> folders{"/etc/pkcs11/modules", CRV_P11KIT_FILES};
    if (::geteuid() != 0) folders.insert(folders.begin(), userFolder());
    return folders;
}

/// A word of a shell's command line.
std::string shellWord(std::string_view word) {
    std::string text = "'";
    for (const char c : word) text += c == '\'' ? "'\\''" : std::string(1, c);
    return text + "'";
}

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

/// The first file whose module is there, with its path; those before whose module is not.
void findRegistration(ModuleStatus& status) {
    for (const std::string& folder : moduleFolders()) {
        std::vector<std::string> names;
        if (fileOps().list(folder, names) != 0) continue;
        std::ranges::sort(names);
        for (const std::string& name : names) {
            const std::string file = folder + "/" + name;
            if (!name.ends_with(".module")) continue;
            std::string library = moduleOf(file);
            if (library.empty()) continue;
            if (!fileExists(library)) {
                status.stale.push_back(file);
                continue;
            }
            status.library = std::move(library);
            status.registration = file;
            return;
        }
    }
}

std::string installedModule() {
    std::string own;
    if (fileOps().readlink("/proc/self/exe", own) == 0) {
        const auto folder = std::filesystem::path(own).parent_path();
        for (const char* way : {"../lib", CRV_MODULE_FROM_PROGRAM}) {
            const auto path = (folder / way / kModuleName).lexically_normal();
            if (fileExists(path.string())) return path.string();
        }
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
    if (status.registration.empty()) {
        status.library = installedModule();
        const std::string folder = shellWord(moduleFolders().front());
        status.remedy = "mkdir -p " + folder + " && echo " + shellWord("module: " + status.library) + " > " + folder +
                        "/corvane.module";
    }
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
