// Object identifiers under the package's own arc 1.3.6.1.4.1.32473.2: fields of the configuration record (5.N) and
// secret bags of the security file (6.N); and the integer options that fields hold.
#pragma once

#include "asn/asn_object_id.h"

namespace crv {

#define CRV_CONFIG_OID(constant, tail)         \
    inline constexpr KnownOid constant {       \
        "1.3.6.1.4.1.32473.2." tail, #constant \
    }

// Fields that are no integer options.
CRV_CONFIG_OID(OID_CRV_CONFIG_POLICIES, "5.1");               // SEQUENCE OF PolicyIdAndNote
CRV_CONFIG_OID(OID_CRV_CONFIG_SEED, "5.2");                   // OCTET STRING
CRV_CONFIG_OID(OID_CRV_CONFIG_SYM_ALGO, "5.3");               // OBJECT IDENTIFIER
CRV_CONFIG_OID(OID_CRV_CONFIG_TIME_STAMP_INFO, "5.4");        // kept as it is found
CRV_CONFIG_OID(OID_CRV_CONFIG_PROT_MSG_FMT, "5.5");           // INTEGER
CRV_CONFIG_OID(OID_CRV_CONFIG_TRUSTED_CA, "5.8");             // SEQUENCE OF Certificate
CRV_CONFIG_OID(OID_CRV_CONFIG_ENC_SEED, "5.10");              // OCTET STRING
CRV_CONFIG_OID(OID_CRV_CONFIG_QUALIFIED_TRUSTED_CA, "5.11");  // SEQUENCE OF Certificate
CRV_CONFIG_OID(OID_CRV_CONFIG_HASH_ALGO, "5.22");             // AlgorithmIdentifier
CRV_CONFIG_OID(OID_CRV_CONFIG_ACCEPTED_KEY_USAGE, "5.30");    // SEQUENCE OF PolicyIdAndNote
CRV_CONFIG_OID(OID_CRV_CONFIG_SIGNATURE_ALGO, "5.32");        // AlgorithmIdentifier
CRV_CONFIG_OID(OID_CRV_CONFIG_TEXT_OPTION_36, "5.51");        // UTF8String, as the next two
CRV_CONFIG_OID(OID_CRV_CONFIG_TEXT_OPTION_42, "5.52");
CRV_CONFIG_OID(OID_CRV_CONFIG_TEXT_OPTION_43, "5.53");
CRV_CONFIG_OID(OID_CRV_CONFIG_ALGORITHM_POLICY, "5.60");  // UTF8String
CRV_CONFIG_OID(OID_CRV_CONFIG_STORE_HISTORY, "5.61");     // INTEGER: how many former security files are kept
CRV_CONFIG_OID(OID_CRV_CONFIG_DELETED_KEYS, "5.62");      // SEQUENCE OF OCTET STRING: identifiers

// Attribute of certificate bags.
CRV_CONFIG_OID(OID_CRV_BAG_ORDINARY, "6.3");  // NULL: not a trust point, though the certificate of an authority

// Attributes of key bags.
CRV_CONFIG_OID(OID_CRV_BAG_PSS_ONLY, "6.4");          // AlgorithmIdentifier: the only one that the key signs with
CRV_CONFIG_OID(OID_CRV_BAG_SUCCESSOR, "6.5");         // OCTET STRING: the key whose place it takes when it is certified
CRV_CONFIG_OID(OID_CRV_BAG_SUCCESSOR_SCHEME, "6.6");  // AlgorithmIdentifier: what it signs with from then on
CRV_CONFIG_OID(OID_CRV_BAG_PREDECESSOR, "6.10");  // OCTET STRING: certificate of the deleted key whose place it took

// Secret bags.
CRV_CONFIG_OID(OID_CRV_SAFE_BAG_CONFIG, "6.1");  // the configuration record
CRV_CONFIG_OID(OID_CRV_SAFE_BAG_SEED, "6.2");    // OCTET STRING of 20 octets
CRV_CONFIG_OID(OID_CRV_SAFE_BAG_STRONG, "6.7");  // INTEGER: the version of the strong layout, which is 1

// Data objects of tokens.
CRV_CONFIG_OID(OID_CRV_TOKEN_RECORD, "7.1");  // the configuration record, signed by the user's key where there is one

/// The integer options in the order of their registration: X(option, name, identifier, arc, default).
#define CRV_INT_OPTIONS(X)                                                                               \
    X(3, kOptTimeStampSignReqInfo, OID_CRV_CONFIG_TIME_STAMP_SIGN_REQ_INFO, "5.7", 1)                    \
    X(4, kOptIgnoreTsErrors, OID_CRV_CONFIG_IGNORE_TS_ERRORS, "5.12", 0)                                 \
    X(14, kOptContentinfoDetached, OID_CRV_CONFIG_CONTENTINFO_DETACHED, "5.21", 0)                       \
    X(12, kOptVerifyAllTimestamps, OID_CRV_CONFIG_VERIFY_ALL_TIMESTAMPS, "5.19", 0)                      \
    X(7, kOptPkcs7Only, OID_CRV_CONFIG_PKCS7_ONLY, "5.14", 0)                                            \
    X(8, kOptBase64, OID_CRV_CONFIG_BASE_64, "5.15", 0)                                                  \
    X(9, kOptMimeAttach, OID_CRV_CONFIG_MIME_ATTACH, "5.16", 0)                                          \
    X(10, kOptMimeMultipart, OID_CRV_CONFIG_MIME_MULTIPART, "5.17", 0)                                   \
    X(11, kOptDontRemoveMimesinglepart, OID_CRV_CONFIG_DONT_REMOVE_MIMESINGLEPART, "5.18", 0)            \
    X(6, kOptEncCrtFromNet, OID_CRV_CONFIG_ENC_CRT_FROM_NET, "5.13", 0)                                  \
    X(5, kOptRememberPinInfo, OID_CRV_CONFIG_REMEMBER_PIN_INFO, "5.9", 0)                                \
    X(13, kOptAllowFullRecertification, OID_CRV_CONFIG_ALLOW_FULL_RECERTIFICATION, "5.20", 0)            \
    X(16, kOptDontGetCrlFromNet, OID_CRV_CONFIG_DONT_GET_CRL_FROM_NET, "5.23", 0)                        \
    X(17, kOptConnectTimeout, OID_CRV_CONFIG_CONNECT_TIMEOUT, "5.24", 30)                                \
    X(18, kOptNoNet, OID_CRV_CONFIG_NO_NET, "5.25", 0)                                                   \
    X(19, kOptDecryptOnly, OID_CRV_CONFIG_DECRYPT_ONLY, "5.26", 0)                                       \
    X(20, kOptEncryptWithoutInsideMime, OID_CRV_CONFIG_ENCRYPT_WITHOUT_INSIDE_MIME, "5.27", 0)           \
    X(24, kOptSignWithoutInsideMime, OID_CRV_CONFIG_SIGN_WITHOUT_INSIDE_MIME, "5.31", 0)                 \
    X(22, kOptDontCheckEmailInEncNetCrt, OID_CRV_CONFIG_DONT_CHECK_EMAIL_IN_ENC_NET_CRT, "5.28", 0)      \
    X(23, kOptCrtCache, OID_CRV_CONFIG_CRT_CACHE, "5.29", 0)                                             \
    X(2, kOptAddSignerMode, OID_CRV_CONFIG_ADD_SIGNER_MODE, "5.6", 1)                                    \
    X(27, kOptNewArlNeeded, OID_CRV_CONFIG_NEW_ARL_NEEDED, "5.33", 1)                                    \
    X(28, kOptCommitmentTypeIndication, OID_CRV_CONFIG_COMMITMENT_TYPE_INDICATION, "5.35", 0)            \
    X(29, kOptXmlCheckX509dataInconsistency, OID_CRV_CONFIG_XML_CHECK_X509DATA_INCONSISTENCY, "5.36", 1) \
    X(30, kOptIgnoreRecipientErrors, OID_CRV_CONFIG_IGNORE_RECIPIENT_ERRORS, "5.37", 0)                  \
    X(33, kOptCadesArchiveDigestMethod, OID_CRV_CONFIG_CADES_ARCHIVE_DIGEST_METHOD, "5.39", 0)           \
    X(32, kOptNetCertTimeout, OID_CRV_CONFIG_NET_CERT_TIMEOUT, "5.38", 0)                                \
    X(34, kOptCreateRefArchiveForm, OID_CRV_CONFIG_CREATE_REF_ARCHIVE_FORM, "5.40", 1)                   \
    X(35, kOptArchiveNewCrlNeeded, OID_CRV_CONFIG_ARCHIVE_NEW_CRL_NEEDED, "5.41", 1)                     \
    X(37, kOptVerifyOnlyMath, OID_CRV_CONFIG_VERIFY_ONLY_MATH, "5.42", 0)                                \
    X(38, kOptUseOcsp, OID_CRV_CONFIG_USE_OCSP, "5.43", 1)                                               \
    X(39, kOptTslNetLoadDays, OID_CRV_CONFIG_TSL_NET_LOAD_DAYS, "5.44", 7)                               \
    X(40, kOptTslNetLoadTimeoutSec, OID_CRV_CONFIG_TSL_NET_LOAD_TIMEOUT_SEC, "5.45", 300)                \
    X(41, kOptAutoCrlCrtDownload, OID_CRV_AUTO_CRL_CRT_DOWNLOAD, "5.46", 0)                              \
    X(44, kOptTslDownloadWithWget, OID_CRV_CONFIG_TSL_DOWNLOAD_WITH_WGET, "5.47", 0)                     \
    X(45, kOptUseSigningCertificateV2, OID_CRV_USE_SIGNING_CERTIFICATE_V2, "5.48", 1)                    \
    X(46, kOptLoginDuringAuthenticate, OID_CRV_CONFIG_LOGIN_DURING_AUTHENTICATE, "5.49", 0)              \
    X(47, kOptCheckMathAfterBuildPathError, OID_CRVOPT_CHECK_MATH_AFTER_BUILD_PATH_ERROR, "5.50", 0)

#define CRV_INT_OPTION_OID(option, name, constant, tail, value) CRV_CONFIG_OID(constant, tail);
CRV_INT_OPTIONS(CRV_INT_OPTION_OID)
#undef CRV_INT_OPTION_OID

/// The integer options by name.
#define CRV_INT_OPTION_ID(option, name, constant, tail, value) name = (option),
enum IntOptionId : long { CRV_INT_OPTIONS(CRV_INT_OPTION_ID) };
#undef CRV_INT_OPTION_ID
#undef CRV_CONFIG_OID

}  // namespace crv
