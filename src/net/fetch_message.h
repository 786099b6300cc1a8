// What is asked of the helper that fetches, what it answers, and how both go through its pipes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "misc/secret.h"
#include "net/url.h"

namespace crv {

/// How a fetch ended, as far as somebody acts differently on it.
enum class FetchOutcome : uint32_t {
    Done,
    Unresolved,    ///< the name of the host
    NotConnected,  ///< nobody answers there
    Socket,        ///< no socket was to be had
    Closed,        ///< the server ended the connection in the middle
    Timeout,
    BadData,   ///< what came is none of the protocol
    TooLong,   ///< more than the limit
    Tls,       ///< no TLS, or the server is not who it should be
    Refused,   ///< against the rules for URLs and addresses
    NotFound,  ///< the server has no such thing
    Denied,    ///< the server wants another login
    Cancelled,
    NoHelper,  ///< the helper cannot be started
    HelperDied
};

enum class FetchTls : uint32_t { None, Always, StartTls };

/// One thing to fetch. Times in milliseconds, sizes in octets.
struct FetchRequest {
    std::string url{};
    UrlOrigin origin = UrlOrigin::Configured;
    FetchTls tls = FetchTls::None;  ///< StartTls with LDAP only; the URL says the rest
    Bytes body{};                   ///< POST where it is not empty
    std::string contentType{};
    std::string user{};
    SecretText password{};
    bool systemLogin = false;  ///< with the system's credentials instead (SPNEGO)
    std::string proxy{};       ///< "host:port"; empty for a direct connection
    std::string proxyUser{};
    SecretText proxyPassword{};
    std::string allowed{};  ///< "host:port;host:port" to which certificates and redirects may lead whatever the address
    std::string roots{};    ///< PEM certificates to trust besides the system's
    uint64_t maxSize = 0;
    uint64_t maxValues = 1;  ///< values of an LDAP search
    uint64_t connectTime = 30'000;
    uint64_t totalTime = 30'000;
    uint64_t stallTime = 30'000;  ///< below 100 octets a second for so long is a time-out

    friend bool operator==(const FetchRequest&, const FetchRequest&) = default;
};

struct FetchResult {
    FetchOutcome outcome = FetchOutcome::NoHelper;
    std::string cause{};          ///< in words; never a secret
    std::string url{};            ///< where it came from after redirects, without a login
    std::vector<Bytes> values{};  ///< the body; of an LDAP search each value
    [[nodiscard]] bool good() const { return outcome == FetchOutcome::Done; }
};

/// Frames of the answer: a kind, a length of four octets, so many octets.
enum class FrameKind : uint8_t {
    Value = 'V',  ///< another value begins; no octets
    Body = 'B',   ///< octets of the current value
    End = 'E'     ///< outcome, cause and URL; the last frame. Without it the helper died, whatever its status
};
inline constexpr size_t kFrameHeader = 5;
inline constexpr size_t kMaxFrame = size_t{1} << 16;

/// The request with its length (eight octets) before it.
[[nodiscard]] SecretBytes encodeRequest(const FetchRequest& request);
/// Nothing for octets that are none (without the length before them).
[[nodiscard]] std::optional<FetchRequest> decodeRequest(ByteView octets);

[[nodiscard]] Bytes encodeFrame(FrameKind kind, ByteView octets);
[[nodiscard]] Bytes encodeEnd(const FetchResult& result);

/// Takes the frames of an answer as they come, in pieces of any size.
class FrameReader {
  public:
    /// More than `maxSize` octets of values, or more than `maxValues` of them, are an error of the helper.
    FrameReader(uint64_t maxSize, uint64_t maxValues) : left_(maxSize), valuesLeft_(maxValues) {}
    /// False for what is no frame; nothing more is to be fed then, nor after the end.
    [[nodiscard]] bool feed(ByteView octets);
    [[nodiscard]] bool ended() const { return ended_; }
    /// Octets of all values so far.
    [[nodiscard]] uint64_t received() const { return received_; }
    [[nodiscard]] FetchResult& result() { return result_; }

  private:
    [[nodiscard]] bool take(FrameKind kind, ByteView octets);
    Bytes pending_;
    uint64_t left_, valuesLeft_;
    uint64_t received_ = 0;
    bool ended_ = false;
    FetchResult result_;
};

}  // namespace crv
