#include "db_sql/srv_store.h"

#include <charconv>
#include <sstream>

#include "db_sql/db_layout.h"
#include "misc/exceptions.h"
#include "misc/whole_file.h"

namespace crv {

void SrvMapStore::delSrv(const std::string& name) {
    change([&](Numbers& numbers) { numbers.erase(name); });
}

long SrvMapStore::getLastImportNr(const std::string& name) {
    const Numbers numbers = read();
    const auto found = numbers.find(name);
    return found == numbers.end() ? 0 : found->second;
}

void SrvStore::setLastImportNr(const std::string& name, long number) {
    if (name.empty() || name.find_first_of("\r\n") != std::string::npos) {
        throw StoreError(StoreCause::Refused, "DbSrv::setLastImportNr. Bledna nazwa serwera");
    }
    put(name, number);
}

void SrvMapStore::put(const std::string& name, long number) {
    change([&](Numbers& numbers) { numbers[name] = number; });
}

SrvCrv::SrvCrv(const std::string& directory, DbLock& lock)
    : path_(directory + std::string(kImportsFileName)), lock_(&lock) {}

SrvStore::Numbers SrvCrv::load() const {
    Numbers numbers;
    const Bytes content = readFile(path_);
    std::istringstream lines{std::string(asText(content))};
    for (std::string line; std::getline(lines, line);) {
        long number = 0;
        const char* end = line.data() + line.size();
        const auto [rest, failed] = std::from_chars(line.data(), end, number);
        if (failed == std::errc() && end - rest > 1 && *rest == ' ') numbers[std::string(rest + 1, end)] = number;
    }
    return numbers;
}

SrvStore::Numbers SrvCrv::read() {
    const DbGuard guard(*lock_, kSharedLock);
    return load();
}

void SrvCrv::change(const std::function<void(Numbers&)>& edit) {
    const DbGuard guard(*lock_, kExclusiveLock);
    Numbers numbers = load();
    edit(numbers);
    std::string content;
    for (const auto& [name, number] : numbers) content += std::to_string(number) + " " + name + "\n";
    writeFile(path_, asBytes(content));
}

SrvStore::Numbers SrvMem::read() {
    const std::scoped_lock guard(mutex_);
    return numbers_;
}

void SrvMem::change(const std::function<void(Numbers&)>& edit) {
    const std::scoped_lock guard(mutex_);
    edit(numbers_);
}

}  // namespace crv
