// The network servers of a profile.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/crvprofile.h"
#include "misc/bytes.h"
#include "misc/secret.h"
#include "profiles/universal_conf_mgr.h"

namespace crv {

/// What a server is used for; a server may have several uses.
using ServerUsage = CrvServerUsage;

/// One server.
struct SrvParams {
    std::string name;  ///< names of one list differ in more than the case of ASCII letters
    long usage = 0;    ///< CRVSRV_USAGE_ values combined
    long type = CRVSRV_TYPE_LDAP;
    std::string addr;  ///< host name or address
    long port = 0;     ///< 0: the protocol's own
    std::string path;  ///< path of the URL, or base of the LDAP search
    std::string user;
    SecretText pass;
    Bytes caDn;              ///< DER name of the CA that the server belongs to; empty: any
    std::string caDnUtf8;    ///< the same as a text for display
    long periodSeconds = 0;  ///< how often a CRL is fetched; 0: when needed
    bool winAuth = false;    ///< log in with the system's own credentials
    long tls = CRVSRV_TLS_NONE;
    /// Keys of the server's subtree that this program does not know; they survive a save.
    std::map<std::string, NodeDesc> others;

    /// Throws CrvApiException (ECRV_API_INV_PAR) with the reason when a value is out of range or unfit for a list.
    void validate() const;
};

/// Iterator over a choice of servers; holds copies.
struct ServerIterator {
    std::vector<SrvParams> servers;
    size_t next = 0;
};

/// Servers in the order in which they are asked. Names compare without regard to the case of ASCII letters.
class ServerList {
  public:
    /// Appends a server. Throws as SrvParams::validate, or ECRV_SRV_EXIST when the name is taken.
    void addSrv(const SrvParams& server);
    /// Replaces the server of the same name. ECRV_SRV_NOT_FND "Brak serwera o zadanej nazwie" when there is none, also
    /// in the next three.
    void updateSrv(const SrvParams& server);
    void delSrv(std::string_view name);
    void moveSrvFirst(std::string_view name);
    void moveSrvLast(std::string_view name);
    /// False when there is none; server may be null.
    bool findSrv(std::string_view name, SrvParams* server = nullptr) const;

    /// Servers with a use, in order: all, or with a CA's DER name those of the CA and those of any. count, when given,
    /// receives their number.
    [[nodiscard]] ServerIterator getServerIterator(ServerUsage usage, ByteView caDn = {}, long* count = nullptr) const;
    /// The next server, or false at the end.
    static bool getNextServer(ServerIterator& iterator, SrvParams& server);
    /// The server at an index from 0 of such a choice.
    bool getServer(ServerUsage usage, ByteView caDn, long index, SrvParams& server) const;
    /// Servers with a use that belong to the CA and to no other.
    [[nodiscard]] std::vector<SrvParams> getSrvListForCa(ServerUsage usage, ByteView caDn) const;
    /// "host:port;host:port": places to which certificates and redirects may lead although their address is one of this
    /// machine or of its own net.
    [[nodiscard]] const std::string& netAllow() const { return netAllow_; }
    /// Throws CrvApiException (ECRV_API_INV_PAR) for what is no such list.
    void setNetAllow(const std::string& list);
    /// All servers by sequence number.
    [[nodiscard]] const std::map<long, SrvParams>& servers() const { return servers_; }

  protected:
    /// Reads the subtree "SRV\" of a record; servers with equal or missing sequence numbers follow by name.
    void loadServers(const UniversalConfMgr& store, const std::string& prefix);
    void saveServers(UniversalConfMgr& store, const std::string& prefix) const;

  private:
    using Servers = std::map<long, SrvParams>;
    [[nodiscard]] Servers::const_iterator find(std::string_view name) const;
    [[nodiscard]] Servers::const_iterator demand(std::string_view name) const;
    void move(std::string_view name, bool toFront);

    Servers servers_;
    std::string netAllow_;
};

}  // namespace crv
