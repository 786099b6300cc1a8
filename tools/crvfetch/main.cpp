// crvfetch: fetches one thing for the library, which starts it with a request on standard input. Not for people.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "confinement.h"
#include "fetchers.h"
#include "misc/byte_order.h"
#include "misc/file_ops.h"

namespace crv::fetch {

AddressRule::AddressRule(const FetchRequest& request, const Url& target, UrlOrigin origin, const Url* configured)
    : target_(target), origin_(origin) {
    const bool own = configured && configured->host == target.host && configured->port == target.port;
    free_ = origin == UrlOrigin::Configured || own || isAllowed(request.allowed, target.host, target.port);
}

std::string AddressRule::fault() const {
    std::string why = faultOfUrl(target_, origin_);
    if (why.empty() && !free_ && isInner(target_)) why = "an address of this machine or of its own net";
    return why;
}

std::string trustedRoots(const FetchRequest& request) {
    std::ifstream system("/etc/ssl/certs/ca-certificates.crt", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(system), {}) + "\n" + request.roots;
}

namespace {

constexpr uint64_t kLongestRequest = uint64_t{64} << 20;

std::optional<FetchRequest> readRequest() {
    uint8_t header[8];
    if (readUpTo(STDIN_FILENO, header, sizeof header, -1) != sizeof header) return std::nullopt;
    const auto size = loadLe<uint64_t>(header);
    if (size > kLongestRequest) return std::nullopt;
    SecretBytes octets(size);
    if (readUpTo(STDIN_FILENO, octets.data(), size, -1) != static_cast<ssize_t>(size)) return std::nullopt;
    return decodeRequest(octets);
}

FetchResult fetch(const FetchRequest& request) {
    Answer answer(request);
    const UrlScheme scheme = parseUrl(request.url).scheme;
    const bool ldap = scheme == UrlScheme::Ldap || scheme == UrlScheme::Ldaps;
    FetchResult result = ldap ? fetchByLdap(request, answer) : fetchByCurl(request, answer);
    if (!answer.tooLong()) return result;
    return outcome(FetchOutcome::TooLong, "longer than the limit of " + std::to_string(request.maxSize) + " octets",
                   request.url);
}

int run() {
    if (isatty(STDIN_FILENO) != 0) {
        std::fputs("crvfetch is started by the programs of the package; it does nothing by itself.\n", stdout);
        return 2;
    }
    // The LDAP library would take its trust from files of the folder it runs in, too.
    if (setenv("LDAPNOINIT", "1", 1) != 0 || chdir("/") != 0 || !confine()) {
        Answer::end(outcome(FetchOutcome::NoHelper, "crvfetch cannot confine itself", ""));
        return 1;
    }
    const std::optional<FetchRequest> request = readRequest();
    if (!request) return 1;
    try {
        Answer::end(fetch(*request));
    } catch (const std::bad_alloc&) {
        Answer::end(outcome(FetchOutcome::TooLong, "more than the memory that a fetch may take", request->url));
    }
    return 0;
}

}  // namespace
}  // namespace crv::fetch

int main() {
    return crv::fetch::run();
}
