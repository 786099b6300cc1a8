// What was fetched from the network during the current operation.
#pragma once

#include <functional>
#include <vector>

#include "misc/bytes.h"

namespace crv {

class ContextServices;

/// Owner of the network store: certificates and CRLs, each once, until they are moved into the databases.
class NetworkManager {
  public:
    /// Binds the manager to its context.
    void init(ContextServices& context) { context_ = &context; }

    /// Adds the DER encoding unless an equal one is there; true when it was added.
    bool addCertToNetStore(ByteView certificate) { return add(certificates_, certificate); }
    bool addCRLToNetStore(ByteView crl) { return add(crls_, crl); }
    [[nodiscard]] const std::vector<Bytes>& netStoreCerts() const { return certificates_; }

    /// Hands every item to the function of its kind and empties the store. A function answers whether its database took
    /// the item; items that were refused are gone and leave a warning.
    void moveFromNetStoreToDB(const std::function<bool(ByteView)>& insertCert,
                              const std::function<bool(ByteView)>& insertCrl);
    void clearNetStore();

  private:
    static bool add(std::vector<Bytes>& store, ByteView item);

    ContextServices* context_ = nullptr;
    std::vector<Bytes> certificates_;
    std::vector<Bytes> crls_;
};

}  // namespace crv
