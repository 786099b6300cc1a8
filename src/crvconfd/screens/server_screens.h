// The server lists of a profile and its proxy. Every change is saved in the profile list at once.
#pragma once

#include <string>
#include <vector>

#include "misc/bytes.h"
#include "profiles/server_list.h"

namespace crv {

/// A CA that a server may belong to.
struct CaChoice {
    std::string name;  ///< distinguished name as one text
    Bytes dn;          ///< DER
};

/// A list of the servers with one use: view, add, edit, delete, order.
class SrvDatViewer {
  public:
    /// Time-stamping servers; they belong to no CA.
    SrvDatViewer() : SrvDatViewer("Serwery datowania", CRVSRV_USAGE_TIME_STAMP, {}) {}

    /// Runs the screen until the user goes back.
    void run();

  protected:
    SrvDatViewer(std::string title, ServerUsage usage, std::vector<CaChoice> authorities);

  private:
    [[nodiscard]] std::vector<SrvParams> servers() const;
    [[nodiscard]] std::vector<std::string> items() const;
    /// Edits a server; a new one has no name yet.
    void edit(SrvParams server, bool isNew);
    void remove(const SrvParams& server);

    std::string title_;
    ServerUsage usage_;
    std::vector<CaChoice> authorities_;
};

/// The servers that belong to trust points: CRL, certificate and OCSP servers.
class Cck4srv : public SrvDatViewer {
  public:
    /// The kind is one of CRVSRV_USAGE_CERTIFICATES, _CRL and _OCSP; authorities are those to choose from.
    Cck4srv(ServerUsage kind, std::vector<CaChoice> authorities);
};

/// The HTTP proxy.
void OnSrvProxy();

}  // namespace crv
