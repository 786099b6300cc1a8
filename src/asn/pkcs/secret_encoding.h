// Encodings of structures that hold secrets.
#pragma once

#include "asn/asn_object.h"
#include "misc/secret.h"

namespace crv {

/// The encoding in wiped memory; throws VtestException for an object that cannot be encoded.
[[nodiscard]] SecretBytes encodedSecret(const ASNobject& object);

}  // namespace crv
