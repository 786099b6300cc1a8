// Handles to the one library context of the run and to its managers, read by every screen. They point into the context
// from its creation to its end and are null outside of that.
#pragma once

#include <memory>
#include <string>

struct CRVctx;

namespace crv {

class CertificateCache;
class CertificateManager;
class ConfigurationManager;
class CrvProfile;
class DbManager;
class KeyManager;
class NetworkManager;
class RevocationManager;

inline CRVctx* crvCtx = nullptr;
inline ConfigurationManager* cfgManager = nullptr;
inline KeyManager* keyManager = nullptr;
inline DbManager* dbManager = nullptr;
inline CertificateManager* crtManager = nullptr;
inline RevocationManager* revManager = nullptr;
inline CertificateCache* crtCache = nullptr;
inline NetworkManager* netManager = nullptr;

/// The record that the running session works on.
[[nodiscard]] CrvProfile& boundProfile();

/// Creates the context of the run with its managers and sets the handles; destroys it when the object ends. Throws what
/// the context throws, after destroying it.
class ContextOwner {
  public:
    ContextOwner();
    ~ContextOwner();
    ContextOwner(const ContextOwner&) = delete;
    ContextOwner& operator=(const ContextOwner&) = delete;

    /// The report of every operation so far, one a line.
    [[nodiscard]] std::string report() const;

  private:
    std::unique_ptr<CRVctx> context_;
};

}  // namespace crv
