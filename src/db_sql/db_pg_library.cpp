#include "db_sql/db_pg_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>

#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/path.h"

namespace crv {

namespace {

constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;

[[noreturn]] void failPlugin(const std::string& what, const std::string& remedy) {
    throw StoreError(StoreCause::Unreachable, "Brak obsługi baz PostgreSQL: " + what + ". " + remedy);
}

/// A folder in which only the owner of a file may rename it counts as not writable.
bool isSafe(const std::string& path) {
    struct stat info {};
    if (fileOps().stat(path, &info) != 0 || (info.st_uid != 0 && info.st_uid != geteuid())) return false;
    return (info.st_mode & kOthersWrite) == 0 || (S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0);
}

std::string findPlugin() {
    const std::string own = programFolder(), file = kPgPluginFile;
    for (const std::string& path : {own + file, own + "../lib/" + file, own + "../libexec/corvane/" + file,
                                    std::string(CRV_LIBEXEC_DIR "/") + file}) {
        std::error_code none;
        const std::filesystem::path real = std::filesystem::canonical(path, none);
        if (path.starts_with('/') && !none) return real.string();
    }
    failPlugin("nie znaleziono modułu " + file,
               "Zainstaluj pakiet corvane-pg (albo moduł w " CRV_LIBEXEC_DIR " i bibliotekę libpq5)");
}

const PgFunctions* loadPlugin() {
    const std::string path = findPlugin();
    if (const std::string open = writableByOthers(path); !open.empty())
        failPlugin("inni użytkownicy mogą zmienić " + open, "Odbierz im prawo zapisu");
    // It stays: libpq keeps state of its own in threads and in libcrypto.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) failPlugin(orEmpty(dlerror()), "Zainstaluj bibliotekę libpq5");
    const auto entry = reinterpret_cast<PgPluginEntry>(dlsym(handle, kPgPluginSymbol));
    const PgFunctions* functions = entry ? entry() : nullptr;
    if (!functions || functions->version != kPgPluginVersion)
        failPlugin("moduł " + path + " jest innej wersji niż program", "Zainstaluj moduł tej samej wersji");
    return functions;
}

}  // namespace

std::string writableByOthers(const std::string& path) {
    for (std::filesystem::path part = path; !part.empty(); part = part.parent_path()) {
        if (!isSafe(part.string())) return part.string();
        if (part == part.root_path()) break;
    }
    return {};
}

const PgFunctions& pgFunctions() {
    static std::mutex mutex;
    static const PgFunctions* functions = nullptr;
    const std::scoped_lock guard(mutex);
    if (!functions) functions = loadPlugin();
    return *functions;
}

}  // namespace crv
