// Certificates as the managers above hand them around.
#pragma once

#include <memory>
#include <vector>

#include "misc/bytes.h"

namespace crv {

class SignedCertificate;

/// Certificates are immutable and shared between lists.
using CertPtr = std::shared_ptr<const SignedCertificate>;
using CertList = std::vector<CertPtr>;

/// The certificate of an encoding, which is copied; null when it is none. Every certificate of a store is made so.
[[nodiscard]] CertPtr makeCert(ByteView encoding);
/// The octets that a certificate was read from.
[[nodiscard]] ByteView encodingOf(const SignedCertificate& certificate);
/// Whether the list holds a certificate with this encoding.
[[nodiscard]] bool contains(const CertList& list, const SignedCertificate& certificate);
/// Removes it; false when it was not there.
bool removeFrom(CertList& list, const SignedCertificate& certificate);

/// Whether certificate `a` became valid later than `b`, or at once with it and ends later.
[[nodiscard]] bool isNewer(const SignedCertificate& a, const SignedCertificate& b);

}  // namespace crv
