// The two ways of fetching.
#pragma once

#include "answer.h"

namespace crv::fetch {

/// HTTP, HTTPS, FTP and files.
[[nodiscard]] FetchResult fetchByCurl(const FetchRequest& request, Answer& answer);
/// LDAP and LDAPS.
[[nodiscard]] FetchResult fetchByLdap(const FetchRequest& request, Answer& answer);

/// Whether a connection may go there: rules for addresses of URLs that a certificate or an answer named.
class AddressRule {
  public:
    /// `configured` is the URL of the profile's own row, to whose place everything may lead; null when there is none.
    AddressRule(const FetchRequest& request, const Url& target, UrlOrigin origin, const Url* configured);
    /// Why not, before anybody connects; empty when it may.
    [[nodiscard]] std::string fault() const;
    [[nodiscard]] bool admits(const sockaddr& address) const { return free_ || !isInnerAddress(address); }

  private:
    const Url& target_;
    bool free_;
    UrlOrigin origin_;
};

/// The certificates to trust: those of the request behind the system's, in PEM.
[[nodiscard]] std::string trustedRoots(const FetchRequest& request);

}  // namespace crv::fetch
