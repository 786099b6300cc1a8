// URLs taken apart, and the rules that decide which of them may be asked.
#pragma once

#include <string>
#include <string_view>

#include "misc/bytes.h"

struct sockaddr;

namespace crv {

enum class UrlScheme { Other, Http, Https, Ldap, Ldaps, Ftp, File };

/// Components of a URL (RFC 3986 3) that rules look at.
struct Url {
    UrlScheme scheme = UrlScheme::Other;
    bool hasLogin = false;  ///< user information stands before the host
    std::string host;       ///< lower case, without the brackets of an IPv6 address; empty where there is none
    long port = 0;          ///< that of the scheme when the URL names none
    std::string rest;       ///< path, query and fragment, from its slash on
    bool valid = false;
};

/// `valid` is false for what is none: control characters, spaces, a port that is no number up to 65535, a host with
/// other characters than names and addresses have.
[[nodiscard]] Url parseUrl(std::string_view text);
/// The URL without a login, and without what could command a terminal, for messages.
[[nodiscard]] std::string urlForPeople(std::string_view text);
/// Everything but letters, digits and "-._~" as %XX (RFC 3986 2.1), and what `keep` names.
[[nodiscard]] std::string percentEncoded(std::string_view text, std::string_view keep = {});
/// A value inside a filter of an LDAP search (RFC 4515 3): "*", "(", ")", "\" and zero octets escaped.
[[nodiscard]] std::string escapedFilterValue(std::string_view value);

/// Who named a URL.
enum class UrlOrigin {
    Configured,   ///< a row of the profile's servers
    Certificate,  ///< a certificate: anybody may have written it
    Redirect      ///< an answer of a server
};

/// Why the URL must not be asked; empty when it may. A redirect may lead to http and https only; one that comes from a
/// certificate, or a redirect, to no login, no file, and the ports 80, 443, 389, 636, 21 and those above 1023.
[[nodiscard]] std::string faultOfUrl(const Url& url, UrlOrigin origin);

/// Whether an address is one that no certificate or redirect may lead to: loopback, link-local, multicast, unspecified,
/// also where IPv6 carries an IPv4 one.
[[nodiscard]] bool isInnerAddress(const sockaddr& address);
/// Whether the host of a URL is written as such an address, or as localhost.
[[nodiscard]] bool isInner(const Url& url);
/// Whether "host:port" stands in a list with ";" between, in any letter case.
[[nodiscard]] bool isAllowed(std::string_view list, std::string_view host, long port);

}  // namespace crv
