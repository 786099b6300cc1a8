// Name constraints along a path (RFC 5280 4.2.1.10, 6.1.3 (b), (c), 6.1.4 (g)).
#pragma once

#include <vector>

#include "asn/x509/ext_names.h"

namespace crv {

class SignedCertificate;

/// The names that the authorities seen so far permit. Directory names, e-mail addresses, DNS names and URIs are
/// understood; of another form nothing is permitted once it is constrained.
class NameConstraintsState {
  public:
    /// Adds what an authority demands of the certificates below it. False when its extension is malformed.
    [[nodiscard]] bool add(const SignedCertificate& authority);
    /// Whether every name of the certificate is permitted.
    [[nodiscard]] bool allows(const SignedCertificate& certificate) const;

  private:
    [[nodiscard]] bool allows(const GeneralName& name) const;

    std::vector<NameConstraints> constraints_;
};

}  // namespace crv
