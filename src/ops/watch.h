// What of a profile ends, and when: certificates of the keys in use, trust points, revocation lists.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace crv {

class Session;

enum class WatchedKind { Certificate, TrustPoint, RevocationList };

struct Watched {
    WatchedKind kind;
    std::string name;             ///< of the subject, of a list its issuer, as RFC 4514 writes it
    std::optional<int64_t> ends;  ///< seconds since 1970 UTC; nothing where it does not say
};
using WatchedVisitor = std::function<void(const Watched&)>;

/// Of an open key store. A key that another one replaced may end: its certificate is passed over.
void watchKeys(Session& session, const WatchedVisitor& visit);

/// Of the database; nothing where the profile has none. Throws OpError (DatabaseFailed).
void watchDatabase(Session& session, const WatchedVisitor& visit);

}  // namespace crv
