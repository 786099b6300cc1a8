#include "ops/module_status.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "misc/exceptions.h"
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

/// Where p11-kit looks for files that name modules (pkcs11.conf(5)); for the superuser it leaves the user's alone, and
/// without a home nobody has any.
std::vector<std::string> moduleFolders() {
    std::vector<std::string> folders{"/etc/pkcs11/modules", CRV_P11KIT_FILES};
    const std::string own = userFolder();
    if (::geteuid() != 0 && own.starts_with('/')) folders.insert(folders.begin(), own);
    return folders;
}

/// A word of a shell's command line.
std::string shellWord(std::string_view word) {
    std::string text = "'";
    for (const char c : word) text += c == '\'' ? "'\\''" : std::string(1, c);
    return text + "'";
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    const size_t from = text.find_first_not_of(kBlanks);
    return from == std::string_view::npos ? "" : text.substr(from, text.find_last_not_of(kBlanks) + 1 - from);
}

/// What the files of one name say together; the first to give a field decides it, and is the file that counts.
struct Registration {
    struct Field {
        std::string value;
        std::string file;
    };
    std::map<std::string, Field, std::less<>> fields;

    void add(const std::string& file, std::string_view text) {
        while (!text.empty()) {
            const size_t end = std::min(text.find('\n'), text.size());
            const std::string_view line = trimmed(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
            const size_t colon = line.find(':');
            if (line.starts_with('#') || colon == std::string_view::npos) continue;
            fields.try_emplace(std::string(trimmed(line.substr(0, colon))),
                               Field{std::string(trimmed(line.substr(colon + 1))), file});
        }
    }

    /// The field by which it names our module, and its path; null for another module, and for one that a blank name
    /// switches off.
    const Field* ours(std::string& path) const {
        const auto module = fields.find("module"), remote = fields.find("remote");
        const bool isRemote = remote != fields.end() && !remote->second.value.empty();
        if (!isRemote && module == fields.end()) return nullptr;
        const Field& field = isRemote ? remote->second : module->second;
        // The last word of "|p11-kit remote /path".
        path = isRemote ? field.value.substr(field.value.find_last_of(" \t") + 1) : field.value;
        if (std::filesystem::path(path).filename() != kModuleName) return nullptr;
        if (!path.starts_with('/')) path.insert(0, CRV_P11KIT_MODULES "/");
        return &field;
    }
};

/// By the names of files, as p11-kit merges them.
std::map<std::string, Registration> registrations(ModuleStatus& status) {
    std::map<std::string, Registration> found;
    for (const std::string& folder : moduleFolders()) {
        std::vector<std::string> names;
        if (fileOps().list(folder, names) != 0) continue;
        for (const std::string& name : names) {
            const std::string file = folder + "/" + name;
            if (!name.ends_with(".module")) continue;
            try {
                found[name].add(file, asText(readFile(file)));
            } catch (const StoreError&) {
                status.unreadable.push_back(file);
            }
        }
    }
    return found;
}

/// The first file whose module is there, with its path; those whose module is not.
void findRegistration(ModuleStatus& status) {
    for (const auto& [name, registration] : registrations(status)) {
        std::string path;
        const Registration::Field* field = registration.ours(path);
        if (!field) continue;
        if (!fileExists(path)) {
            status.stale.push_back(field->file);
        } else if (status.registration.empty()) {
            status.library = path;
            status.registration = field->file;
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
        status.remedy = "mkdir -p " + folder + " && printf '%s\\n' " + shellWord("module: " + status.library) + " > " +
                        folder + "/corvane.module";
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
