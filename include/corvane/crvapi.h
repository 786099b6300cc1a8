/* The Corvane library: certificate work under a named profile. Plain C; link with libcorvane.
 *
 * Every operation takes a context first and answers a code of corvane/crverrors.h: 0 success, 1 to 3 success with a
 * note on where the keys are, 10 success with warnings, 20 and above failures. Common to all of them:
 *   - a null context answers ECRV_API_INV_PAR (20), something that is no context ECRV_API_INV_CTX (21);
 *   - a null pointer where a value is needed, a negative length or an unknown number answers ECRV_API_INV_PAR;
 *   - a failed assertion answers ECRV_INTERNAL_ERROR (141), an unexpected failure ECRV_UNKNOWN_EXCEPTION (161); what is
 *     known about a failure stands in the text of crvErrorTextAPI until the next operation with the context;
 *   - no exception leaves the library; operations that answer a pointer answer null instead of a failure.
 * Calls that fill a buffer take the buffer's size in *len and put the value's length there; a null buffer asks for the
 * length only (*len is then not looked at), and a buffer that is too short answers ECRV_BUFF_TO_SHORT (120) with *len
 * set to the size needed. Values carry no terminator. All texts are UTF-8. A context may be used by one caller at a
 * time; different contexts may be used by several threads at once. */
#ifndef CORVANE_CRVAPI_H
#define CORVANE_CRVAPI_H

#include "corvane/crverrors.h"
#include "corvane/crvprofile.h"

#if defined(__GNUC__)
#define CRV_API __attribute__((visibility("default")))
#else
#define CRV_API
#endif

/* Handles. Their contents belong to the library. */
#ifdef __cplusplus
namespace crv {
struct CRVctx;
class CrvProfile;
class ProfileIterator;
struct ServerIterator;
struct VerifyResult;
}  // namespace crv
typedef crv::CRVctx CRVctx;
typedef crv::CrvProfile CrvProfile;
typedef crv::ProfileIterator CrvProfileIterator;
typedef crv::ServerIterator CrvServerIterator;
typedef crv::VerifyResult CrvVerifyResult;
extern "C" {
#else
typedef struct CRVctx CRVctx;
typedef struct CrvProfile CrvProfile;
typedef struct CrvProfileIterator CrvProfileIterator;
typedef struct CrvServerIterator CrvServerIterator;
typedef struct CrvVerifyResult CrvVerifyResult;
#endif

/* --- Contexts ---------------------------------------------------------------------------------------------------- */

/* Makes a context after the cryptographic self-tests of the process. With a name it loads the profile of that name from
 * the list media (a CRVPROFILE_MEDIA_ value; file names the list for CRVPROFILE_MEDIA_FILE and is otherwise ignored);
 * with a null name the context has no profile yet. *ctx is null after a failure. ECRV_TOO_MANY_CONTEXTS: 64 contexts
 * are alive. ECRV_LIBCORVPP_TEST_FAILED: a self-test failed. ECRV_PROFILE_NOT_LOADED: no such profile.
 * ECRV_PROFILE_LOAD_ERROR: the list cannot be read. */
CRV_API int crvInitExAPI(CRVctx** ctx, int media, const char* file, const char* name);

/* Ends a context: logs out, wipes its PINs and keys and frees it. The pointer is no context afterwards. */
CRV_API int crvDeinitExAPI(CRVctx* ctx);

/* Binds a copy of a profile to the context in place of the current one, which is logged out; null binds none. */
CRV_API int crvLoadProfileAPI(CRVctx* ctx, const CrvProfile* profile);

/* Logs in to the keys of the context's profile with the PINs stored before: takes the exclusive lock on the security
 * file (not for tokens, providers and memory), checks that the databases exist, opens the keys and, when readAdditional
 * is not 0, the additional trust points. 1 to 3: logged in, the keys are on a device. ECRV_PROFILE_NOT_LOADED without a
 * profile, ECRV_LOCK when the lock fails, ECRV_PASSWORD for a wrong password, after which every stored PIN is gone;
 * ECRV_DB, ECRV_DB_VER, ECRV_DB_ACCESS for the databases; others as the keys' medium gives them. */
CRV_API int crvAuthenticateExAPI(CRVctx* ctx, int readAdditional);

/* Text of a code, refined by what the context knows about its last failure. Never fails: a code without a row gives
 * "Nieznany kod błędu %d !!!". Valid until the next call with the same context, or without a context until the next
 * such call of the thread. ctx may be null. crvErrorText is the same and logs the call. */
CRV_API const char* crvErrorTextAPI(CRVctx* ctx, int code);
CRV_API const char* crvErrorText(CRVctx* ctx, int code);

/* Texts of the warnings of the last operation, one a line, each "NAME: text". Does not end that operation's report. */
CRV_API int crvGetWarnings(CRVctx* ctx, char* buf, long* len);

/* The report of every operation of the context so far, one line a step. Does not end the running operation's report. */
CRV_API int crvGetReportAPI(CRVctx* ctx, char* buf, long* len);

/* --- Options ----------------------------------------------------------------------------------------------------- */

/* Sets or reads an integer option of the context's profile. Special numbers: 1 cannot be set; 2 takes 3 (stores 0) or 4
 * (stores 1); 15 the digest: 1 SHA-1, 3 SHA-224, 4 SHA-256, 5 SHA-384, 6 SHA-512, 8 RIPEMD-160, 9 to 12 SHA3-224 to
 * SHA3-512; 21 the signature scheme: 2 RSA with PKCS#1 v1.5, 4 DSA, 5 ECDSA, 6 RSA-PSS; 25 both, the scheme times 256
 * plus the digest; 31 is accepted and ignored. ECRV_API_INV_PAR: unknown option or value.
 * ECRV_SIG_WITH_DIG_NOT_SUPPORTED: the signing key cannot be used so; the report says why. ECRV_MEM: not stored. */
CRV_API int crvSetOptionAPI(CRVctx* ctx, long id, long value);
CRV_API int crvGetOptionAPI(CRVctx* ctx, long id, long* value);

/* Sets or reads a text option: 36, 42 or 43. A null value removes it. The text read is valid until the next operation
 * with the context; null: not set, or no text option. */
CRV_API int crvSetTextOptionAPI(CRVctx* ctx, long id, const char* value);
CRV_API const char* crvGetTextOptionAPI(CRVctx* ctx, long id);

/* Sets or reads the one process-wide option, 44: download trusted lists with an external downloader (0 or 1; any value
 * but 0 stores 1). No context is needed. ECRV_API_INV_PAR for any other number. */
CRV_API int crvSetGlobalOption(long id, long value);
CRV_API int crvGetGlobalOption(long id, long* value);

/* --- PINs -------------------------------------------------------------------------------------------------------- */

/* Stores a PIN or password, which is copied, in a slot: 1 security file or token with the signing key, 2 token with the
 * decryption key, 8 additional trust points, 16 signing key. The first form takes the text in the character set of the
 * process's locale (ECRV_TEXT_CONVERT when it is none), the second in UTF-8. Any other slot is ECRV_INTERNAL_ERROR. */
CRV_API int crvStorePINAPI(CRVctx* ctx, long id, const char* pin);
CRV_API int crvStorePINUtf8API(CRVctx* ctx, long id, const char* pin);

/* Overwrites the PINs of the slots of a mask (1, 2, 8, 16) with zeros. The slots count as filled afterwards. */
CRV_API int crvCleanPINAPI(CRVctx* ctx, long mask);

/* Which PINs the profile needs for a slot, as a mask of slots (0: none): for 1, 2 and 16 the password or PIN, 1, unless
 * it is entered on the reader; for 8 the password of the additional trust points, 8, unless there are none or it is
 * empty. */
CRV_API int crvGetPINInfo(CRVctx* ctx, long id, long* needed);

/* Gives the library a way to ask for a PIN that is not stored; null takes it away. The function fills pin with at most
 * size bytes of UTF-8 with the terminator and answers 0, or 41 when the user cancels, or 34 for a wrong PIN. */
typedef int (*CrvPinPrompt)(void* user, long id, char* pin, long size);
CRV_API int crvSetPINPromptAPI(CRVctx* ctx, CrvPinPrompt prompt, void* user);

/* --- Profiles ---------------------------------------------------------------------------------------------------- */

/* Iterates the profiles of a list in the order of their names, which come out in upper case. *count (may be null)
 * receives their number. crvGetNextProfileAPI answers a new profile, or null at the end. The iterator holds the list as
 * it was; free it with crvFreeProfileIteratorAPI. ECRV_PROFILE_LOAD_ERROR: the list cannot be read; the text says
 * where. */
CRV_API int crvGetProfileIteratorAPI(CRVctx* ctx, int media, const char* file, long* count,
                                     CrvProfileIterator** iterator);
CRV_API CrvProfile* crvGetNextProfileAPI(CRVctx* ctx, CrvProfileIterator* iterator);
CRV_API int crvFreeProfileIteratorAPI(CRVctx* ctx, CrvProfileIterator* iterator);

/* A profile by name, in any case of ASCII letters, or null. Free it with crvFreeProfileAPI. */
CRV_API CrvProfile* crvReadProfileAPI(CRVctx* ctx, int media, const char* file, const char* name);

/* A new profile of a kind (a CRVPROFILE_TYPE_ value), or null. It has no name and no kind of database yet. */
CRV_API CrvProfile* crvCreateProfileAPI(CRVctx* ctx, long type);
CRV_API int crvFreeProfileAPI(CRVctx* ctx, CrvProfile* profile);

/* Writes a profile into a list in place of the one of the same name; the list is made when there is none. When that
 * fails, the profile gets the list's values again. ECRV_NO_PROFILE_NAME, ECRV_API_INV_PAR for values that a list cannot
 * hold, ECRV_PROFILE_LOAD_ERROR for a list that cannot be read, ECRV_WR_OUTFILE for one that cannot be written. */
CRV_API int crvWriteProfileAPI(CRVctx* ctx, CrvProfile* profile, int media, const char* file);

/* Takes a profile out of a list. A name that is not there changes nothing. */
CRV_API int crvRemoveProfileAPI(CRVctx* ctx, int media, const char* file, const char* name);

/* Reads or sets an attribute (a CRVPROFILE_ATTR_ value). Reading: ECRV_BUFF_TO_SHORT, ECRV_ATTR_HAS_DEFAULT_VALUE,
 * ECRV_ATTR_HAS_NO_VALUE. Setting: numbers and flags as decimal text, as 8 bytes or as one byte 0 or 1; a null value
 * with length 0 gives an attribute of three states its default and takes any other's value away. */
CRV_API int crvGetProfileAttrAPI(CRVctx* ctx, const CrvProfile* profile, long id, char* buf, long* len);
CRV_API int crvSetProfileAttrAPI(CRVctx* ctx, CrvProfile* profile, long id, const char* value, long len);

/* Extended key usages that a profile accepts, as dotted identifiers with a description. Those read are by index from 0;
 * both lengths follow the buffer rule. ECRV_INV_REG: unfit identifier or description, the text says which. */
CRV_API int crvAddAcceptedExtKeyUsageAPI(CRVctx* ctx, CrvProfile* profile, const char* oid, const char* description);
CRV_API int crvDelAcceptedExtKeyUsageAPI(CRVctx* ctx, CrvProfile* profile, const char* oid);
CRV_API int crvGetAcceptedExtKeyUsagesCountAPI(CRVctx* ctx, const CrvProfile* profile, long* count);
CRV_API int crvGetAcceptedExtKeyUsageAPI(CRVctx* ctx, const CrvProfile* profile, long index, char* oid, long* oidLen,
                                         char* description, long* descriptionLen);

/* --- Servers of a profile ---------------------------------------------------------------------------------------- */

/* A server. Texts given to the library are copied; a null one counts as empty. Texts handed out belong to the library
 * and are valid until the next operation with the context. */
typedef struct CrvSrvParams {
    const char* name; /* not empty; unique but for the case of ASCII letters */
    long usage;       /* CRVSRV_USAGE_ values combined */
    long type;        /* CRVSRV_TYPE_ value */
    const char* addr; /* host name or address */
    long port;        /* 0: the protocol's own */
    const char* path; /* path of the URL or base of the search */
    const char* user;
    const char* pass;           /* kept in the list in a form that hides it from a glance and no more */
    const unsigned char* ca_dn; /* DER name of the CA that the server belongs to; null: any */
    long ca_dn_len;
    const char* ca_dn_utf8; /* the same for display */
    long period_seconds;    /* how often a CRL is fetched; 0: when needed */
    int win_auth;           /* log in with the system's own credentials */
} CrvSrvParams;

/* ECRV_SRV_EXIST: the name is taken. ECRV_SRV_NOT_FND: no server of the name. */
CRV_API int crvAddSrvAPI(CRVctx* ctx, CrvProfile* profile, const CrvSrvParams* server);
CRV_API int crvUpdateSrvAPI(CRVctx* ctx, CrvProfile* profile, const CrvSrvParams* server);
CRV_API int crvDelSrvAPI(CRVctx* ctx, CrvProfile* profile, const char* name);
CRV_API int crvFindSrvAPI(CRVctx* ctx, const CrvProfile* profile, const char* name, CrvSrvParams* server);
CRV_API int crvMoveSrvFirstAPI(CRVctx* ctx, CrvProfile* profile, const char* name);
CRV_API int crvMoveSrvLastAPI(CRVctx* ctx, CrvProfile* profile, const char* name);

/* Servers with a use in the order in which they are asked; with a CA's DER name those of the CA and those of any.
 * *count (may be null) receives their number. crvGetNextServerAPI and crvGetServerAPI (by index from 0) answer
 * ECRV_SRV_NOT_FND past the end. crvGetSrvListForCaAPI makes an iterator of the servers that belong to the CA alone. */
CRV_API int crvGetServerIteratorAPI(CRVctx* ctx, const CrvProfile* profile, long usage, const unsigned char* ca_dn,
                                    long ca_dn_len, long* count, CrvServerIterator** iterator);
CRV_API int crvGetSrvListForCaAPI(CRVctx* ctx, const CrvProfile* profile, long usage, const unsigned char* ca_dn,
                                  long ca_dn_len, long* count, CrvServerIterator** iterator);
CRV_API int crvGetNextServerAPI(CRVctx* ctx, CrvServerIterator* iterator, CrvSrvParams* server);
CRV_API int crvFreeServerIteratorAPI(CRVctx* ctx, CrvServerIterator* iterator);
CRV_API int crvGetServerAPI(CRVctx* ctx, const CrvProfile* profile, long usage, const unsigned char* ca_dn,
                            long ca_dn_len, long index, CrvSrvParams* server);

/* --- HTTP proxy of a profile ------------------------------------------------------------------------------------- */

/* A proxy handed out; addr is empty when there is none. Valid as the texts of a server. */
typedef struct CrvProxy {
    const char* addr;
    long port;
    const char* user;
    const char* password;
} CrvProxy;

/* Sets or takes away the profile's own proxy. user and password may be null. */
CRV_API int crvInsertProxyAPI(CRVctx* ctx, CrvProfile* profile, const char* addr, long port, const char* user,
                              const char* password);
CRV_API int crvDeleteProxyAPI(CRVctx* ctx, CrvProfile* profile);

/* The proxy in force: the profile's own or, when it is told so, the system's (http_proxy, all_proxy, no_proxy). */
CRV_API int crvGetProxyAPI(CRVctx* ctx, const CrvProfile* profile, CrvProxy* proxy);
CRV_API int crvGetProxyForUrlAPI(CRVctx* ctx, const CrvProfile* profile, const char* url, CrvProxy* proxy);
CRV_API int crvUseProxyForSpecifiedUrlAPI(CRVctx* ctx, const CrvProfile* profile, const char* url, int* use);
CRV_API int crvSetUseProxyFromSystemSettingsAPI(CRVctx* ctx, CrvProfile* profile, int use);

/* --- Certificates ------------------------------------------------------------------------------------------------ */

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

/* Judges the first certificate of the octets (DER, one behind another, PEM or a PKCS#7 bundle) by RFC 5280 section 6
 * under the trust points, the database and the algorithm policy of the profile that is logged in; the other
 * certificates of the octets may stand on its path. Answers 0 for a good one, else why it is not (64 to 70, 88, 101,
 * 102, 155 and the like); params may be null. *result is the verdict, to be freed with crvFreeVerifyResultAPI, or null
 * when there is none: ECRV_API_NOT_INITED before the log-in, ECRV_INV_CRT_FMT for octets without a certificate,
 * ECRV_API_INV_PAR for an unfit size, value or identifier. */
CRV_API int crvVerifyCertAPI(CRVctx* ctx, const unsigned char* certs, long len, const CrvVerifyParams* params,
                             CrvVerifyResult** result);
/* The verdict and the certificates of its path by index from 0. The caller sets size; no more is written. */
CRV_API int crvGetVerifyInfoAPI(CRVctx* ctx, const CrvVerifyResult* result, CrvVerifyInfo* info);
CRV_API int crvGetVerifyStepAPI(CRVctx* ctx, const CrvVerifyResult* result, long index, CrvVerifyStep* step);
CRV_API int crvFreeVerifyResultAPI(CRVctx* ctx, CrvVerifyResult* result);

#ifdef __cplusplus
}
#endif

#endif
