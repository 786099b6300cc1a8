#include "net/url.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "misc/ascii.h"

namespace crv {

namespace {

struct SchemeRow {
    std::string_view name;
    UrlScheme scheme;
    long port;
};
constexpr SchemeRow kSchemes[] = {{"http", UrlScheme::Http, 80},  {"https", UrlScheme::Https, 443},
                                  {"ldap", UrlScheme::Ldap, 389}, {"ldaps", UrlScheme::Ldaps, 636},
                                  {"ftp", UrlScheme::Ftp, 21},    {"file", UrlScheme::File, 0}};
constexpr long kFirstFreePort = 1024;

bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == ':';
}

bool isGraphic(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c > ' ' && c != 0x7F; });
}

/// "host:port" or "[address]:port"; false for what is neither.
bool splitPlace(std::string_view place, Url& url) {
    std::string_view host = place, port;
    if (place.starts_with('[')) {
        const size_t end = place.find(']');
        if (end == std::string_view::npos) return false;
        host = place.substr(1, end - 1);
        port = place.substr(end + 1);
        if (!port.empty() && !port.starts_with(':')) return false;
        port.remove_prefix(port.empty() ? 0 : 1);
    } else if (const size_t colon = place.find(':'); colon != std::string_view::npos) {
        host = place.substr(0, colon);
        port = place.substr(colon + 1);
        if (port.find(':') != std::string_view::npos) return false;
    }
    url.host.assign(host);
    std::ranges::transform(url.host, url.host.begin(), [](char c) { return asciiLower(c); });
    if (!std::ranges::all_of(url.host, isHostCharacter)) return false;
    if (port.empty()) return true;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), url.port);
    return error == std::errc() && end == port.data() + port.size() && url.port > 0 && url.port <= 65535;
}

bool isInnerIpv4(uint32_t address) {
    const uint32_t first = address >> 24;
    return first == 0 || first == 127 || address >> 16 == 0xA9FE || first >= 224;
}

bool isInnerIpv6(const in6_addr& address) {
    const uint8_t* octets = address.s6_addr;
    uint32_t last = 0;
    std::memcpy(&last, octets + 12, sizeof last);
    const bool zeros = std::all_of(octets, octets + 10, [](uint8_t octet) { return octet == 0; });
    // ::1, ::, IPv4 in its compatible and mapped forms.
    if (zeros && ((octets[10] == 0xFF && octets[11] == 0xFF) || (octets[10] == 0 && octets[11] == 0)))
        return isInnerIpv4(ntohl(last)) || ntohl(last) == 1;
    // IPv4 behind a translator (RFC 6052 2.1, RFC 8215, RFC 7915 1).
    static constexpr uint8_t kTranslated[12] = {0, 0x64, 0xFF, 0x9B}, kLocal[6] = {0, 0x64, 0xFF, 0x9B, 0, 1},
                             kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    if (std::memcmp(octets, kTranslated, sizeof kTranslated) == 0 || std::memcmp(octets, kLocal, sizeof kLocal) == 0 ||
        std::memcmp(octets, kMapped, sizeof kMapped) == 0) {
        return isInnerIpv4(ntohl(last));
    }
    // 6to4 has it at the front (RFC 3056 2).
    if (octets[0] == 0x20 && octets[1] == 0x02) {
        std::memcpy(&last, octets + 2, sizeof last);
        return isInnerIpv4(ntohl(last));
    }
    return octets[0] == 0xFF || (octets[0] == 0xFE && (octets[1] & 0xC0) == 0x80);
}

/// A host that is written as an address is judged before anybody connects: behind a proxy nobody else does.
bool isInnerHost(std::string host) {
    if (host.ends_with('.')) host.pop_back();  // the root's, which resolvers pass over
    sockaddr_in ipv4{};
    sockaddr_in6 ipv6{};
    ipv4.sin_family = AF_INET;
    ipv6.sin6_family = AF_INET6;
    if (host == "localhost" || host.ends_with(".localhost")) return true;
    // inet_aton takes the forms that resolvers take, as "127.1" and "0x7f000001".
    if (inet_aton(host.c_str(), &ipv4.sin_addr) != 0) return isInnerAddress(reinterpret_cast<const sockaddr&>(ipv4));
    return inet_pton(AF_INET6, host.c_str(), &ipv6.sin6_addr) == 1 &&
           isInnerAddress(reinterpret_cast<const sockaddr&>(ipv6));
}

}  // namespace

Url parseUrl(std::string_view text) {
    Url url;
    const size_t colon = text.find("://");
    if (!isGraphic(text) || colon == std::string_view::npos) return url;
    const auto* row = std::ranges::find_if(
        kSchemes, [&](const SchemeRow& one) { return equalIgnoreCase(one.name, text.substr(0, colon)); });
    if (row != std::end(kSchemes)) {
        url.scheme = row->scheme;
        url.port = row->port;
    }
    text.remove_prefix(colon + 3);
    const size_t end = std::min(text.find_first_of("/?#\\"), text.size());
    std::string_view place = text.substr(0, end);
    url.rest = text.substr(end);
    if (const size_t at = place.rfind('@'); at != std::string_view::npos) {
        url.hasLogin = true;
        place.remove_prefix(at + 1);
    }
    url.valid = splitPlace(place, url) && !url.rest.starts_with('\\');
    return url;
}

std::string urlForPeople(std::string_view text) {
    std::string shown;
    const size_t colon = text.find("://");
    if (colon != std::string_view::npos) {
        shown = text.substr(0, colon + 3);
        text.remove_prefix(colon + 3);
        const std::string_view place = text.substr(0, text.find_first_of("/?#"));
        if (const size_t at = place.rfind('@'); at != std::string_view::npos) text.remove_prefix(at + 1);
    }
    shown += text;
    std::ranges::replace_if(
        shown, [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; }, '?');
    return shown;
}

std::string percentEncoded(std::string_view text, std::string_view keep) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    for (const char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           std::string_view("-._~").find(c) != std::string_view::npos ||
                           keep.find(c) != std::string_view::npos;
        if (plain) {
            out += c;
        } else {
            const auto octet = static_cast<unsigned char>(c);
            out += {'%', kDigits[octet >> 4], kDigits[octet & 15]};
        }
    }
    return out;
}

std::string escapedFilterValue(std::string_view value) {
    static constexpr std::string_view kSpecial("*()\\\0", 5);
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const char c : value) {
        if (kSpecial.find(c) == std::string_view::npos) {
            out += c;
        } else {
            out += {'\\', kDigits[static_cast<unsigned char>(c) >> 4], kDigits[static_cast<unsigned char>(c) & 15]};
        }
    }
    return out;
}

std::string faultOfUrl(const Url& url, UrlOrigin origin) {
    static constexpr long kPorts[] = {80, 443, 389, 636, 21};
    if (!url.valid || url.scheme == UrlScheme::Other) return "no URL of a kind that is fetched";
    if (url.host.empty() && url.scheme != UrlScheme::File) return "no host";
    if (origin == UrlOrigin::Configured) return {};
    if (origin == UrlOrigin::Redirect && url.scheme != UrlScheme::Http && url.scheme != UrlScheme::Https)
        return "a redirect may lead to http and https only";
    if (url.scheme == UrlScheme::File) return "a file must not be named there";
    if (url.hasLogin) return "a login must not stand there";
    if (url.port < kFirstFreePort && std::ranges::find(kPorts, url.port) == std::end(kPorts)) return "forbidden port";
    return {};
}

bool isInnerAddress(const sockaddr& address) {
    if (address.sa_family == AF_INET)
        return isInnerIpv4(ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr));
    if (address.sa_family == AF_INET6) return isInnerIpv6(reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
    return true;
}

bool isInner(const Url& url) {
    return isInnerHost(url.host);
}

bool isAllowed(std::string_view list, std::string_view host, long port) {
    const bool bracketed = host.find(':') != std::string_view::npos;
    const std::string wanted =
        (bracketed ? "[" + std::string(host) + "]" : std::string(host)) + ":" + std::to_string(port);
    while (!list.empty()) {
        const size_t end = std::min(list.find(';'), list.size());
        std::string_view entry = list.substr(0, end);
        list.remove_prefix(std::min(end + 1, list.size()));
        entry.remove_prefix(std::min(entry.find_first_not_of(' '), entry.size()));
        entry = entry.substr(0, entry.find_last_not_of(' ') + 1);
        if (equalIgnoreCase(entry, wanted)) return true;
    }
    return false;
}

}  // namespace crv
