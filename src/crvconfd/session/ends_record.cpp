#include "crvconfd/session/ends_record.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "keystore/key_manager.h"
#include "misc/atomic_write.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/path.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

constexpr size_t kLongestRecord = size_t{1} << 20;

/// Empty without a home.
std::string recordPath() {
    const std::string state = orEmpty(std::getenv("XDG_STATE_HOME"));
    if (state.starts_with('/')) return state + "/corvane/ends";
    return viewOrEmpty(std::getenv("HOME")).empty() ? std::string() : expandHome("~/.local/state/corvane/ends");
}

/// Nothing after a note: a console without stars is better than none.
Bytes recordOctets(const std::string& path) try {
    std::error_code none;
    if (path.empty() || !fileExists(path)) return {};
    if (std::filesystem::is_regular_file(path, none)) return readFile(path, kLongestRecord);
    note("Zapis terminów profili nie jest plikiem: " + path);
    return {};
} catch (const StoreError& failure) {
    note("Nie odczytano terminów profili: " + path + ": " + failure.what());
    return {};
}

int64_t earliestEnd() {
    int64_t earliest = INT64_MAX;
    const auto take = [&](const CertPtr& certificate) {
        if (certificate)
            earliest = std::min(earliest, certificate->tbs.validity.notAfter.seconds().value_or(INT64_MAX));
    };
    for (const StoredKey& key : keyManager->keys())
        if (key.role != KeyRole::Further) take(keyManager->certificateOf(key));
    for (const TrustPoint& point : keyManager->trustedPoints()) take(point.certificate);
    return earliest;
}

}  // namespace

std::string endsName(const std::string& path) {
    std::error_code error;
    const auto absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.lexically_normal().string();
}

EndsRecord readEnds() {
    EndsRecord record;
    const Bytes octets = recordOctets(recordPath());
    std::string_view rest = asText(octets);
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        int64_t ends = 0;
        const auto [behind, error] = std::from_chars(line.data(), line.data() + line.size(), ends);
        const auto digits = static_cast<size_t>(behind - line.data());
        if (error == std::errc() && digits < line.size())
            record.insert_or_assign(std::string(line.substr(digits + 1)), ends);
    }
    return record;
}

void rememberEnds() {
    const std::string path = recordPath(), file = endsName(cfgManager->securityFileName());
    if (path.empty() || cfgManager->keyMedium() != KeyMedium::File || file.find('\n') != std::string::npos) return;
    EndsRecord record = readEnds();
    const auto known = record.find(file);
    const int64_t earliest = earliestEnd();
    if (known == record.end() ? earliest == INT64_MAX : known->second == earliest) return;
    record.insert_or_assign(file, earliest);
    std::string text;
    for (const auto& [name, ends] : record)
        if (ends != INT64_MAX) text += std::to_string(ends) + " " + name + "\n";
    if (!createDirectoryPath(folderOf(path), 0700) ||
        !writeFileAtomically(path, asBytes(text), {.mode = WriteMode::KeepOrSecret})) {
        note("Nie zapisano terminów profilu: " + path);
    }
}

}  // namespace crv
