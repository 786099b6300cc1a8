/* Calls of the Corvane library on CMS messages (RFC 5652): signing, verifying, encrypting, decrypting, each for a
 * message in memory and as a stream that takes a message of any length in constant memory. They follow the conventions
 * of corvane/crvapi.h, which includes this header, and need a profile that is logged in (ECRV_API_NOT_INITED).
 *
 * A stream is made by an Init call, fed by Update calls with pieces of any length and ended by the Final call, which
 * frees it whatever it answers; crvFreeStreamAPI gives one up before. A failed Update leaves a stream that answers
 * ECRV_INV_WRK_MODE. NOTHING that a stream wrote may be used before its Final call answered success: write to a
 * temporary file, and rename it then. Messages that are read may be DER, BER, PEM or Base64. */
#ifndef CORVANE_CRVMESSAGES_H
#define CORVANE_CRVMESSAGES_H

#include "corvane/crvcerts.h"
#include "corvane/crvtypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Takes what a stream writes; anything but 0 ends the stream with ECRV_WR_OUTFILE. No call with the same context may be
 * made from it. */
typedef int (*CrvSink)(void* user, const unsigned char* octets, long len);

/* How a message is written. */
enum CrvMessageForm {
    CRVMSG_FORM_CONFIGURED = 0, /* PEM when CRVOPT_BASE_64 is set, else DER */
    CRVMSG_FORM_DER = 1,        /* DER; BER with indefinite lengths for a content above 1 MiB */
    CRVMSG_FORM_PEM = 2
};

CRV_API int crvFreeStreamAPI(CRVctx* ctx, CrvStream* stream);

/* --- Signing ----------------------------------------------------------------------------------------------------- */

/* Where the content of a signature stands. */
enum CrvSignContent {
    CRVSIGN_CONTENT_CONFIGURED = 0, /* beside it when CRVOPT_CONTENTINFO_DETACHED is set, else inside */
    CRVSIGN_CONTENT_INSIDE = 1,
    CRVSIGN_CONTENT_BESIDE = 2
};

/* Further wishes; values combine. */
enum CrvSignFlags {
    CRVSIGN_NO_TIME = 1, /* claims no signing time */
    CRVSIGN_COSIGN = 2 /* what is given is a signed message with its content inside, to which the signature is added */
};

/* What stands beside a signature (EN 319 122-1 6.3). */
enum CrvSignLevel {
    CRVSIGN_LEVEL_B = 0, /* nothing */
    CRVSIGN_LEVEL_T = 1, /* a time stamp of one of the profile's servers */
    CRVSIGN_LEVEL_LT = 2 /* and the paths of the signer and of who stamped, with what tells that nothing on them is
                            revoked: CRLs and OCSP answers, fetched where none is current */
};

/* How to sign (EN 319 122-1). With every member but the size 0 or null: as configured. */
typedef struct CrvSignParams {
    long size;                        /* sizeof(CrvSignParams) */
    long content;                     /* CRVSIGN_CONTENT_ value */
    long form;                        /* CRVMSG_FORM_ value */
    unsigned long flags;              /* CRVSIGN_ bits */
    const char* policy;               /* one of the user's policies, as a dotted identifier; null: none */
    long policy_digest;               /* CRVDIGEST_ value of the digest of the policy's document; 0: left out */
    const unsigned char* policy_hash; /* that digest */
    long policy_hash_len;
    const unsigned char* message; /* a detached message to add a signature to; what is given is its content */
    long message_len;
    const CrvCert* const* certificates; /* to be put into the message, beside the signer's; null: none */
    long certificates_count;
    long level;                    /* CRVSIGN_LEVEL_ value */
    const CrvCert* const* signers; /* certificates of those of the profile's keys that sign; null: the signing key */
    long signers_count;
} CrvSignParams;

/* Signs with the signing key of the profile and the configured digest; params may be null. *message is freed with
 * crvFreeOctetsAPI. ECRV_SKEYS_NOT_PRES: no signing key with a certificate. ECRV_SIG_WITH_DIG_NOT_SUPPORTED.
 * ECRV_API_INV_PAR: an unfit value, or a policy that is not the user's. ECRV_INV_CRV_MSG, ECRV_NO_CRV_MSG,
 * ECRV_FILE_NOT_SGN_FOR_COUNTERSGN: not a message that a signature can be added to. ECRV_UNP_KEY_CRT: a signer whose
 * key the profile has not. Levels T and LT: ECRV_TS_NO_SERVER_DEF, ECRV_TS_NETWORK_FAIL, ECRV_TS_VERIF,
 * ECRV_TS_REJECTED, ECRV_TS_ALL_SERVERS_FAIL; ECRV_CRL_NOT_FOUND and what crvVerifyCertAPI answers, where nothing
 * current tells of a certificate that it is not revoked. The text names the server or the certificate. */
CRV_API int crvSignAPI(CRVctx* ctx, const unsigned char* content, long len, const CrvSignParams* params,
                       unsigned char** message, long* message_len);
CRV_API int crvSignInitAPI(CRVctx* ctx, const CrvSignParams* params, CrvSink sink, void* user, CrvStream** stream);
CRV_API int crvSignUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len);
CRV_API int crvSignFinalAPI(CRVctx* ctx, CrvStream* stream);

/* --- Verifying --------------------------------------------------------------------------------------------------- */

/* The moment at which certificates are judged. */
enum CrvMoment {
    CRVMOMENT_SIGNING = 0, /* that of a good time stamp, else the claimed one, else now */
    CRVMOMENT_NOW = 1,
    CRVMOMENT_GIVEN = 2
};

/* Where it came from. */
enum CrvMomentSource {
    CRVMOMENT_FROM_STAMP = 0,
    CRVMOMENT_FROM_CLAIM = 1,
    CRVMOMENT_FROM_CLOCK = 2,
    CRVMOMENT_FROM_CALLER = 3
};

/* What a look at a signature came to. */
enum CrvSignatureCheck {
    CRVSIGNATURE_GOOD = 0,
    CRVSIGNATURE_BAD = 1,            /* signature or digest is wrong */
    CRVSIGNATURE_UNSUPPORTED = 2,    /* an algorithm that is unknown here */
    CRVSIGNATURE_NONE = 3,           /* nobody signed */
    CRVSIGNATURE_NO_CERTIFICATE = 4, /* nobody has the signer's certificate */
    CRVSIGNATURE_NO_CONTENT = 5
};

/* How to verify. With every member but the size 0 or null: the content is inside, at the moment of signing. */
typedef struct CrvMessageParams {
    long size;                    /* sizeof(CrvMessageParams) */
    long moment;                  /* CRVMOMENT_ value */
    long time;                    /* for CRVMOMENT_GIVEN: seconds since 1970 UTC */
    const unsigned char* message; /* a detached message; what is given is its content. null: the content is inside */
    long message_len;
    const CrvVerifyParams*
        path; /* what the signers' certificates must be good for; its time does not matter. null: anything */
} CrvMessageParams;

/* Judges every signature of a message: 0 when there are signers and all are good, else the first thing that is wrong
 * (ECRV_MSGSIGN, ECRV_NO_SENDR_CRT, ECRV_DIGALG and what crvVerifyCertAPI answers). *verdict is to be freed with
 * crvFreeMessageVerdictAPI, or null when there is none: ECRV_NO_CRV_MSG, ECRV_INV_CRV_MSG: malformed or cut off;
 * ECRV_DETACHED_FILE_MISSING: no content. *content (may be null) is a content that stands inside, given only with a
 * good verdict, to be freed with crvFreeOctetsAPI. A stream takes a sink for it, which may be null. */
CRV_API int crvVerifyAPI(CRVctx* ctx, const unsigned char* octets, long len, const CrvMessageParams* params,
                         unsigned char** content, long* content_len, CrvMessageVerdict** verdict);
CRV_API int crvVerifyInitAPI(CRVctx* ctx, const CrvMessageParams* params, CrvSink sink, void* user, CrvStream** stream);
CRV_API int crvVerifyUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len);
CRV_API int crvVerifyFinalAPI(CRVctx* ctx, CrvStream* stream, CrvMessageVerdict** verdict);

/* The verdict on a message. */
typedef struct CrvMessageInfo {
    long size;                /* sizeof(CrvMessageInfo), set by the caller */
    int code;                 /* as crvVerifyAPI answered */
    long signers;             /* number of signatures */
    int inside;               /* 1: the content stood inside */
    long content_len;         /* octets */
    const char* content_type; /* dotted identifier; belongs to the verdict */
    long certificates;        /* that came with the message */
    long crls;
    long ocsp_responses;
} CrvMessageInfo;

/* The verdict on one signature. Everything that it points to belongs to the verdict; no text is null. */
typedef struct CrvSignerInfo {
    long size;                   /* sizeof(CrvSignerInfo), set by the caller */
    int code;                    /* 0: good; else the first thing that is wrong */
    long signature;              /* CRVSIGNATURE_ value */
    const char* reason;          /* what is wrong in words */
    const CrvCert* cert;         /* of the signer; null: nobody has it */
    const char* issuer;          /* that the message names; empty when it names a key */
    const char* serial;          /* hexadecimal */
    const char* algorithm;       /* of the signature */
    long digest;                 /* CRVDIGEST_ value; 0: another */
    long claimed_time;           /* seconds since 1970 UTC; 0: none */
    long stamp_time;             /* of a good time stamp; 0: none */
    const char* stamp_fault;     /* why the time stamp that stands there does not count */
    long moment;                 /* at which the certificate was judged */
    long moment_source;          /* CRVMOMENT_FROM_ value */
    const CrvVerifyResult* path; /* verdict on the certificate; null when nobody looked: the signature is not good */
    int revoked_since;           /* 1: revoked after a moment that only the signer claims */
    const char* policy;          /* signature policy that the signer says to follow, dotted */
    const char* not_signed;      /* what the signature does not protect, one a line */
    int expired_since;           /* 1: the path expired after a moment that only the signer claims */
    const char* stamp_authority; /* who made the good time stamp */
    const CrvVerifyResult*
        stamp_path; /* verdict on the certificate of who stamped; null: none, or stamp_fault before it */
} CrvSignerInfo;

/* The verdict, and those on its signatures by index from 0. */
CRV_API int crvGetMessageInfoAPI(CRVctx* ctx, const CrvMessageVerdict* verdict, CrvMessageInfo* info);
CRV_API int crvGetSignerInfoAPI(CRVctx* ctx, const CrvMessageVerdict* verdict, long index, CrvSignerInfo* info);
CRV_API int crvFreeMessageVerdictAPI(CRVctx* ctx, CrvMessageVerdict* verdict);

/* --- Encrypting -------------------------------------------------------------------------------------------------- */

/* Wishes; values combine. */
enum CrvEncryptFlags {
    CRVENCRYPT_SELF = 1,     /* also for the profile's own decryption key */
    CRVENCRYPT_OAEP = 2,     /* content keys for RSA certificates in OAEP instead of PKCS#1 v1.5 */
    CRVENCRYPT_UNCHECKED = 4 /* also for certificates without a good path */
};

/* For whom and how. */
typedef struct CrvEncryptParams {
    long size;                        /* sizeof(CrvEncryptParams) */
    const CrvCert* const* recipients; /* null: none */
    long recipients_count;
    unsigned long flags; /* CRVENCRYPT_ bits */
    const char* cipher;  /* dotted identifier; null: the configured one */
    long form;           /* CRVMSG_FORM_ value */
} CrvEncryptParams;

/* Encrypts as EnvelopedData, with a cipher in GCM mode as AuthEnvelopedData (RFC 5083). *message is freed with
 * crvFreeOctetsAPI. ECRV_RECCRT: no recipient. ECRV_EKEYS_NOT_PRES: none for CRVENCRYPT_SELF. ECRV_INV_CRT_PROF: a
 * certificate that must not receive, ECRV_UNSUPPORTED_KEY_ALGO: whose key cannot; ECRV_SYMALG; what crvVerifyCertAPI
 * answers for a certificate without a good path. */
CRV_API int crvEncryptAPI(CRVctx* ctx, const unsigned char* content, long len, const CrvEncryptParams* params,
                          unsigned char** message, long* message_len);
CRV_API int crvEncryptInitAPI(CRVctx* ctx, const CrvEncryptParams* params, CrvSink sink, void* user,
                              CrvStream** stream);
CRV_API int crvEncryptUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len);
CRV_API int crvEncryptFinalAPI(CRVctx* ctx, CrvStream* stream);

/* --- Decrypting -------------------------------------------------------------------------------------------------- */

/* What was decrypted. */
typedef struct CrvDecryptInfo {
    long size;             /* sizeof(CrvDecryptInfo), set by the caller */
    int authenticated;     /* 1: the message shows that nobody changed it; 0: only a signature inside can */
    long content_len;      /* octets */
    long recipients;       /* number */
    long recipient;        /* index of the one whose key decrypted */
    char content_type[64]; /* dotted identifier of what was inside */
    char algorithm[64];    /* of the content */
} CrvDecryptInfo;

/* Decrypts with the decryption key of the profile or a further (old) one; info may be null. *content is freed, and
 * wiped, with crvFreeOctetsAPI. ECRV_NOTADDR: for none of them; the text names the recipients. ECRV_DEKKEY: a damaged
 * message or the wrong key, which are not told apart (RFC 3218). ECRV_NO_CRV_MSG, ECRV_INV_CRV_MSG, ECRV_SYMALG,
 * ECRV_UNSUPPORTED_KEY_ALGO, ECRV_EKEYS_NOT_PRES: no key at all. */
CRV_API int crvDecryptAPI(CRVctx* ctx, const unsigned char* message, long len, unsigned char** content,
                          long* content_len, CrvDecryptInfo* info);
CRV_API int crvDecryptInitAPI(CRVctx* ctx, CrvSink sink, void* user, CrvStream** stream);
CRV_API int crvDecryptUpdateAPI(CRVctx* ctx, CrvStream* stream, const unsigned char* octets, long len);
CRV_API int crvDecryptFinalAPI(CRVctx* ctx, CrvStream* stream, CrvDecryptInfo* info);

#ifdef __cplusplus
}
#endif

#endif
