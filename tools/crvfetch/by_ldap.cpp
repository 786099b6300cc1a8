#include <fcntl.h>
#include <ldap.h>
#include <linux/tcp.h>
#include <netdb.h>
#include <netinet/in.h>

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "fetchers.h"
#include "misc/ascii.h"
#include "misc/file_ops.h"

// In libldap; its header keeps it to itself.
extern "C" int ldap_init_fd(ber_socket_t fd, int protocol, const char* url, LDAP** ld);
// NOLINTNEXTLINE(readability-identifier-naming)
#define CRV_LDAP_PROTO_TCP 1

namespace crv::fetch {

namespace {

using Clock = std::chrono::steady_clock;
using Millis = std::chrono::milliseconds;

constexpr uint64_t kLdapStallSpeed = 100;  // octets a second
constexpr std::string_view kAttributes[] = {"certificateRevocationList", "authorityRevocationList",
                                            "deltaRevocationList", "cACertificate", "userCertificate"};

struct LdapCodeRow {
    int code;
    FetchOutcome outcome;
};
constexpr LdapCodeRow kLdapCodes[] = {{LDAP_SERVER_DOWN, FetchOutcome::Closed},
                                      {LDAP_CONNECT_ERROR, FetchOutcome::Tls},
                                      {LDAP_TIMEOUT, FetchOutcome::Timeout},
                                      {LDAP_TIMELIMIT_EXCEEDED, FetchOutcome::Timeout},
                                      {LDAP_SIZELIMIT_EXCEEDED, FetchOutcome::TooLong},
                                      {LDAP_NO_MEMORY, FetchOutcome::TooLong},
                                      {LDAP_NO_SUCH_OBJECT, FetchOutcome::NotFound},
                                      {LDAP_NO_SUCH_ATTRIBUTE, FetchOutcome::NotFound},
                                      {LDAP_REFERRAL, FetchOutcome::NotFound},
                                      {LDAP_INVALID_CREDENTIALS, FetchOutcome::Denied},
                                      {LDAP_INAPPROPRIATE_AUTH, FetchOutcome::Denied},
                                      {LDAP_STRONG_AUTH_REQUIRED, FetchOutcome::Denied},
                                      {LDAP_CONFIDENTIALITY_REQUIRED, FetchOutcome::Denied},
                                      {LDAP_INSUFFICIENT_ACCESS, FetchOutcome::Denied}};

/// Ends the process with a time-out when the time is over or next to nothing comes: the library has no such limits.
void watch(int socket, const FetchRequest& request) {
    const auto end = Clock::now() + Millis(request.totalTime);
    std::string url = request.url;
    std::thread([socket, end, url = std::move(url), stall = Millis(request.stallTime)] {
        uint64_t before = 0;
        for (auto window = Clock::now() + stall; Clock::now() < end;) {
            std::this_thread::sleep_for(Millis(100));
            if (Clock::now() < window) continue;
            tcp_info info{};
            socklen_t size = sizeof info;
            if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return;
            const auto least = kLdapStallSpeed * static_cast<uint64_t>(stall.count()) / 1000;
            if (info.tcpi_bytes_received - before < least) break;
            before = info.tcpi_bytes_received;
            window = Clock::now() + stall;
        }
        Answer::end(outcome(FetchOutcome::Timeout, "the server is too slow", url));
        _exit(0);
    }).detach();
}

/// A connected socket, or why there is none.
class Connection {
  public:
    FetchResult open(const Url& url, const FetchRequest& request, const AddressRule& rule) {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* list = nullptr;
        const int error = getaddrinfo(url.host.c_str(), std::to_string(url.port).c_str(), &hints, &list);
        if (error != 0) return outcome(FetchOutcome::Unresolved, gai_strerror(error), request.url);
        const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
        FetchResult last;
        const auto end = Clock::now() + Millis(request.connectTime);
        std::ptrdiff_t left = 0;
        for (const addrinfo* one = list; one; one = one->ai_next) ++left;
        for (const addrinfo* one = list; one && !last.good(); one = one->ai_next, --left) {
            // What is left of the time is for all that are left.
            const auto now = Clock::now();
            last = connectTo(*one, rule, now + (end - now) / left, request.url);
        }
        return last;
    }
    [[nodiscard]] int get() const { return socket_.get(); }
    int release() { return socket_.release(); }

  private:
    FetchResult connectTo(const addrinfo& place, const AddressRule& rule, Clock::time_point end,
                          const std::string& url) {
        if (!rule.admits(*place.ai_addr)) return outcome(FetchOutcome::Refused, kInnerAddress, url);
        socket_.reset(socket(place.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!socket_.valid()) return outcome(FetchOutcome::Socket, std::strerror(errno), url);
        if (connect(socket_.get(), place.ai_addr, place.ai_addrlen) != 0 && errno != EINPROGRESS)
            return outcome(FetchOutcome::NotConnected, std::strerror(errno), url);
        pollfd ready{socket_.get(), POLLOUT, 0};
        const auto left = std::chrono::duration_cast<Millis>(end - Clock::now()).count();
        if (poll(&ready, 1, static_cast<int>(std::max<int64_t>(left, 0))) <= 0)
            return outcome(FetchOutcome::Timeout, "no connection in time", url);
        int error = 0;
        socklen_t size = sizeof error;
        getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) return outcome(FetchOutcome::NotConnected, std::strerror(error), url);
        fcntl(socket_.get(), F_SETFL, fcntl(socket_.get(), F_GETFL) & ~O_NONBLOCK);
        return outcome(FetchOutcome::Done, "", url);
    }
    FileDescriptor socket_;
};

/// What is searched for; a certificate may name one entry and an attribute of those that are meant, no more.
struct Search {
    std::unique_ptr<LDAPURLDesc, decltype(&ldap_free_urldesc)> url{nullptr, ldap_free_urldesc};
    std::vector<std::string> attributes;
    int scope = LDAP_SCOPE_BASE;
    std::string filter = "(objectClass=*)";

    std::string read(const FetchRequest& request) {
        LDAPURLDesc* parsed = nullptr;
        if (ldap_url_parse(request.url.c_str(), &parsed) != LDAP_URL_SUCCESS) return "no LDAP URL";
        url.reset(parsed);
        for (char** one = parsed->lud_attrs; one && *one; ++one) {
            const std::string name = std::string(*one).substr(0, std::string(*one).find(';'));
            if (std::ranges::any_of(kAttributes, [&](auto known) { return equalIgnoreCase(known, name); }))
                attributes.push_back(name + ";binary");
        }
        if (attributes.empty()) return "no attribute that holds certificates or CRLs";
        if (parsed->lud_filter) filter = parsed->lud_filter;
        if (request.origin == UrlOrigin::Configured) scope = parsed->lud_scope;
        return {};
    }
};

class LdapSession {
  public:
    LdapSession(const FetchRequest& request, Answer& answer) : request_(request), answer_(answer) {}

    FetchResult run(Connection& connection, const Url& url, const Search& search) {
        const bool tls = url.scheme == UrlScheme::Ldaps || request_.tls == FetchTls::StartTls;
        const std::string place = (url.scheme == UrlScheme::Ldaps ? "ldaps://" : "ldap://") +
                                  (url.host.find(':') == std::string::npos ? url.host : "[" + url.host + "]") + ":" +
                                  std::to_string(url.port);
        LDAP* made = nullptr;
        if (ldap_init_fd(connection.get(), CRV_LDAP_PROTO_TCP, place.c_str(), &made) != LDAP_SUCCESS)
            return outcome(FetchOutcome::Socket, "ldap_init_fd", request_.url);
        connection.release();
        ld_.reset(made);
        setOptions();
        if (tls) {
            if (FetchResult bad = startTls(url); !bad.good()) return bad;
        }
        // A bind without a password succeeds as nobody (RFC 4513 5.1.2): it would hide that the login is incomplete.
        if (request_.systemLogin)
            return outcome(FetchOutcome::Denied, "LDAP servers have no login of the system", request_.url);
        if (!request_.user.empty() && request_.password.empty())
            return outcome(FetchOutcome::Denied, "the row has a user without a password", request_.url);
        if (const int code = bind(); code != LDAP_SUCCESS) return failed(code);
        return searchFor(search);
    }

  private:
    struct Unbind {
        void operator()(LDAP* ld) const { ldap_unbind_ext(ld, nullptr, nullptr); }
    };

    FetchResult failed(int code) {
        const auto* row = std::ranges::find(kLdapCodes, code, &LdapCodeRow::code);
        char* text = nullptr;
        ldap_get_option(ld_.get(), LDAP_OPT_DIAGNOSTIC_MESSAGE, &text);
        std::string cause = ldap_err2string(code);
        if (text && *text) cause += std::string(" (") + text + ")";
        ldap_memfree(text);
        return outcome(row == std::end(kLdapCodes) ? FetchOutcome::BadData : row->outcome, cause, request_.url);
    }

    void setOptions() {
        const int version = LDAP_VERSION3, never = LDAP_DEREF_NEVER;
        const int most = static_cast<int>(std::min<uint64_t>(request_.maxValues, 100'000));
        ldap_set_option(ld_.get(), LDAP_OPT_PROTOCOL_VERSION, &version);
        ldap_set_option(ld_.get(), LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
        ldap_set_option(ld_.get(), LDAP_OPT_DEREF, &never);
        ldap_set_option(ld_.get(), LDAP_OPT_SIZELIMIT, &most);
        Sockbuf* buffer = nullptr;
        // A message is taken in as a whole: one that says that it is longer is refused at its header.
        ber_len_t longest = request_.maxSize + (uint64_t{1} << 20);
        if (ldap_get_option(ld_.get(), LDAP_OPT_SOCKBUF, &buffer) == LDAP_SUCCESS && buffer)
            ber_sockbuf_ctrl(buffer, LBER_SB_OPT_SET_MAX_INCOMING, &longest);
    }

    FetchResult startTls(const Url& url) {
        const std::string roots = trustedRoots(request_);
        roots_.reset(memfd_create("roots", MFD_CLOEXEC));
        if (!roots_.valid() || !writeAll(roots_.get(), roots.data(), roots.size(), -1))
            return outcome(FetchOutcome::Tls, "no memory for the trusted certificates", request_.url);
        const std::string file = "/proc/self/fd/" + std::to_string(roots_.get());
        const int demand = LDAP_OPT_X_TLS_DEMAND, client = 0, least = LDAP_OPT_X_TLS_PROTOCOL_TLS1_2;
        ldap_set_option(ld_.get(), LDAP_OPT_X_TLS_CACERTFILE, file.c_str());
        ldap_set_option(ld_.get(), LDAP_OPT_X_TLS_REQUIRE_CERT, &demand);
        ldap_set_option(ld_.get(), LDAP_OPT_X_TLS_PROTOCOL_MIN, &least);
        int code = ldap_set_option(ld_.get(), LDAP_OPT_X_TLS_NEWCTX, &client);
        if (code == LDAP_SUCCESS) {
            code = url.scheme == UrlScheme::Ldaps ? ldap_install_tls(ld_.get())
                                                  : ldap_start_tls_s(ld_.get(), nullptr, nullptr);
        }
        if (code == LDAP_SUCCESS) return outcome(FetchOutcome::Done, "", request_.url);
        FetchResult bad = failed(code);
        if (bad.outcome != FetchOutcome::Timeout) bad.outcome = FetchOutcome::Tls;
        return bad;
    }

    int bind() {
        if (request_.user.empty()) return LDAP_SUCCESS;  // version 3 needs no anonymous bind
        const SecretText& password = request_.password;
        berval secret{password.size(), const_cast<char*>(password.c_str())};
        return ldap_sasl_bind_s(ld_.get(), request_.user.c_str(), LDAP_SASL_SIMPLE, &secret, nullptr, nullptr, nullptr);
    }

    FetchResult searchFor(const Search& search) {
        std::vector<char*> names;
        for (const std::string& one : search.attributes) names.push_back(const_cast<char*>(one.c_str()));
        names.push_back(nullptr);
        LDAPMessage* found = nullptr;
        const char* base = search.url->lud_dn ? search.url->lud_dn : "";
        const int code = ldap_search_ext_s(ld_.get(), base, search.scope, search.filter.c_str(), names.data(), 0,
                                           nullptr, nullptr, nullptr, -1, &found);
        const std::unique_ptr<LDAPMessage, decltype(&ldap_msgfree)> owner(found, ldap_msgfree);
        // A search that finds nobody succeeds: without the entry where it begins the server's path is wrong.
        if (code == LDAP_NO_SUCH_OBJECT && search.scope != LDAP_SCOPE_BASE) {
            return outcome(FetchOutcome::BadData, "no entry where the search begins: \"" + std::string(base) + "\"",
                           request_.url);
        }
        if (code != LDAP_SUCCESS) return failed(code);
        bool any = false;
        for (LDAPMessage* entry = ldap_first_entry(ld_.get(), found); entry; entry = ldap_next_entry(ld_.get(), entry))
            for (const std::string& name : search.attributes) any = give(entry, name) || any;
        return any ? outcome(FetchOutcome::Done, "", request_.url)
                   : outcome(FetchOutcome::NotFound, "the entry has no such attribute", request_.url);
    }

    bool give(LDAPMessage* entry, const std::string& name) {
        berval** values = ldap_get_values_len(ld_.get(), entry, name.c_str());
        const std::unique_ptr<berval*, decltype(&ldap_value_free_len)> owner(values, ldap_value_free_len);
        bool any = false;
        for (berval** one = values; one && *one; ++one) {
            any = true;
            if (!answer_.begin() || !answer_.put(asBytes({(*one)->bv_val, (*one)->bv_len}))) break;
        }
        return any;
    }

    const FetchRequest& request_;
    Answer& answer_;
    FileDescriptor roots_;
    std::unique_ptr<LDAP, Unbind> ld_;
};

}  // namespace

FetchResult fetchByLdap(const FetchRequest& request, Answer& answer) {
    const Url url = parseUrl(request.url);
    const AddressRule rule(request, url, request.origin, nullptr);
    Search search;
    if (std::string why = rule.fault(); !why.empty()) return outcome(FetchOutcome::Refused, why, request.url);
    if (std::string why = search.read(request); !why.empty()) return outcome(FetchOutcome::Refused, why, request.url);
    Connection connection;
    if (FetchResult bad = connection.open(url, request, rule); !bad.good()) return bad;
    watch(connection.get(), request);
    return LdapSession(request, answer).run(connection, url, search);
}

}  // namespace crv::fetch
