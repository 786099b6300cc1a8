#include "profiles/proxy_settings.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "corvane/crverrors.h"
#include "misc/ascii.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/hex.h"
#include "profiles/attr_set.h"
#include "profiles/hidden_password.h"
#include "profiles/universal_conf_mgr.h"

namespace crv {
namespace {

constexpr long kDefaultPort = 8080;

std::string_view scheme(std::string_view url) {
    const size_t end = url.find("://");
    return end == std::string_view::npos ? std::string_view() : url.substr(0, end);
}

/// "user:password@host:port" of a URL.
std::string_view authority(std::string_view url) {
    const size_t start = url.find("://");
    if (start != std::string_view::npos) url.remove_prefix(start + 3);
    return url.substr(0, url.find_first_of("/?#"));
}

/// Splits "host:port", with brackets around an IPv6 address.
std::string_view hostOf(std::string_view place, std::string_view& port) {
    const size_t end = place.starts_with('[') ? place.find(']') : place.find(':');
    if (end == std::string_view::npos) return place;
    const bool bracketed = place[end] == ']';
    port = place.substr(std::min(place.size(), end + (bracketed ? 2 : 1)));
    return bracketed ? place.substr(1, end - 1) : place.substr(0, end);
}

std::string_view hostOfUrl(std::string_view url) {
    std::string_view place = authority(url), port;
    place.remove_prefix(place.rfind('@') + 1);
    return hostOf(place, port);
}

bool isLocal(std::string_view host) {
    return equalIgnoreCase(host, "localhost") || host.starts_with("127.") || host == "::1";
}

/// Whether a list such as "localhost,.example.org" names the host or a domain above it.
bool listed(std::string_view list, std::string_view host) {
    while (!list.empty()) {
        const size_t end = std::min(list.find(','), list.size());
        std::string_view entry = list.substr(0, end);
        list.remove_prefix(std::min(end + 1, list.size()));
        entry.remove_prefix(std::min(entry.find_first_not_of(" ."), entry.size()));
        entry = entry.substr(0, entry.find_last_not_of(' ') + 1);
        if (entry == "*") return true;
        if (entry.empty() || host.size() < entry.size()) continue;
        const std::string_view tail = host.substr(host.size() - entry.size());
        const bool whole = host.size() == entry.size() || host[host.size() - entry.size() - 1] == '.';
        if (whole && equalIgnoreCase(tail, entry)) return true;
    }
    return false;
}

/// Undoes the percent-encoding of a login in a URL (RFC 3986 2.1); what is none stays.
SecretText decoded(std::string_view text) {
    SecretText plain;
    for (; !text.empty(); text.remove_prefix(1)) {
        const int octet = text.front() == '%' ? hexOctet(text.substr(1)) : -1;
        const char character = octet < 0 ? text.front() : static_cast<char>(octet);
        plain.append({&character, 1});
        if (octet >= 0) text.remove_prefix(2);
    }
    return plain;
}

}  // namespace

Proxy parseProxyUrl(std::string_view url) {
    Proxy proxy;
    std::string_view place = authority(url), port;
    const size_t at = place.rfind('@');
    if (at != std::string_view::npos) {
        const std::string_view login = place.substr(0, at);
        const size_t colon = std::min(login.find(':'), login.size());
        proxy.user = decoded(login.substr(0, colon)).view();
        proxy.password = decoded(login.substr(std::min(colon + 1, login.size())));
        place.remove_prefix(at + 1);
    }
    const std::string_view host = hostOf(place, port);
    proxy.port = kDefaultPort;
    auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), proxy.port);
    const bool wrongPort = !port.empty() && (error != std::errc() || end != port.data() + port.size());
    if (wrongPort || proxy.port < 1 || proxy.port > 65535) return {};
    proxy.addr = host;
    return proxy;
}

Proxy readSystemProxy() {
    Proxy proxy = parseProxyUrl(viewOrEmpty(std::getenv("http_proxy")));
    return proxy.defined() ? proxy : parseProxyUrl(viewOrEmpty(std::getenv("all_proxy")));
}

void ProxySettings::insertProxy(const std::string& addr, long port, const std::string& user,
                                const SecretText& password) {
    if (addr.empty() || !fitsList(addr) || addr.find_first_of(" \t/@") != std::string::npos)
        throw CrvApiException(ECRV_API_INV_PAR, "Niepoprawny adres serwera proxy");
    if (port < 1 || port > 65535) throw CrvApiException(ECRV_API_INV_PAR, "Niepoprawny port serwera proxy");
    if (!fitsList(user)) throw CrvApiException(ECRV_API_INV_PAR, "Niedozwolony znak w nazwie użytkownika proxy");
    own_ = {addr, port, user, password};
}

bool ProxySettings::getProxy(Proxy& proxy) const {
    proxy = useSystem_ ? system_ : own_;
    return proxy.defined();
}

bool ProxySettings::getProxyForUrl(std::string_view url, Proxy& proxy) const {
    if (useProxyForSpecifiedUrl(url)) return getProxy(proxy);
    proxy = {};
    return false;
}

bool ProxySettings::useProxyForSpecifiedUrl(std::string_view url) const {
    static constexpr std::string_view kSchemes[] = {"http", "https", "ftp"};
    const bool proxied = std::ranges::any_of(kSchemes, [&](auto known) { return equalIgnoreCase(scheme(url), known); });
    const std::string_view host = hostOfUrl(url);
    return proxied && !isLocal(host) && !(useSystem_ && listed(viewOrEmpty(std::getenv("no_proxy")), host));
}

void ProxySettings::setUseProxyFromSystemSettings(bool use) {
    useSystem_ = use;
    system_ = use ? readSystemProxy() : Proxy();
}

void ProxySettings::loadProxy(const UniversalConfMgr& store, const std::string& prefix) {
    const std::string path = prefix + "PROXY\\HTTP\\";
    std::string hidden;
    long useSystem = 0;
    own_ = {};
    store.getData(path + "ADDR", own_.addr);
    store.getData(path + "PORT", own_.port);
    store.getData(path + "USER", own_.user);
    if (store.getData(path + "PASS", hidden)) own_.password = revealPassword(hidden);
    store.getData(path + "USESYSTEMSETTINGS", useSystem);
    setUseProxyFromSystemSettings(useSystem != 0);
}

void ProxySettings::saveProxy(UniversalConfMgr& store, const std::string& prefix) const {
    const std::string path = prefix + "PROXY\\HTTP\\";
    store.setData((path + "USESYSTEMSETTINGS").c_str(), static_cast<long>(useSystem_));
    if (!own_.defined()) return;
    store.setData((path + "ADDR").c_str(), own_.addr.c_str());
    store.setData((path + "PORT").c_str(), own_.port);
    if (!own_.user.empty()) store.setData((path + "USER").c_str(), own_.user.c_str());
    if (!own_.password.empty()) store.setData((path + "PASS").c_str(), hidePassword(own_.password).c_str());
}

}  // namespace crv
