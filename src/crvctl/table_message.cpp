// Verbs on messages: CMS with signatures or enciphered.
#include "crvctl/table_rows.h"
#include "crvctl/verbs.h"

namespace crv::ctl {
namespace {

using enum ValueKind;

const OptionRow kPem{"pem", Flag, nullptr, "write PEM instead of octets"};
const OptionRow kContent{"content", File, "FILE", "the content of a message whose content stands elsewhere"};

std::vector<FieldRow> verdictFields() {
    return {
        {"good", "boolean", "Good"},
        {"verdict", "string", "Verdict"},
        {"attached", "boolean", "With its content inside"},
        {"contentType", "string", "Type of the content"},
        {"contentLength", "number", "Octets of content"},
        {"certificatesInside", "number", "Certificates in the message"},
        {"crlsInside", "number", "Revocation lists in the message"},
        {"ocspInside", "number", "OCSP responses in the message"},
        {"good", "boolean", "Good", true},
        {"verdict", "string", "Verdict", true},
        {"reason", "string", "Reason", true},
        {"signer", "string", "Signer", true},
        {"issuer", "string", "Issuer", true},
        {"serial", "string", "Serial number", true},
        {"sha256", "string", "SHA-256 of the certificate", true},
        {"signature", "string", "Signature", true},
        {"algorithm", "string", "Algorithm of the signature", true},
        {"claimedTime", "string", "Signing time as the signer says", true},
        {"stampTime", "string", "Time stamp", true},
        {"stampAuthority", "string", "Authority of the time stamp", true},
        {"stampFault", "string", "What is wrong with the time stamp", true},
        {"stampStatus", "array", "Status of who made the time stamp", true},
        {"at", "string", "Moment", true},
        {"momentSource", "string", "Where the moment is from", true},
        {"policy", "string", "Signature policy", true},
        {"path", "string", "Verdict on the path", true},
        {"clause", "string", "Clause of RFC 5280", true},
        {"status", "array", "Status of the certificates", true},
        {"revokedSince", "boolean", "Revoked since", true},
        {"expiredSince", "boolean", "Expired since", true},
        {"notSigned", "array", "Not protected by the signature", true},
    };
}

std::vector<VerbRow> signingVerbs() {
    return {
        {"",
         "sign",
         Needs::Keys,
         Effect::Writes,
         sign,
         "sign a file as a message (CMS, CAdES)",
         {{"FILE", File, nullptr}, {"MESSAGE", NewFile, nullptr}},
         {{"detached", Flag, nullptr, "leave the content out of the message"},
          {"cosign", Flag, nullptr, "FILE is a signed message: add a signature to it"},
          {"message", File, "FILE", "the detached message to add a signature to; FILE is its content"},
          {"key", Hex, "HEX", "sign with the key whose identifier begins so (the signing key); may be repeated"},
          {"pss", Flag, nullptr, "sign by RSA-PSS, whatever the profile says"},
          {"digest", Choice, "sha256|sha384|sha512|sha3-256|sha3-384|sha3-512", "the digest (as the profile says)"},
          {"level", Choice, "B|T|LT",
           "what stands beside the signature: nothing, a time stamp, all that proves it (B)"},
          {"policy", Oid, "OID", "the policy of the user that the signature follows"},
          {"policy-document", File, "FILE", "the document of that policy"},
          {"no-time", Flag, nullptr, "claim no signing time"},
          kPem,
          kForce},
         {{"detached", "boolean", "Without its content"},
          {"contentLength", "number", "Octets of content"},
          {"signers", "number", "Signers"}},
         kOpen},
        {"",
         "verify",
         Needs::Keys,
         Effect::Writes,
         verify,
         "check every signature of a message; status 1 when one is not good",
         {{"MESSAGE", File, nullptr}},
         {kContent,
          {"out", NewFile, "FILE", "write the content, when every signature is good"},
          {"certs", File, "FILE", "certificates of signers and authorities"},
          {"at", Time, "TIME", "the moment asked about (when it was signed)"},
          {"now", Flag, nullptr, "judge the certificates as of now"},
          {"policy", Oid, "OID", "a certificate policy that is acceptable; may be repeated"},
          {"revocation", Choice, "none|known|required", "whether its status must be known (known)"},
          kForce},
         verdictFields(),
         kOpen,
         true},
    };
}

std::vector<VerbRow> sealingVerbs() {
    return {
        {"",
         "encrypt",
         Needs::Keys,
         Effect::Writes,
         encrypt,
         "encrypt a file as a message (CMS) for certificates",
         {{"FILE", File, nullptr}, {"MESSAGE", NewFile, nullptr}},
         {{"for-file", File, "FILE", "for the certificates of a file; may be repeated"},
          {"for-sha256", Hex, "HEX", "for the certificate of the database with this SHA-256; may be repeated"},
          {"for-email", Text, "TEXT", "for the one in the database with this e-mail address; may be repeated"},
          {"self", Flag, nullptr, "for the user, too"},
          {"cipher", Choice, "aes256-cbc|aes192-cbc|aes128-cbc|aes256-gcm|aes192-gcm|aes128-gcm|3des-cbc",
           "the cipher (as the profile says)"},
          {"oaep", Flag, nullptr, "protect the key by RSA-OAEP with SHA-256"},
          {"unchecked", Flag, nullptr, "also for certificates without a good path"},
          kPem,
          kForce},
         {{"recipients", "number", "Recipients"}},
         kOpen},
        {"",
         "decrypt",
         Needs::Keys,
         Effect::Writes,
         decrypt,
         "decrypt a message into a file",
         {{"MESSAGE", File, nullptr}, {"FILE", NewFile, nullptr}},
         {kForce},
         {{"contentType", "string", "Type of the content"},
          {"contentLength", "number", "Octets of content"},
          {"cipher", "string", "Cipher"},
          {"authenticated", "boolean", "Protected against changes"},
          {"recipient", "number", "Recipient that the key is of, from 0"},
          {"issuer", "string", "Issuer", true},
          {"serial", "string", "Serial number", true},
          {"keyId", "string", "Key identifier", true},
          {"algorithm", "string", "Protection of the key", true}},
         kOpen},
    };
}

}  // namespace

std::vector<VerbRow> messageVerbs() {
    return join(signingVerbs(), sealingVerbs());
}

}  // namespace crv::ctl
