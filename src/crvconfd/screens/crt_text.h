// Certificates as lines of text for the screen.
#pragma once

#include <string>
#include <vector>

#include "asn/x509/signed_certificate.h"
#include "ops/certificate_state.h"

namespace crv {

/// How names are shown, after the display settings of the run.
[[nodiscard]] DnDisplay dnDisplay();

/// A name of the certificate on one line, ready for the screen.
[[nodiscard]] std::string nameLine(const DistinguishedName& name);
/// What people look for in a name: its common name, else the whole name.
[[nodiscard]] std::string shortName(const DistinguishedName& name);

/// Octets as "AB CD EF".
[[nodiscard]] std::string hexText(ByteView octets);

/// "2027.03.01 12:00:00" in local time; "?" when the time cannot be read.
[[nodiscard]] std::string timeLine(const Time& time);
/// The same without the time of day.
[[nodiscard]] std::string dateLine(const Time& time);

/// How long the certificate is still valid, or that it is not: "ważny jeszcze 12 dni".
[[nodiscard]] std::string validityNote(const Validity& validity, int64_t now);
/// "ważny do 2027.03.01", "ważny od ..." for one that is not valid yet, "PRZETERMINOWANY od ...".
[[nodiscard]] std::string validityDate(const Validity& validity, int64_t now);

/// "!" for a certificate that has ended, "*" for one that ends within 30 days, "?" where its end cannot be read; else "
/// ".
[[nodiscard]] char endMark(const Validity& validity, int64_t now);

/// One word for a certificate's standing: "unieważniony", "nieznany", "brak ścieżki", "zaufany".
[[nodiscard]] const char* standingWord(const CertificateState& state);
/// Appends the standing: when and why it was revoked, and the path to a trust point or why there is none.
void addState(std::vector<std::string>& lines, const CertificateState& state);
/// The state of a certificate of the current profile, now.
[[nodiscard]] CertificateState currentState(const CertPtr& certificate);

/// The page "Dane": who, by whom, until when, fingerprints.
[[nodiscard]] std::vector<std::string> dataLines(const SignedCertificate& certificate);
/// The page "Parametry": algorithms, key, key identifier, every extension.
[[nodiscard]] std::vector<std::string> parameterLines(const SignedCertificate& certificate);

/// Appends extensions, of a certificate or of a CRL, each decoded where its type is known.
void addExtensions(std::vector<std::string>& lines, const Extensions& extensions);

}  // namespace crv
