/* Numbers of a context: options, PIN slots, answers of a prompt, warnings. Usable from C and C++. */
#ifndef CORVANE_CRVOPTIONS_H
#define CORVANE_CRVOPTIONS_H

/* Integer options that the configuration record of a profile keeps: ROW(number, constant, default, unit, meaning).
 * "flag" is 0 (no) or 1 (yes). crvSaveConfigurationAPI stores them. */
/* clang-format off */
#define CRV_OPTION_LIST(ROW) \
    ROW(2, CRVOPT_ADD_SIGNER_MODE, 1, "flag, set by CRVOPT_SIGNER_MODE_ values", "a further signature stands beside those there") \
    ROW(3, CRVOPT_TIME_STAMP_SIGN_REQ_INFO, 1, "flag", "a time stamp is asked for the signature") \
    ROW(4, CRVOPT_IGNORE_TS_ERRORS, 0, "flag", "a message without the time stamp that was asked for is a success; no effect in this version") \
    ROW(5, CRVOPT_REMEMBER_PIN_INFO, 0, "flag", "PINs stay stored after the call that used them") \
    ROW(6, CRVOPT_ENC_CRT_FROM_NET, 0, "flag", "certificates of recipients are fetched") \
    ROW(7, CRVOPT_PKCS7_ONLY, 0, "flag", "messages are PKCS#7 without what CMS added; no effect in this version") \
    ROW(8, CRVOPT_BASE_64, 0, "flag", "messages are written in Base64") \
    ROW(9, CRVOPT_MIME_ATTACH, 0, "flag", "messages are written as MIME attachments") \
    ROW(10, CRVOPT_MIME_MULTIPART, 0, "flag", "detached messages are written as multipart MIME") \
    ROW(11, CRVOPT_DONT_REMOVE_MIMESINGLEPART, 0, "flag", "a single MIME part stays wrapped") \
    ROW(12, CRVOPT_VERIFY_ALL_TIMESTAMPS, 0, "flag", "every time stamp is verified, not the first good one") \
    ROW(13, CRVOPT_ALLOW_FULL_RECERTIFICATION, 0, "flag", "one key may be certified under two names") \
    ROW(14, CRVOPT_CONTENTINFO_DETACHED, 0, "flag", "signatures stand beside their content") \
    ROW(16, CRVOPT_DONT_GET_CRL_FROM_NET, 0, "flag", "CRLs are not fetched") \
    ROW(17, CRVOPT_CONNECT_TIMEOUT, 30, "seconds", "longest wait for a server") \
    ROW(18, CRVOPT_NO_NET, 0, "flag", "no network at all") \
    ROW(19, CRVOPT_DECRYPT_ONLY, 0, "flag", "the profile decrypts and does not sign") \
    ROW(20, CRVOPT_ENCRYPT_WITHOUT_INSIDE_MIME, 0, "flag", "content is enciphered as it is, without MIME around it") \
    ROW(22, CRVOPT_DONT_CHECK_EMAIL_IN_ENC_NET_CRT, 0, "flag", "fetched certificates may have another e-mail address") \
    ROW(23, CRVOPT_CRT_CACHE, 0, "flag", "certificates are kept in memory between calls") \
    ROW(24, CRVOPT_SIGN_WITHOUT_INSIDE_MIME, 0, "flag", "content is signed as it is, without MIME around it") \
    ROW(27, CRVOPT_NEW_ARL_NEEDED, 1, "flag", "lists of authorities must be current") \
    ROW(28, CRVOPT_COMMITMENT_TYPE_INDICATION, 0, "number of the commitment, 0: none", "what a signature commits to; no effect in this version") \
    ROW(29, CRVOPT_XML_CHECK_X509DATA_INCONSISTENCY, 1, "flag", "X509Data of XML signatures must agree with itself") \
    ROW(30, CRVOPT_IGNORE_RECIPIENT_ERRORS, 0, "flag", "a recipient without a good certificate is left out; no effect in this version") \
    ROW(32, CRVOPT_NET_CERT_TIMEOUT, 0, "seconds, 0: as long as CRVOPT_CONNECT_TIMEOUT", "longest wait for fetched certificates") \
    ROW(33, CRVOPT_CADES_ARCHIVE_DIGEST_METHOD, 0, "number of a digest, 0: that of the signature", "digest of archive time stamps") \
    ROW(34, CRVOPT_CREATE_REF_ARCHIVE_FORM, 1, "flag", "archive forms hold references, too") \
    ROW(35, CRVOPT_ARCHIVE_NEW_CRL_NEEDED, 1, "flag", "archive forms want CRLs issued after the signature") \
    ROW(37, CRVOPT_VERIFY_ONLY_MATH, 0, "flag", "signatures are verified without their certificates' paths; no effect in this version") \
    ROW(38, CRVOPT_USE_OCSP, 1, "flag", "OCSP is asked") \
    ROW(39, CRVOPT_TSL_NET_LOAD_DAYS, 7, "days", "age at which trusted lists are fetched anew") \
    ROW(40, CRVOPT_TSL_NET_LOAD_TIMEOUT_SEC, 300, "seconds", "longest wait for trusted lists") \
    ROW(41, CRVOPT_AUTO_CRL_CRT_DOWNLOAD, 0, "flag", "missing CRLs and certificates are fetched unasked") \
    ROW(44, CRVOPT_TSL_DOWNLOAD_WITH_WGET, 0, "flag, of the whole process: crvSetGlobalOption", "an external downloader fetches trusted lists") \
    ROW(45, CRVOPT_USE_SIGNING_CERTIFICATE_V2, 1, "flag", "signatures name their certificate by SHA-2; no effect in this version") \
    ROW(46, CRVOPT_LOGIN_DURING_AUTHENTICATE, 0, "flag", "a token is logged in to while the profile is opened") \
    ROW(47, CRVOPT_CHECK_MATH_AFTER_BUILD_PATH_ERROR, 0, "flag", "a signature is checked also when there is no path; no effect in this version")
/* clang-format on */

#define CRV_OPTION_CONSTANT(number, constant, standard, unit, meaning) constant = (number),
enum CrvOption {
    CRV_OPTION_LIST(CRV_OPTION_CONSTANT) /* and those that are not kept under a number of their own: */
    CRVOPT_DIGEST = 15,    /* a CRVDIGEST_ value; default CRVDIGEST_SHA256, for a DSA key CRVDIGEST_SHA1 */
    CRVOPT_SCHEME = 21,    /* a CRVSCHEME_ value; default the signing key's */
    CRVOPT_SIGNATURE = 25, /* a CRVSCHEME_ value times 256 plus a CRVDIGEST_ value */
    CRVOPT_IGNORED = 31,   /* set without effect */
    CRVOPT_TEXT_36 = 36,   /* texts of the program's own, UTF-8; default none */
    CRVOPT_TEXT_42 = 42,
    CRVOPT_TEXT_43 = 43
};
#undef CRV_OPTION_CONSTANT

/* Values that set CRVOPT_ADD_SIGNER_MODE; it is read as 0 and 1. */
enum CrvSignerMode { CRVOPT_SIGNER_MODE_NO = 3, CRVOPT_SIGNER_MODE_YES = 4 };

/* Digests. */
enum CrvDigest {
    CRVDIGEST_SHA1 = 1,
    CRVDIGEST_SHA224 = 3,
    CRVDIGEST_SHA256 = 4,
    CRVDIGEST_SHA384 = 5,
    CRVDIGEST_SHA512 = 6,
    CRVDIGEST_RIPEMD160 = 8,
    CRVDIGEST_SHA3_224 = 9,
    CRVDIGEST_SHA3_256 = 10,
    CRVDIGEST_SHA3_384 = 11,
    CRVDIGEST_SHA3_512 = 12
};

/* How keys sign. */
enum CrvScheme {
    CRVSCHEME_NONE = 0, /* of a key that does not sign */
    CRVSCHEME_RSA = 2,  /* PKCS#1 v1.5 */
    CRVSCHEME_DSA = 4,
    CRVSCHEME_ECDSA = 5,
    CRVSCHEME_RSA_PSS = 6
};

/* Slots of PINs; values combine into masks. */
enum CrvPinSlot {
    CRVPIN_SIGNING_TOKEN = 1,    /* password of the security file; PIN of the token with the signing key */
    CRVPIN_DECRYPTION_TOKEN = 2, /* PIN of the token with the decryption key */
    CRVPIN_ROOTS = 8,            /* password of the additional trust points */
    CRVPIN_SIGNING_KEY = 16      /* PIN of the signing key itself */
};

/* Answers of a prompt for a PIN. */
enum CrvPinAnswer {
    CRVPIN_GIVEN = 0,
    CRVPIN_WRONG = 34,    /* ends the call with ECRV_PASSWORD */
    CRVPIN_CANCELLED = 41 /* ends the call with ECRV_ACTION_CANCELLED */
};

/* Warnings, which crvGetWarnings fetches: ROW(number, constant, text). */
/* clang-format off */
#define CRV_WARNING_LIST(ROW) \
    ROW(1, WARN_USER_CRT_NOT_VALID, "Certyfikat użytkownika jest poza okresem ważności") \
    ROW(2, WARN_NET_STORE_NOT_MOVED, "Nie wszystkie pobrane certyfikaty i listy CRL zapisano w bazie danych") \
    ROW(3, WARN_OPTION_NOT_APPLIED, "Opcja ustawiona przed zalogowaniem nie pasuje do klucza i nie obowiązuje") \
    ROW(4, WARN_PINS_REMOVED, "Zapamiętane PINy poprzedniego profilu usunięto") \
    ROW(5, WARN_CERT_REFUSED, "Nie wszystkie certyfikaty zapisano w bazie danych") \
    ROW(6, WARN_REST_NOT_READ, "Za certyfikatami są dane, które nie są certyfikatem") \
    ROW(7, WARN_CRL_NOT_VERIFIED, "Lista CRL nie jest zweryfikowana i nie będzie używana, dopóki nie będzie")
/* clang-format on */

#define CRV_WARNING_CONSTANT(number, constant, text) constant = (number),
enum CrvWarning { CRV_WARNING_LIST(CRV_WARNING_CONSTANT) WARN_NONE = 0 };
#undef CRV_WARNING_CONSTANT

#endif
