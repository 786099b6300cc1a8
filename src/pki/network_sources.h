// Where things are fetched from: the profile's servers in their order, then what certificates name.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "net/fetch_message.h"
#include "pki/certificate_manager.h"
#include "profiles/server_list.h"

namespace crv {

class ContextServices;

/// One try: a request and the row of the profile's servers that it goes to (no name for an address out of a
/// certificate).
struct NetAttempt {
    FetchRequest request{};
    std::string server{};
};
using NetAttempts = std::vector<NetAttempt>;

/// What a fetch may cost, by what is fetched. Times in milliseconds, sizes in octets.
struct NetLimits {
    uint64_t totalTime;
    uint64_t maxSize;
    uint64_t maxValues;
    bool certificates = false;  ///< option 32 is the time, or option 17 where that is 0
};
inline constexpr NetLimits kCrlLimits{300'000, uint64_t{128} << 20, 16};
inline constexpr NetLimits kCertLimits{300'000, uint64_t{1} << 20, 1000, true};
inline constexpr NetLimits kOcspLimits{30'000, uint64_t{256} << 10, 1};
inline constexpr NetLimits kTimeStampLimits{30'000, uint64_t{256} << 10, 1};

/// What is asked for of a server: for LDAP an entry or a search, for the others what stands behind the path.
struct NetObject {
    NetLimits limits;
    std::string attributes{};  ///< of LDAP, with "," between
    std::string entry{};       ///< name of the entry where the server's path names none (RFC 4514)
    std::string filter{};      ///< of a search below the entry; empty for the entry itself
    std::string query{};       ///< behind "?" of HTTP
    Bytes body{};              ///< to be posted
    std::string contentType{};
};

/// Addresses out of certificates that one operation may ask, and those out of one certificate.
inline constexpr size_t kMostUris = 16;
inline constexpr size_t kMostUrisOfCertificate = 4;

class NetSources {
  public:
    /// Both outlive the object. One object an operation: it counts the addresses out of certificates.
    NetSources(ContextServices& context, CertificateManager& certificates)
        : context_(context), certificates_(certificates) {}

    /// A row of the servers. Its URL is LDAP, HTTP, FTP or a file's, TLS as the row says.
    [[nodiscard]] NetAttempt of(const SrvParams& server, const NetObject& object);
    /// The rows with a use, for an authority or any.
    [[nodiscard]] NetAttempts servers(ServerUsage usage, ByteView authority, const NetObject& object);
    /// Addresses out of a certificate, as far as the rules and the counts admit them and option 41 asks for them. One
    /// of LDAP without a host goes to the profile's LDAP servers.
    void addUris(NetAttempts& attempts, const SignedCertificate& certificate, const std::vector<std::string>& uris,
                 const NetObject& object);

    [[nodiscard]] bool networkIsOff() const;
    [[nodiscard]] long option(long id) const;

  private:
    void finish(FetchRequest& request, const NetObject& object);
    void addUri(NetAttempts& attempts, const std::string& uri, const NetObject& object);
    [[nodiscard]] const std::string& roots();

    ContextServices& context_;
    CertificateManager& certificates_;
    std::string roots_;
    std::map<Bytes, size_t> urisOf_;  // asked of each certificate, by its digest
    size_t urisLeft_ = kMostUris;
};

}  // namespace crv
