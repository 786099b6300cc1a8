#include "pki/network_sources.h"

#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "misc/base64_file.h"
#include "misc/path.h"

namespace crv {

namespace {

struct SchemeOfType {
    long type;
    const char* plain;
    const char* tls;  ///< with the row's TLS 1
};
/// FTP keeps its scheme: its TLS is asked for on the connection.
constexpr SchemeOfType kSchemesOfTypes[] = {{CRVSRV_TYPE_LDAP, "ldap://", "ldaps://"},
                                            {CRVSRV_TYPE_HTTP, "http://", "https://"},
                                            {CRVSRV_TYPE_FTP, "ftp://", "ftp://"},
                                            {CRVSRV_TYPE_FILE, "file://", "file://"}};

/// "host:port", an IPv6 address in brackets; 0: without the port.
std::string placeOf(const std::string& address, long port) {
    const bool bare = address.find(':') != std::string::npos && !address.starts_with('[');
    return (bare ? "[" + address + "]" : address) + (port == 0 ? std::string() : ":" + std::to_string(port));
}

/// "dn?attributes?scope?filter" (RFC 4516 2).
std::string ldapRest(const std::string& entry, const NetObject& object) {
    return "/" + percentEncoded(entry, "=,") + "?" + object.attributes + "?" +
           (object.filter.empty() ? "base" : "sub") + "?" +
           percentEncoded(object.filter.empty() ? "(objectClass=*)" : object.filter, "()=&|*");
}

std::string pathOf(const SrvParams& server) {
    const std::string path = server.path.starts_with('/') || server.path.empty() ? server.path : "/" + server.path;
    return path.empty() ? "/" : path;
}

/// A path as people write it, with spaces and letters of theirs; what is encoded already stays.
std::string encodedPath(const SrvParams& server) {
    return percentEncoded(pathOf(server), "/%?&=+;:@!$'()*,#");
}

bool isLdap(UrlScheme scheme) {
    return scheme == UrlScheme::Ldap || scheme == UrlScheme::Ldaps;
}

}  // namespace

long NetSources::option(long id) const {
    return context_.configuration().record().getIntOpt(id);
}

bool NetSources::networkIsOff() const {
    return option(kOptNoNet) != 0;
}

const std::string& NetSources::roots() {
    if (!roots_.empty()) return roots_;
    for (const CertPtr& one : certificates_.trustPoints()) {
        std::string text = toBase64(encodingOf(*one));
        for (size_t at = 64; at < text.size(); at += 65) text.insert(at, "\n");
        roots_ += "-----BEGIN CERTIFICATE-----\n" + text + "\n-----END CERTIFICATE-----\n";
    }
    return roots_;
}

void NetSources::finish(FetchRequest& request, const NetObject& object) {
    request.body = object.body;
    request.contentType = object.contentType;
    request.maxSize = object.limits.maxSize;
    request.maxValues = object.limits.maxValues;
    request.totalTime = object.limits.totalTime;
    const long seconds = option(kOptConnectTimeout);
    if (seconds > 0) request.connectTime = static_cast<uint64_t>(seconds) * 1000;
    const long whole = object.limits.certificates ? option(kOptNetCertTimeout) : 0;
    if (whole > 0) request.totalTime = static_cast<uint64_t>(whole) * 1000;
    if (whole == 0 && object.limits.certificates && seconds > 0) request.totalTime = request.connectTime;
    const UrlScheme scheme = parseUrl(request.url).scheme;
    if (scheme == UrlScheme::Https || scheme == UrlScheme::Ldaps || request.tls != FetchTls::None)
        request.roots = roots();
    const CrvProfile* profile = context_.configuration().profile();
    if (!profile) return;
    request.allowed = profile->netAllow();
    Proxy proxy;
    if (!profile->getProxyForUrl(request.url, proxy)) return;
    request.proxy = placeOf(proxy.addr, proxy.port);
    request.proxyUser = proxy.user;
    request.proxyPassword = proxy.password;
}

NetAttempt NetSources::of(const SrvParams& server, const NetObject& object) {
    NetAttempt attempt;
    attempt.server = server.name;
    FetchRequest& request = attempt.request;
    const auto* row = std::ranges::find(kSchemesOfTypes, server.type, &SchemeOfType::type);
    request.url = server.tls == CRVSRV_TLS_ALWAYS ? row->tls : row->plain;
    request.tls = static_cast<FetchTls>(server.tls);
    request.user = server.user;
    request.password = server.pass;
    request.systemLogin = server.winAuth;
    if (server.type == CRVSRV_TYPE_FILE) {
        // Without a slash before it the beginning would be taken for a host.
        const std::string path = expandHome(server.path);
        request.url += percentEncoded(path.starts_with('/') ? path : "/" + path, "/");
    } else if (server.type == CRVSRV_TYPE_LDAP) {
        const std::string base = pathOf(server).substr(1);
        request.url += placeOf(server.addr, server.port) + ldapRest(base.empty() ? object.entry : base, object);
    } else {
        request.url += placeOf(server.addr, server.port) + encodedPath(server);
        if (server.type == CRVSRV_TYPE_HTTP && !object.query.empty())
            request.url += (server.path.find('?') == std::string::npos ? "?" : "&") + object.query;
    }
    finish(request, object);
    return attempt;
}

NetAttempts NetSources::servers(ServerUsage usage, ByteView authority, const NetObject& object) {
    NetAttempts attempts;
    const CrvProfile* profile = context_.configuration().profile();
    if (!profile) return attempts;
    for (const SrvParams& server : profile->getServerIterator(usage, authority).servers)
        attempts.push_back(of(server, object));
    return attempts;
}

void NetSources::addUri(NetAttempts& attempts, const std::string& uri, const NetObject& object) {
    const Url url = parseUrl(uri);
    if (isLdap(url.scheme) && url.host.empty() && url.valid) {
        // No host stands in it: the directory is the one that the profile knows (RFC 4516 2).
        const CrvProfile* profile = context_.configuration().profile();
        for (const auto& [sequence, server] : profile ? profile->servers() : std::map<long, SrvParams>()) {
            if (server.type != CRVSRV_TYPE_LDAP) continue;
            NetAttempt attempt = of(server, object);
            attempt.request.url = attempt.request.url.substr(0, attempt.request.url.find('/', 8)) + url.rest;
            attempt.request.origin = UrlOrigin::Certificate;
            const Url place = parseUrl(attempt.request.url);
            attempt.request.allowed += ";" + placeOf(place.host, place.port);
            attempts.push_back(std::move(attempt));
        }
        return;
    }
    NetAttempt attempt;
    attempt.request.url = uri;
    attempt.request.origin = UrlOrigin::Certificate;
    finish(attempt.request, object);
    attempts.push_back(std::move(attempt));
}

void NetSources::addUris(NetAttempts& attempts, const SignedCertificate& certificate,
                         const std::vector<std::string>& uris, const NetObject& object) {
    if (option(kOptAutoCrlCrtDownload) == 0) return;
    size_t& asked = urisOf_[certificate.fingerprint(KcHashAlgo::Sha256)];
    for (const std::string& uri : uris) {
        const Url url = parseUrl(uri);
        const bool hostless = isLdap(url.scheme) && url.host.empty() && url.valid;
        if (!hostless && !faultOfUrl(url, UrlOrigin::Certificate).empty()) continue;
        if (asked == kMostUrisOfCertificate || urisLeft_ == 0) return;
        ++asked;
        --urisLeft_;
        addUri(attempts, uri, object);
    }
}

}  // namespace crv
