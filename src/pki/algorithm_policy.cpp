#include "pki/algorithm_policy.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "asn/asn_time.h"

namespace crv {

namespace {

struct HashName {
    std::string_view name;
    KcHashAlgo hash;
};
constexpr HashName kHashes[] = {
    {"md5", KcHashAlgo::Md5},
    {"sha1", KcHashAlgo::Sha1},
    {"sha224", KcHashAlgo::Sha224},
    {"sha256", KcHashAlgo::Sha256},
    {"sha384", KcHashAlgo::Sha384},
    {"sha512", KcHashAlgo::Sha512},
    {"ripemd128", KcHashAlgo::Ripemd128},
    {"ripemd160", KcHashAlgo::Ripemd160},
    {"sha3-224", KcHashAlgo::Sha3224},
    {"sha3-256", KcHashAlgo::Sha3256},
    {"sha3-384", KcHashAlgo::Sha3384},
    {"sha3-512", KcHashAlgo::Sha3512},
};

struct SchemeName {
    std::string_view name;
    KeyScheme scheme;
};
constexpr SchemeName kSchemes[] = {{"rsa", KeyScheme::Rsa}, {"dsa", KeyScheme::Dsa}, {"ec", KeyScheme::Ecdsa}};

constexpr int64_t kNever = std::numeric_limits<int64_t>::min(), kAlways = std::numeric_limits<int64_t>::max();
constexpr int64_t kLastSecondOfDay = 86399;

bool readNumber(std::string_view text, unsigned& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

std::optional<int64_t> untilOf(std::string_view text) {
    if (text == "never") return kNever;
    if (text == "always") return kAlways;
    unsigned year = 0, month = 0, day = 0;
    if (text.size() != 10 || text[4] != '-' || text[7] != '-' || !readNumber(text.substr(0, 4), year) ||
        !readNumber(text.substr(5, 2), month) || !readNumber(text.substr(8), day)) {
        return std::nullopt;
    }
    const auto begin = fromCivil({year, static_cast<int>(month), static_cast<int>(day), 0, 0, 0});
    return begin ? std::optional(*begin + kLastSecondOfDay) : std::nullopt;
}

std::string_view trimmed(std::string_view text) {
    const size_t first = std::min(text.find_first_not_of(" \n"), text.size());
    text.remove_prefix(first);
    return text.substr(0, text.find_last_not_of(" \n") + 1);
}

template <class Row, size_t N>
const Row* findName(const Row (&rows)[N], std::string_view name) {
    const Row* row = std::ranges::find(rows, name, &Row::name);
    return row == std::end(rows) ? nullptr : row;
}

}  // namespace

std::optional<AlgorithmPolicy::Entry> AlgorithmPolicy::entryOf(std::string_view text) {
    const size_t space = text.find(' '), less = text.find('<');
    if (space == std::string_view::npos) return std::nullopt;
    const auto until = untilOf(trimmed(text.substr(space)));
    if (!until) return std::nullopt;
    Entry entry{.text = std::string(text), .until = *until};
    if (less == std::string_view::npos) {
        const HashName* hash = findName(kHashes, text.substr(0, space));
        if (!hash) return std::nullopt;
        entry.hash = hash->hash;
        return entry;
    }
    const SchemeName* scheme = findName(kSchemes, text.substr(0, less));
    if (!scheme || less > space || !readNumber(text.substr(less + 1, space - less - 1), entry.bits))
        return std::nullopt;
    entry.scheme = scheme->scheme;
    return entry;
}

std::optional<AlgorithmPolicy> AlgorithmPolicy::fromText(std::string_view text) {
    AlgorithmPolicy policy;
    while (!text.empty()) {
        const size_t end = std::min(text.find(';'), text.size());
        if (const std::string_view one = trimmed(text.substr(0, end)); !one.empty()) {
            auto entry = entryOf(one);
            if (!entry) return std::nullopt;
            policy.entries_.push_back(std::move(*entry));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return policy;
}

template <class Fits>
AlgorithmPolicy::Answer AlgorithmPolicy::answer(int64_t time, Fits fits) const {
    Answer answer;
    for (const Entry& entry : entries_) {
        if (entry.until == kAlways || !fits(entry)) continue;
        answer.refused = answer.refused || time > entry.until;
        answer.weakness += (answer.weakness.empty() ? "" : "; ") + entry.text;
    }
    return answer;
}

bool AlgorithmPolicy::limits(KeyScheme scheme) const {
    return std::ranges::any_of(entries_, [&](const Entry& entry) { return entry.scheme == scheme; });
}

AlgorithmPolicy::Answer AlgorithmPolicy::hash(KcHashAlgo algo, int64_t time) const {
    return answer(time, [&](const Entry& entry) { return entry.hash != KcHashAlgo::None && entry.hash == algo; });
}

AlgorithmPolicy::Answer AlgorithmPolicy::key(KeyScheme scheme, unsigned bits, int64_t time) const {
    const KeyScheme family = scheme == KeyScheme::RsaPss ? KeyScheme::Rsa : scheme;
    return answer(time, [&](const Entry& entry) { return entry.scheme == family && bits < entry.bits; });
}

}  // namespace crv
