/* Calls of the Corvane library on keys, certificates, CRLs and trust points of the profile that a context is logged in
 * to. They follow the conventions of corvane/crvapi.h, which includes this header. Before the log-in they answer
 * ECRV_API_NOT_INITED (22) where they need keys. */
#ifndef CORVANE_CRVCERTS_H
#define CORVANE_CRVCERTS_H

#include "corvane/crvtypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* --- Keys -------------------------------------------------------------------------------------------------------- */

/* What a key is used for. */
enum CrvKeyUse {
    CRVKEY_USE_FURTHER = 0, /* an old key: it decrypts what came for it */
    CRVKEY_USE_SIGN = 1,
    CRVKEY_USE_DECRYPT = 2,
    CRVKEY_USE_BOTH = 3
};

/* Families of keys. */
enum CrvKeyKind { CRVKEY_RSA = 1, CRVKEY_DSA = 2, CRVKEY_EC = 3 };

/* A key of the user. */
typedef struct CrvKeyInfo {
    long size;            /* sizeof(CrvKeyInfo), set by the caller */
    long use;             /* CRVKEY_USE_ value */
    long kind;            /* CRVKEY_ value */
    long scheme;          /* CRVSCHEME_ value: how it signs */
    long bits;            /* of the modulus, or of the curve's field */
    unsigned char id[20]; /* SHA-1 of the public key (RFC 5280 4.2.1.2 (1)) */
    const CrvCert* cert;  /* its newest certificate; belongs to the iterator; null: none */
} CrvKeyInfo;

/* Iterates the keys: the signing key, the decryption key, then the further ones. *count (may be null) receives their
 * number. crvGetNextKeyAPI answers ECRV_KEY_NOT_FOUND at the end. Free the iterator with crvFreeKeyIteratorAPI. */
CRV_API int crvGetKeyIteratorAPI(CRVctx* ctx, long* count, CrvKeyIterator** iterator);
CRV_API int crvGetNextKeyAPI(CRVctx* ctx, CrvKeyIterator* iterator, CrvKeyInfo* info);
CRV_API int crvFreeKeyIteratorAPI(CRVctx* ctx, CrvKeyIterator* iterator);

/* A key to be generated. */
typedef struct CrvKeyPlan {
    long size;                   /* sizeof(CrvKeyPlan) */
    long use;                    /* CRVKEY_USE_ value, not CRVKEY_USE_FURTHER */
    long scheme;                 /* CRVSCHEME_ value; 0: CRVSCHEME_RSA. ECDSA and DSA keys only sign */
    long bits;                   /* of an RSA key, from 2048, 0: 2048; of a DSA key 1024, 0: 1024; of another key 0 */
    const char* curve;           /* name of an EC key's curve, "secp384r1"; null: "prime256v1" */
    long pss_digest;             /* CRVDIGEST_ value that alone an RSA-PSS key may sign with; 0: any */
    int (*progress)(void* user); /* asked while a key is generated; anything but 0 stops that. null: nobody is asked */
    void* user;
} CrvKeyPlan;

/* Generates a key and saves it with the key store, whose PIN it needs. ECRV_KEY_WITH_SUCH_USAGE_EXISTS: there is a key
 * of that use. ECRV_UNSUPPORTED_KEY_LEN_CERT_VERSION, ECRV_UNSUPPORTED_CURVE_CERT_VERSION,
 * ECRV_UNSUPPORTED_KEY_ALGO_CERT_VERSION, ECRV_ACTION_CANCELLED: stopped. When the save fails, there is no new key. */
CRV_API int crvGenerateKeyAPI(CRVctx* ctx, const CrvKeyPlan* plan);

/* A request for a certificate. */
typedef struct CrvRequestParams {
    long size;           /* sizeof(CrvRequestParams) */
    long use;            /* CRVKEY_USE_SIGN, CRVKEY_USE_DECRYPT or CRVKEY_USE_BOTH: whose key it is for */
    long scheme;         /* CRVSCHEME_ value of its signature; 0: the key's */
    long digest;         /* CRVDIGEST_ value of its signature; 0: SHA-256, for a DSA key SHA-1 */
    const char* subject; /* name as "CN=Jan,O=Firma"; null: that of the user's certificate, else the profile's name */
    long der;            /* 1: DER instead of PEM */
} CrvRequestParams;

/* Makes a PKCS#10 request (RFC 2986); params may be null: for the signing key. *request is freed with
 * crvFreeOctetsAPI. ECRV_KEY_NOT_FOUND, ECRV_SIG_WITH_DIG_NOT_SUPPORTED. */
CRV_API int crvPrepareCrtRequestAPI(CRVctx* ctx, const CrvRequestParams* params, unsigned char** request, long* len);

/* Fills a buffer with random octets of the profile's generator. ECRV_SEED_NOT_PRES, ECRV_NOT_IMPL for a medium without
 * one; the buffer is then zeroed. */
CRV_API int crvGetRandomAPI(CRVctx* ctx, char* buf, long len);

/* --- Certificates ------------------------------------------------------------------------------------------------ */

/* Attributes of a certificate. "text" is UTF-8 without a terminator, "long" 8 bytes in the machine's order, "octets"
 * binary. Those that a certificate does not have answer ECRV_ATTR_HAS_NO_VALUE. */
enum CrvCertAttr {
    CRVCERT_ATTR_DER = 0,          /* octets: the certificate */
    CRVCERT_ATTR_SUBJECT = 1,      /* text: "CN=Jan,O=Firma" (RFC 4514) */
    CRVCERT_ATTR_ISSUER = 2,       /* text, likewise */
    CRVCERT_ATTR_SERIAL = 3,       /* text: serial number in hexadecimal */
    CRVCERT_ATTR_NOT_BEFORE = 4,   /* long: seconds since 1970 UTC */
    CRVCERT_ATTR_NOT_AFTER = 5,    /* long, likewise */
    CRVCERT_ATTR_EMAIL = 6,        /* text: the first e-mail address */
    CRVCERT_ATTR_KEY_KIND = 7,     /* long: CRVKEY_ value */
    CRVCERT_ATTR_KEY_BITS = 8,     /* long */
    CRVCERT_ATTR_KEY_ID = 9,       /* 20 octets: SHA-1 of the public key (RFC 5280 4.2.1.2 (1)) */
    CRVCERT_ATTR_KEY_USAGE = 10,   /* long: bit n is bit n of KeyUsage (RFC 5280 4.2.1.3) */
    CRVCERT_ATTR_IS_CA = 11,       /* long: 1 for an authority's, else 0 */
    CRVCERT_ATTR_SHA1 = 12,        /* 20 octets: SHA-1 of the certificate */
    CRVCERT_ATTR_SHA256 = 13,      /* 32 octets: SHA-256 of the certificate */
    CRVCERT_ATTR_SUBJECT_DER = 14, /* octets */
    CRVCERT_ATTR_ISSUER_DER = 15,  /* octets */
    CRVCERT_ATTR_PUBLIC_KEY = 16   /* octets: SubjectPublicKeyInfo */
};

/* Certificates of octets: DER, one behind another, PEM or a PKCS#7 bundle. No profile is needed. ECRV_INV_CRT_FMT:
 * there is none. WARN_REST_NOT_READ: what stands behind them is no certificate. */
CRV_API int crvReadCertsAPI(CRVctx* ctx, const unsigned char* octets, long len, long* count,
                            CrvCertIterator** iterator);

/* The certificate of the key that signs (CRVKEY_USE_SIGN) or decrypts (CRVKEY_USE_DECRYPT). ECRV_USERCRT: none. */
CRV_API int crvGetUserCertAPI(CRVctx* ctx, long use, CrvCert** cert);

/* An attribute (a CRVCERT_ATTR_ value) by the buffer rule. */
CRV_API int crvGetCertAttrAPI(CRVctx* ctx, const CrvCert* cert, long id, char* buf, long* len);
CRV_API int crvFreeCertAPI(CRVctx* ctx, CrvCert* cert);

/* What certificates are looked for by. Null members do not matter; texts are parts of the value, in any letter case. */
typedef struct CrvCertQuery {
    long size;           /* sizeof(CrvCertQuery) */
    const char* subject; /* in any attribute of the subject */
    const char* issuer;  /* in any attribute of the issuer */
    const char* email;
    const char* serial; /* hexadecimal, whole */
    const char* sha256; /* of the certificate, hexadecimal, whole */
} CrvCertQuery;

/* Certificates of the profile's database; query may be null: all. The log-in is not needed. *count (may be null)
 * receives their number. ECRV_DB, ECRV_DB_VER, ECRV_DB_ACCESS, ECRV_LOCK. */
CRV_API int crvFindCertsAPI(CRVctx* ctx, const CrvCertQuery* query, long* count, CrvCertIterator** iterator);

/* The next certificate, which is freed with crvFreeCertAPI and may outlive the iterator. ECRV_CRTNOTFOUND at the end.
 */
CRV_API int crvGetNextCertAPI(CRVctx* ctx, CrvCertIterator* iterator, CrvCert** cert);
CRV_API int crvFreeCertIteratorAPI(CRVctx* ctx, CrvCertIterator* iterator);

/* What an import came to. */
typedef struct CrvImportResult {
    long size;    /* sizeof(CrvImportResult), set by the caller */
    long stored;  /* certificates that are new in the database */
    long present; /* were there already */
    long refused; /* cannot be stored, for instance for their e-mail address */
} CrvImportResult;

/* Stores certificates (octets as for crvReadCertsAPI) in the profile's database. result may be null. WARN_CERT_REFUSED,
 * WARN_REST_NOT_READ; ECRV_INV_CRT_FMT: there is none. */
CRV_API int crvImportCertsAPI(CRVctx* ctx, const unsigned char* octets, long len, CrvImportResult* result);

/* Stores a CRL (DER, PEM or Base64) in the profile's database. One that is there already is a success.
 * ECRV_INV_CRL_FMT; ECRV_OLD_CRL: a newer one is there. One that does not verify under the trust points is refused with
 * the reason (66, 67, 70, 101, 155 and the like) unless unverified is not 0: WARN_CRL_NOT_VERIFIED. */
CRV_API int crvImportCrlAPI(CRVctx* ctx, const unsigned char* octets, long len, int unverified);

/* What crvInstallUserCrtAPI does without asking; values combine. */
enum CrvInstallFlags {
    CRVINSTALL_REPLACE = 1,       /* a newer certificate takes the place of a valid one */
    CRVINSTALL_EXPIRED = 2,       /* certificates that are no longer valid */
    CRVINSTALL_NOT_YET_VALID = 4, /* certificates that are not valid yet */
    CRVINSTALL_ALL = 7
};

/* Gives the user's keys their certificates among the octets, puts those and their authorities' into the database and
 * saves the key store, whose PIN it needs; a failure changes nothing. *count (may be null): certificates of the user
 * that were installed. ECRV_UNP_KEY_CRT: none belongs to a key of the user. ECRV_CRT_WITH_SUCH_USAGE_EXISTS: one that
 * is as new is installed, or flags (CRVINSTALL_ bits) do not permit to replace it. ECRV_CRTAFTER, ECRV_CRTBEFORE: flags
 * do not permit it. ECRV_KEY_WITH_SUCH_USAGE_EXISTS: its use belongs to another key. ECRV_RECERTIFICATION_WITH_DIFF_DN.
 */
CRV_API int crvInstallUserCrtAPI(CRVctx* ctx, const unsigned char* octets, long len, unsigned long flags, long* count);

/* --- Trust points ------------------------------------------------------------------------------------------------ */

/* Where a trust point stands. Only the user's own can be deleted. */
enum CrvTrustPlace {
    CRVTRUST_KEY_STORE = 0, /* came with the key store */
    CRVTRUST_USER = 1,      /* added by the user */
    CRVTRUST_QUALIFIED = 2, /* qualified ones of the configuration */
    CRVTRUST_ADDITIONAL = 3 /* of the additional trust points */
};

/* Iterates the trust points. crvGetNextTrustPointAPI answers ECRV_CRTNOTFOUND at the end; place (may be null) receives
 * a CRVTRUST_ value, and the certificate is freed with crvFreeCertAPI. */
CRV_API int crvGetTrustPointIteratorAPI(CRVctx* ctx, long* count, CrvTrustPointIterator** iterator);
CRV_API int crvGetNextTrustPointAPI(CRVctx* ctx, CrvTrustPointIterator* iterator, CrvCert** cert, long* place);
CRV_API int crvFreeTrustPointIteratorAPI(CRVctx* ctx, CrvTrustPointIterator* iterator);

/* Adds or deletes a trust point of the user and saves the key store, whose PIN both need. ECRV_SKEYS_NOT_PRES: only who
 * can sign adds. ECRV_NO_CA_AUTO_CRT: no authority's self-issued certificate. ECRV_CRTSIGN.
 * ECRV_TRUSTED_CA_DIFFERENT_GROUP: MD5 or too short a key. ECRV_CRTAFTER: expired. ECRV_CRT_WITH_SUCH_USAGE_EXISTS:
 * there already. ECRV_CRTNOTFOUND: no such trust point. ECRV_NOT_IMPL: not the user's own. */
CRV_API int crvAddTrustPointAPI(CRVctx* ctx, const CrvCert* cert);
CRV_API int crvDelTrustPointAPI(CRVctx* ctx, const CrvCert* cert);

/* --- Verification ------------------------------------------------------------------------------------------------ */

/* Values of CrvVerifyParams.revocation, bits of its flags, and of CrvVerifyStep.status. */
enum CrvVerifyRevocation {
    CRVVERIFY_REVOCATION_KNOWN = 0,    /* what the stored CRLs tell counts, an unknown status does not (the default) */
    CRVVERIFY_REVOCATION_REQUIRED = 1, /* an unknown status fails */
    CRVVERIFY_REVOCATION_NONE = 2      /* nobody asks */
};
enum CrvVerifyFlags {
    CRVVERIFY_EXPLICIT_POLICY = 1,         /* initial-explicit-policy of RFC 5280 6.1.1 */
    CRVVERIFY_INHIBIT_MAPPING = 2,         /* initial-policy-mapping-inhibit */
    CRVVERIFY_INHIBIT_ANY_POLICY = 4,      /* initial-any-policy-inhibit */
    CRVVERIFY_NO_DELTAS = 8,               /* delta CRLs are left alone */
    CRVVERIFY_CONSTRAINED_TRUST_POINT = 16 /* constraints in the trust point's certificate bind, too (RFC 5937) */
};
enum CrvCertStatus {
    CRVSTATUS_NOT_ASKED = 0,
    CRVSTATUS_GOOD = 1,
    CRVSTATUS_REVOKED = 2, /* or on hold: reason 6 */
    CRVSTATUS_UNKNOWN = 3, /* no stored CRL covers it */
    CRVSTATUS_UNUSABLE = 4 /* one does, but cannot be relied on */
};

/* What a certificate is to be good for. With every member but the size 0 or null: for anything, now. */
typedef struct CrvVerifyParams {
    long size;                     /* sizeof(CrvVerifyParams) */
    long time;                     /* seconds since 1970 UTC; 0: now */
    unsigned long key_usage;       /* bit n is bit n of KeyUsage (RFC 5280 4.2.1.3) */
    const char* const* ext_usages; /* purposes as dotted identifiers, a null pointer behind the last; null: any */
    const char* const* policies;   /* the same for certificate policies */
    long revocation;               /* CRVVERIFY_REVOCATION_ value */
    unsigned long flags;           /* CRVVERIFY_ bits */
    long depth;                    /* certificates on a path at most; 0: 64 */
    const CrvCert* const* certs;   /* that may stand on the path, too; null: none */
    long certs_count;
} CrvVerifyParams;

/* The verdict. Its texts, as those of a step, belong to the result; none is null. */
typedef struct CrvVerifyInfo {
    long size;            /* sizeof(CrvVerifyInfo), set by the caller */
    int code;             /* what crvVerifyCertAPI answered */
    const char* clause;   /* of RFC 5280, the rule that does not hold; empty when all do or it is no rule of it */
    const char* reason;   /* what is wrong in words */
    long failed_at;       /* index of the certificate that fails */
    long steps;           /* certificates on the path, the one asked about first, the trust point last */
    int exhausted;        /* 1: the limit of work ended the search before every path was tried */
    const char* policies; /* valid for the path (RFC 5280 6.1.6): dotted identifiers with spaces between */
} CrvVerifyInfo;

typedef struct CrvVerifyStep {
    long size;                /* sizeof(CrvVerifyStep), set by the caller */
    const unsigned char* der; /* the certificate */
    long der_len;
    const char* subject;
    long status;               /* CRVSTATUS_ value */
    int status_code;           /* unknown, unusable: why, as a code of the library */
    const char* status_clause; /* of RFC 5280: what makes the CRL unusable */
    const char* status_text;
    long reason;               /* revoked: reason of RFC 5280 5.3.1 */
    long revoked_at;           /* seconds since 1970 UTC */
    const char* source;        /* who issued the CRL that tells the status; empty: none */
    const char* source_number; /* its number in decimal */
    long this_update;          /* its time, seconds since 1970 UTC */
    long age;                  /* seconds from then to the moment asked about */
    const char* algorithm;     /* of the signature and the key that made it */
    const char* weakness;      /* what the algorithm policy of the profile says against them */
    const char* source_delta;  /* number of the delta that was applied; empty: none */
} CrvVerifyStep;

/* Judges a certificate by RFC 5280 section 6 under the trust points, the database and the algorithm policy of the
 * profile that is logged in. Answers 0 for a good one, else why it is not (64 to 70, 88, 101, 102, 155 and the like);
 * params may be null. *result is the verdict, to be freed with crvFreeVerifyResultAPI, or null when there is none:
 * ECRV_API_NOT_INITED before the log-in, ECRV_API_INV_PAR for an unfit size, value or identifier. */
CRV_API int crvVerifyCertAPI(CRVctx* ctx, const CrvCert* cert, const CrvVerifyParams* params, CrvVerifyResult** result);

/* The verdict and the certificates of its path by index from 0. The caller sets size; no more is written. */
CRV_API int crvGetVerifyInfoAPI(CRVctx* ctx, const CrvVerifyResult* result, CrvVerifyInfo* info);
CRV_API int crvGetVerifyStepAPI(CRVctx* ctx, const CrvVerifyResult* result, long index, CrvVerifyStep* step);
CRV_API int crvFreeVerifyResultAPI(CRVctx* ctx, CrvVerifyResult* result);

#ifdef __cplusplus
}
#endif

#endif
