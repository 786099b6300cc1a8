#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <memory>

#include "fetchers.h"

namespace crv::fetch {

namespace {

constexpr int kMostRedirects = 3;
constexpr long kStallSpeed = 100;  // octets a second

struct CodeRow {
    CURLcode code;
    FetchOutcome outcome;
};
constexpr CodeRow kCodes[] = {{CURLE_COULDNT_RESOLVE_HOST, FetchOutcome::Unresolved},
                              {CURLE_COULDNT_RESOLVE_PROXY, FetchOutcome::Unresolved},
                              {CURLE_COULDNT_CONNECT, FetchOutcome::NotConnected},
                              {CURLE_OPERATION_TIMEDOUT, FetchOutcome::Timeout},
                              {CURLE_GOT_NOTHING, FetchOutcome::Closed},
                              {CURLE_RECV_ERROR, FetchOutcome::Closed},
                              {CURLE_PROXY, FetchOutcome::Closed},
                              {CURLE_SEND_ERROR, FetchOutcome::Closed},
                              {CURLE_PARTIAL_FILE, FetchOutcome::Closed},
                              {CURLE_PEER_FAILED_VERIFICATION, FetchOutcome::Tls},
                              {CURLE_SSL_CONNECT_ERROR, FetchOutcome::Tls},
                              {CURLE_USE_SSL_FAILED, FetchOutcome::Tls},
                              {CURLE_SSL_CACERT_BADFILE, FetchOutcome::Tls},
                              {CURLE_SSL_CIPHER, FetchOutcome::Tls},
                              {CURLE_UNSUPPORTED_PROTOCOL, FetchOutcome::Refused},
                              {CURLE_REMOTE_FILE_NOT_FOUND, FetchOutcome::NotFound},
                              {CURLE_FTP_COULDNT_RETR_FILE, FetchOutcome::NotFound},
                              {CURLE_FILE_COULDNT_READ_FILE, FetchOutcome::NotFound},
                              {CURLE_REMOTE_ACCESS_DENIED, FetchOutcome::Denied},
                              {CURLE_LOGIN_DENIED, FetchOutcome::Denied},
                              {CURLE_OUT_OF_MEMORY, FetchOutcome::TooLong}};

/// One request and its answer; redirects are for the caller.
class Transfer {
  public:
    Transfer(const FetchRequest& request, Answer& answer) : request_(request), answer_(answer) {}

    FetchResult run(const std::string& url, const AddressRule& rule, bool withLogin) {
        rule_ = &rule;
        body_ = false;
        refused_ = false;
        error_[0] = 0;
        setUp(url, withLogin);
        const CURLcode code = curl_easy_perform(curl_.get());
        curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status_);
        // Another address of the host may have been admitted.
        if (refused_ && code != CURLE_OK) return outcome(FetchOutcome::Refused, kInnerAddress, url);
        long tunnel = 0;
        curl_easy_getinfo(curl_.get(), CURLINFO_HTTP_CONNECTCODE, &tunnel);
        if (code != CURLE_OK && tunnel >= 300)
            return outcome(FetchOutcome::Denied, "the proxy refuses: HTTP status " + std::to_string(tunnel), url);
        if (code != CURLE_OK) return outcome(outcomeOf(code), textOf(code), url);
        if (!answersHttp(url) || status_ < 300) return outcome(FetchOutcome::Done, "", url);
        const bool missing = status_ == 404 || status_ == 410;
        const bool denied = status_ == 401 || status_ == 403 || status_ == 407;
        return outcome(missing  ? FetchOutcome::NotFound
                       : denied ? FetchOutcome::Denied
                                : FetchOutcome::BadData,
                       "HTTP status " + std::to_string(status_), url);
    }

    /// Where the answer leads; empty when it is no redirect.
    [[nodiscard]] std::string redirect() const {
        const char* target = nullptr;
        curl_easy_getinfo(curl_.get(), CURLINFO_REDIRECT_URL, &target);
        return target ? target : "";
    }

  private:
    /// A proxy fetches over FTP and answers over HTTP, unless it is to tunnel.
    [[nodiscard]] bool answersHttp(const std::string& url) const {
        const UrlScheme scheme = parseUrl(url).scheme;
        return scheme == UrlScheme::Http || scheme == UrlScheme::Https ||
               (scheme == UrlScheme::Ftp && !request_.proxy.empty() && request_.tls == FetchTls::None);
    }
    static FetchOutcome outcomeOf(CURLcode code) {
        const auto* row = std::ranges::find(kCodes, code, &CodeRow::code);
        return row == std::end(kCodes) ? FetchOutcome::BadData : row->outcome;
    }
    std::string textOf(CURLcode code) const { return error_[0] != 0 ? error_.data() : curl_easy_strerror(code); }

    template <class Value>
    void set(CURLoption option, Value value) {
        curl_easy_setopt(curl_.get(), option, value);
    }

    void setUp(const std::string& url, bool withLogin) {
        curl_easy_reset(curl_.get());
        url_ = url;
        set(CURLOPT_URL, url.c_str());
        set(CURLOPT_PROTOCOLS_STR, "http,https,ftp,file");
        set(CURLOPT_ERRORBUFFER, error_.data());
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_USERAGENT, "Corvane/" CRV_VERSION);
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request_.connectTime));
        set(CURLOPT_TIMEOUT_MS, static_cast<long>(request_.totalTime));
        set(CURLOPT_LOW_SPEED_LIMIT, kStallSpeed);
        set(CURLOPT_LOW_SPEED_TIME, std::max(1L, static_cast<long>(request_.stallTime / 1000)));
        set(CURLOPT_WRITEFUNCTION, &Transfer::onBody);
        set(CURLOPT_WRITEDATA, this);
        set(CURLOPT_OPENSOCKETFUNCTION, &Transfer::onSocket);
        set(CURLOPT_OPENSOCKETDATA, this);
        setTls(url);
        setProxy();
        if (withLogin) setLogin();
        if (!request_.body.empty()) setBody();
    }

    void setTls(const std::string& url) {
        const UrlScheme scheme = parseUrl(url).scheme;
        const bool overFtp = scheme == UrlScheme::Ftp && request_.tls != FetchTls::None;
        if (overFtp) {
            set(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
            set(CURLOPT_HTTPPROXYTUNNEL, 1L);  // else the proxy gets the login, and its TLS is its own affair
        }
        if (scheme != UrlScheme::Https && !overFtp) return;
        if (roots_.empty()) roots_ = trustedRoots(request_);
        curl_blob roots{roots_.data(), roots_.size(), CURL_BLOB_NOCOPY};
        set(CURLOPT_CAINFO_BLOB, &roots);
        set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    }

    void setProxy() {
        set(CURLOPT_NOPROXY, "");
        set(CURLOPT_PROXY, request_.proxy.c_str());
        if (request_.proxy.empty() || request_.proxyUser.empty()) return;
        set(CURLOPT_PROXYUSERNAME, request_.proxyUser.c_str());
        set(CURLOPT_PROXYPASSWORD, request_.proxyPassword.c_str());
        set(CURLOPT_PROXYAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
    }

    void setLogin() {
        if (request_.systemLogin) {
            set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_NEGOTIATE));
            set(CURLOPT_USERPWD, ":");
        } else if (!request_.user.empty()) {
            set(CURLOPT_USERNAME, request_.user.c_str());
            set(CURLOPT_PASSWORD, request_.password.c_str());
            set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
        }
    }

    void setBody() {
        headers_.reset(curl_slist_append(nullptr, ("Content-Type: " + request_.contentType).c_str()));
        headers_.reset(curl_slist_append(headers_.release(), "Expect:"));  // no wait for a 100
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
        set(CURLOPT_POSTFIELDS, reinterpret_cast<const char*>(request_.body.data()));
        set(CURLOPT_HTTPHEADER, headers_.get());
    }

    static size_t onBody(char* data, size_t, size_t size, void* self) {
        Transfer& transfer = *static_cast<Transfer*>(self);
        long status = 0;
        curl_easy_getinfo(transfer.curl_.get(), CURLINFO_RESPONSE_CODE, &status);
        // What comes with a redirect or a refusal is for people.
        if (transfer.answersHttp(transfer.url_) && (status < 200 || status >= 300)) return size;
        if (!transfer.body_ && !transfer.answer_.begin()) return 0;
        transfer.body_ = true;
        return transfer.answer_.put(asBytes({data, size})) ? size : 0;
    }

    static curl_socket_t onSocket(void* self, curlsocktype, curl_sockaddr* address) {
        Transfer& transfer = *static_cast<Transfer*>(self);
        // A proxy is the user's own choice; it connects to the host itself.
        if (transfer.request_.proxy.empty() && !transfer.rule_->admits(address->addr)) {
            transfer.refused_ = true;
            return CURL_SOCKET_BAD;
        }
        return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    }

    const FetchRequest& request_;
    Answer& answer_;
    const AddressRule* rule_ = nullptr;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_{curl_easy_init(), curl_easy_cleanup};
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers_{nullptr, curl_slist_free_all};
    std::array<char, CURL_ERROR_SIZE> error_{};
    std::string roots_, url_;
    bool body_ = false, refused_ = false;
    long status_ = 0;
};

bool samePlace(const Url& a, const Url& b) {
    return a.scheme == b.scheme && a.host == b.host && a.port == b.port;
}

}  // namespace

FetchResult fetchByCurl(const FetchRequest& request, Answer& answer) {
    curl_global_init(CURL_GLOBAL_ALL);
    Transfer transfer(request, answer);
    const Url first = parseUrl(request.url);
    const Url* configured = request.origin == UrlOrigin::Configured ? &first : nullptr;
    std::string address = request.url;
    UrlOrigin origin = request.origin;
    for (int hop = 0;; ++hop) {
        const Url url = parseUrl(address);
        const AddressRule rule(request, url, origin, configured);
        if (std::string why = rule.fault(); !why.empty()) return outcome(FetchOutcome::Refused, why, address);
        FetchResult result = transfer.run(address, rule, samePlace(url, first));
        const std::string target = transfer.redirect();
        if (target.empty() || result.outcome == FetchOutcome::Refused) return result;
        const Url next = parseUrl(target);
        if (hop == kMostRedirects) return outcome(FetchOutcome::Refused, "too many redirects", target);
        if (url.scheme == UrlScheme::Https && next.scheme != UrlScheme::Https)
            return outcome(FetchOutcome::Refused, "a redirect from https to another scheme", target);
        address = target;
        origin = UrlOrigin::Redirect;
    }
}

}  // namespace crv::fetch
