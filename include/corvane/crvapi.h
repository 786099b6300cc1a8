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
 * set to the size needed. Values carry no terminator. All texts are UTF-8. Structures begin with their size, which the
 * caller sets: a program that was compiled for fewer or more members is served as far as both know them, and what it
 * gives in members that the library does not know must be zero (ECRV_API_INV_PAR).
 *
 * Threads: a context is used by one caller at a time; a second one, also a prompt of the running call, is answered
 * ECRV_INV_WRK_MODE (113), and the first goes on. Different contexts may be used by several threads at once.
 * Processes: make contexts after a fork. In a child of a process that had made one every call answers
 * ECRV_INV_WRK_MODE: locks, tokens and random generators are the parent's. Such a child may call exec. Handles are
 * freed before their context. PINs are wiped when a call that used one ends, whatever it answers, unless
 * CRVOPT_REMEMBER_PIN_INFO is set: store them again for the next call that needs one. */
#ifndef CORVANE_CRVAPI_H
#define CORVANE_CRVAPI_H

#include "corvane/crvcerts.h"
#include "corvane/crverrors.h"
#include "corvane/crvmessages.h"
#include "corvane/crvoptions.h"
#include "corvane/crvprofile.h"
#include "corvane/crvtypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* --- Contexts ---------------------------------------------------------------------------------------------------- */

/* Makes a context after the cryptographic self-tests of the process. With a name it loads the profile of that name from
 * the list media (a CRVPROFILE_MEDIA_ value; file names the list for CRVPROFILE_MEDIA_FILE and is otherwise ignored);
 * with a null name the context has no profile yet. *ctx is null after a failure. ECRV_TOO_MANY_CONTEXTS: 64 contexts
 * are alive. ECRV_LIBCORVPP_TEST_FAILED: a self-test failed. ECRV_PROFILE_NOT_LOADED: no such profile.
 * ECRV_PROFILE_LOAD_ERROR: the list cannot be read. */
CRV_API int crvInitExAPI(CRVctx** ctx, int media, const char* file, const char* name);

/* Why the last crvInitExAPI of this thread failed, in words, by the buffer rule; empty when it is not known. */
CRV_API int crvGetInitFailureAPI(char* buf, long* len);

/* CRV_VERSION_NUMBER and CRV_VERSION_TEXT of the library that the program runs with. */
CRV_API long crvVersionAPI(void);
CRV_API const char* crvVersionTextAPI(void);

/* Ends a context: logs out, wipes its PINs and keys and frees it. The pointer is no context afterwards. */
CRV_API int crvDeinitExAPI(CRVctx* ctx);

/* Binds a copy of a profile to the context in place of the current one, which is logged out; null binds none. PINs and
 * options that were set while there was no profile are for the new one; those of a former profile go, PINs with
 * WARN_PINS_REMOVED. */
CRV_API int crvLoadProfileAPI(CRVctx* ctx, const CrvProfile* profile);

/* Logs in to the keys of the context's profile with the PINs stored before or the prompt's: takes the exclusive lock on
 * the security file (not for tokens, providers and memory), checks that the databases exist, opens the keys and, when
 * readAdditional is not 0, the additional trust points. 1 to 3: logged in, the keys are on a device. Options that were
 * set before and not saved hold again (WARN_OPTION_NOT_APPLIED: one does not go with the signing key).
 * ECRV_PROFILE_NOT_LOADED without a profile, ECRV_LOCK when the lock cannot be had in time, ECRV_PASSWORD for a wrong
 * password, ECRV_SGN_PIN_NOT_PRES, ECRV_DEC_PIN_NOT_PRES, ECRV_ROOTS_PIN_NOT_PRES, ECRV_SGN_KEY_PIN_NOT_PRES for a PIN
 * that is neither stored nor asked for, ECRV_ACTION_CANCELLED when the prompt gave none; ECRV_DB, ECRV_DB_VER,
 * ECRV_DB_ACCESS for the databases; others as the keys' medium gives them. WARN_USER_CRT_NOT_VALID. */
CRV_API int crvAuthenticateExAPI(CRVctx* ctx, int readAdditional);

/* Text of a code, refined by what the context knows about its last failure. Never fails: a code without a row gives
 * "Nieznany kod błędu %d !!!". Valid until the next call with the same context, or without a context until the next
 * such call of the thread. ctx may be null. crvErrorText is the same and logs the call. */
CRV_API const char* crvErrorTextAPI(CRVctx* ctx, int code);
CRV_API const char* crvErrorText(CRVctx* ctx, int code);

/* Code of the last operation with the context: tells why it answered a null pointer, 0 for the end of an iteration.
 * Calls that free something, this one and the next four are no operations: they leave code, warnings, report and text
 * as they are. */
CRV_API int crvGetLastCodeAPI(CRVctx* ctx);

/* The warnings (WARN_ values) of the last operation. *count is the room in codes; it receives the number of warnings. A
 * null codes asks for the number; too little room answers ECRV_BUFF_TO_SHORT. */
CRV_API int crvGetWarnings(CRVctx* ctx, long* codes, long* count);

/* "NAME: text" of a warning; static. Null for a number that is none. */
CRV_API const char* crvWarningTextAPI(long code);

/* The report of the last operation, one line a step. */
CRV_API int crvGetReportAPI(CRVctx* ctx, char* buf, long* len);

/* The reports of all operations of the context, the newest 256 KiB in whole lines. */
CRV_API int crvGetRunReportAPI(CRVctx* ctx, char* buf, long* len);

/* How long a lock that another program holds is waited for, in seconds: 0 not at all, -1 as long as it takes.
 * Default 30. Without the lock a call answers ECRV_LOCK. */
CRV_API int crvSetLockTimeoutAPI(CRVctx* ctx, long seconds);

/* Saves keys and configuration with the options and trust points that were set since the log-in; needs the PIN of the
 * key store. What another program saved meanwhile stays where this one changed nothing. ECRV_API_NOT_INITED,
 * ECRV_SFT_WRITE, ECRV_PASSWORD: not the key store's PIN. */
CRV_API int crvSaveConfigurationAPI(CRVctx* ctx);

/* Enciphers the key store under a new password, on a token changes the PIN, which needs the old one stored. UTF-8.
 * ECRV_PASSWORD: the old PIN is wrong, or the new password breaks a rule, which the text names: 8 octets or more, upper
 * and lower case and another character. ECRV_API_NOT_INITED, ECRV_SFT_WRITE. */
CRV_API int crvChangePasswordAPI(CRVctx* ctx, const char* password);

/* Frees octets that a call handed out, after wiping them; null does nothing. No context is needed. */
CRV_API int crvFreeOctetsAPI(unsigned char* octets);

/* --- Options ----------------------------------------------------------------------------------------------------- */

/* Sets or reads an integer option of the context's profile (a CRVOPT_ value of corvane/crvoptions.h). It holds at once,
 * also over a log-in, and is stored by crvSaveConfigurationAPI; until then it is lost with the profile. Special
 * numbers: 1 cannot be set; CRVOPT_ADD_SIGNER_MODE takes 3 (stores 0) or 4 (stores 1); CRVOPT_DIGEST, CRVOPT_SCHEME and
 * CRVOPT_SIGNATURE take CRVDIGEST_ and CRVSCHEME_ values; CRVOPT_IGNORED is accepted and ignored. ECRV_API_INV_PAR:
 * unknown option or value. ECRV_SIG_WITH_DIG_NOT_SUPPORTED: the signing key cannot be used so; the report says why.
 * ECRV_MEM: not stored. */
CRV_API int crvSetOptionAPI(CRVctx* ctx, long id, long value);
CRV_API int crvGetOptionAPI(CRVctx* ctx, long id, long* value);

/* Sets or reads a text option: 36, 42 or 43. A null value removes it. ECRV_TEXT_CONVERT: the value is no UTF-8. The
 * text read is valid until the next operation with the context; null: not set, or no text option. */
CRV_API int crvSetTextOptionAPI(CRVctx* ctx, long id, const char* value);
CRV_API const char* crvGetTextOptionAPI(CRVctx* ctx, long id);

/* Sets or reads the one process-wide option, 44: download trusted lists with an external downloader (0 or 1; any value
 * but 0 stores 1). No context is needed. ECRV_API_INV_PAR for any other number. */
CRV_API int crvSetGlobalOption(long id, long value);
CRV_API int crvGetGlobalOption(long id, long* value);

/* --- PINs -------------------------------------------------------------------------------------------------------- */

/* Stores a PIN or password, which is copied, in a slot (a CRVPIN_ value of corvane/crvoptions.h). The first form takes
 * the text in the character set of the process's locale (ECRV_TEXT_CONVERT when it is none), the second in UTF-8. Any
 * other slot is ECRV_INTERNAL_ERROR. */
CRV_API int crvStorePINAPI(CRVctx* ctx, long id, const char* pin);
CRV_API int crvStorePINUtf8API(CRVctx* ctx, long id, const char* pin);

/* Overwrites the PINs of the slots of a mask (1, 2, 8, 16) with zeros. The slots count as filled afterwards. */
CRV_API int crvCleanPINAPI(CRVctx* ctx, long mask);

/* Which PINs the profile needs for a slot, as a mask of slots (0: none): for 1, 2 and 16 the password or PIN, 1, unless
 * it is entered on the reader; for 8 the password of the additional trust points, 8, unless there are none or it is
 * empty. */
CRV_API int crvGetPINInfo(CRVctx* ctx, long id, long* needed);

/* Gives the library a way to ask for a PIN that is not stored; null takes it away. The function fills pin with at most
 * size bytes of UTF-8 with the terminator and answers a CRVPIN_ value: given, cancelled, wrong. It is called before a
 * lock is taken, and no call with the same context may be made from it. */
typedef int (*CrvPinPrompt)(void* user, long id, char* pin, long size);
CRV_API int crvSetPINPromptAPI(CRVctx* ctx, CrvPinPrompt prompt, void* user);

/* --- Profiles ---------------------------------------------------------------------------------------------------- */

/* Iterates the profiles of a list in the order of their names, which come out in upper case. *count (may be null)
 * receives their number. crvGetNextProfileAPI answers a new profile, or null: crvGetLastCodeAPI then tells the end (0)
 * from a damaged record (ECRV_INV_REG, the text says which), behind which the iteration goes on. The iterator holds the
 * list as it was; free it with crvFreeProfileIteratorAPI. ECRV_PROFILE_LOAD_ERROR: the list cannot be read; the text
 * says where. */
CRV_API int crvGetProfileIteratorAPI(CRVctx* ctx, int media, const char* file, long* count,
                                     CrvProfileIterator** iterator);
CRV_API CrvProfile* crvGetNextProfileAPI(CRVctx* ctx, CrvProfileIterator* iterator);
CRV_API int crvFreeProfileIteratorAPI(CRVctx* ctx, CrvProfileIterator* iterator);

/* A profile by name, in any case of ASCII letters, or null: crvGetLastCodeAPI then tells why, ECRV_PROFILE_NOT_LOADED
 * for one that is not in the list. Free it with crvFreeProfileAPI. */
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
    long size;        /* sizeof(CrvSrvParams), set by the caller */
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
    long tls;               /* CRVSRV_TLS_ value; crvUpdateSrvAPI leaves it as it is for a structure without it */
} CrvSrvParams;

/* ECRV_SRV_EXIST: the name is taken. ECRV_SRV_NOT_FND: no server of the name. ECRV_API_INV_PAR: a null name, a value
 * out of range, a text that is no UTF-8, a ca_dn that is no name; the text says which. */
CRV_API int crvAddSrvAPI(CRVctx* ctx, CrvProfile* profile, const CrvSrvParams* server);
CRV_API int crvUpdateSrvAPI(CRVctx* ctx, CrvProfile* profile, const CrvSrvParams* server);
/* Of the profile that the context works with, what the database knows of the server's imports and fetches goes, too;
 * ECRV_DB when it cannot be changed: the server is gone from the profile all the same. */
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
    long size; /* sizeof(CrvProxy), set by the caller */
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

#ifdef __cplusplus
}
#endif

#endif
