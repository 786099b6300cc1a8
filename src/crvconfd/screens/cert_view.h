// The full view of a certificate, and the table of the user's keys.
#pragma once

#include <string>
#include <vector>

#include "keystore/key_store_contents.h"

namespace crv {

class DistinguishedName;
class SignedCertificate;

/// The second page of a certificate: its parameters, and what is to be said of its standing.
[[nodiscard]] std::vector<std::string> parametersAndVerdict(const SignedCertificate& certificate);

/// "podpis", "szyfrowanie" and so on.
[[nodiscard]] const char* roleText(KeyRole role);
/// What rows and questions call a key: the first octets of its identifier.
[[nodiscard]] std::string shortKeyId(const StoredKey& key);

/// Two pages, "Dane" and "Parametry", which scroll; S saves the certificate to a file, W or Escape returns.
void showCertificate(const SignedCertificate& certificate, const std::string& title);

/// Asks for a file name and writes the certificate there in DER. Shows what went wrong.
void saveCertificateToFile(const SignedCertificate& certificate);

/// Draws a name from a row on in the emphasis attribute, one attribute a line, as far as there is room. Returns the row
/// behind it.
int displayDN(int row, const DistinguishedName& name);

/// Draws the table of the user's keys from row 2 on; returns the last row that it used.
int showKeyInfo();

}  // namespace crv
