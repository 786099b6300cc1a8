/* What every header of the library builds on: its version and its handles. Usable from C and C++. */
#ifndef CORVANE_CRVTYPES_H
#define CORVANE_CRVTYPES_H

/* The version that a program is compiled for; crvVersionAPI tells the one that it runs with. */
#define CRV_VERSION_MAJOR 3
#define CRV_VERSION_MINOR 9
#define CRV_VERSION_PATCH 18
#define CRV_VERSION_NUMBER (CRV_VERSION_MAJOR * 10000 + CRV_VERSION_MINOR * 100 + CRV_VERSION_PATCH)
#define CRV_VERSION_TEXT "3.9.18"

#if defined(__GNUC__)
#define CRV_API __attribute__((visibility("default")))
#else
#define CRV_API
#endif

/* Handles. Their contents belong to the library; each is freed by the call that its maker names. */
typedef struct CRVctx CRVctx;                               /* a context */
typedef struct CrvProfile CrvProfile;                       /* the record of a profile */
typedef struct CrvProfileIterator CrvProfileIterator;       /* profiles of a list */
typedef struct CrvServerIterator CrvServerIterator;         /* servers of a profile */
typedef struct CrvCert CrvCert;                             /* a certificate */
typedef struct CrvCertIterator CrvCertIterator;             /* certificates that were found */
typedef struct CrvKeyIterator CrvKeyIterator;               /* keys of the profile that is logged in */
typedef struct CrvTrustPointIterator CrvTrustPointIterator; /* trust points of the profile that is logged in */
typedef struct CrvVerifyResult CrvVerifyResult;             /* the verdict on a certificate */
typedef struct CrvMessageVerdict CrvMessageVerdict;         /* the verdict on a signed message */
typedef struct CrvStream CrvStream;                         /* a message that is being made or read */

#endif
