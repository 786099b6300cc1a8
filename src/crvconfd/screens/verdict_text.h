// The verdict on a certificate's path as lines of text for the screen.
#pragma once

#include <string>
#include <vector>

namespace crv {

class SignedCertificate;

/// Whether the certificate can be relied on now: the rule that fails with its clause, every certificate of the path,
/// where its status comes from and how old that is.
[[nodiscard]] std::vector<std::string> verdictLines(const SignedCertificate& certificate);

}  // namespace crv
