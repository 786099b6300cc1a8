// Which of the structures known here an encoding is.
#pragma once

#include "misc/bytes.h"

namespace crv {

/// Name of the first structure that the octets are, from the strictest to the loosest, such as "SignedCertificate";
/// null when they are none of them. Elements of one kind that follow each other count as that kind.
[[nodiscard]] const char* structureKind(ByteView octets);

}  // namespace crv
