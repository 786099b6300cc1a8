/* Numbers of the profile calls: lists, kinds of profiles, attributes, uses of servers. Usable from C and C++. */
#ifndef CORVANE_CRVPROFILE_H
#define CORVANE_CRVPROFILE_H

/* The list file that a profile stands in. */
enum CrvProfileMedia {
    CRVPROFILE_MEDIA_USER = 0,   /* the user's list, ~/.crvprofiles.conf */
    CRVPROFILE_MEDIA_COMMON = 1, /* the list common to the machine, /opt/corvane/etc/crvprofiles.conf */
    CRVPROFILE_MEDIA_FILE = 2    /* a file named by the caller */
};

/* Kinds of profiles: where the private keys live. */
enum CrvProfileType {
    CRVPROFILE_TYPE_PKCS12 = 1, /* a password-protected PKCS#12 file */
    CRVPROFILE_TYPE_TARVO = 3,  /* a Tarvo device */
    CRVPROFILE_TYPE_PKCS11 = 5, /* a PKCS#11 token */
    CRVPROFILE_TYPE_MEMORY = 7  /* memory only */
};

/* Attributes. "text" is UTF-8 without a terminator, "long" 8 bytes in the machine's order, "flag" one byte 0 or 1,
 * "octets" binary. Attributes marked * have three states: a value, the default, no value. */
enum CrvProfileAttr {
    CRVPROFILE_ATTR_NAME = 0,                      /* text: name of the profile */
    CRVPROFILE_ATTR_TYPE = 1,                      /* long: kind, read only */
    CRVPROFILE_ATTR_DB = 2,                        /* text: database folder */
    CRVPROFILE_ATTR_PKCS11_LIBRARY = 3,            /* text: PKCS#11 module, or several separated by ";" */
    CRVPROFILE_ATTR_SKEY_TOK = 5,                  /* text of 32 characters *: token with the signing key */
    CRVPROFILE_ATTR_DKEY_TOK = 6,                  /* text of 32 characters *: token with the decryption key */
    CRVPROFILE_ATTR_SKEY_ID = 7,                   /* octets *: identifier of the signing key */
    CRVPROFILE_ATTR_DKEY_ID = 8,                   /* octets *: identifier of the decryption key */
    CRVPROFILE_ATTR_PKCS12_FILE = 9,               /* text: security file */
    CRVPROFILE_ATTR_T23_CARD_ID = 10,              /* 16 octets *: card of a Tarvo device */
    CRVPROFILE_ATTR_T23_TYPE = 13,                 /* long: type of the Tarvo device */
    CRVPROFILE_ATTR_ROOTS_FILE = 14,               /* text: file of additional trust points */
    CRVPROFILE_ATTR_ROOTS_REG = 15,                /* text: registry path of additional trust points */
    CRVPROFILE_ATTR_TRV_LIB_PATH = 16,             /* text: library of the Tarvo device */
    CRVPROFILE_ATTR_DB_TYPE = 17,                  /* text: database kind: "corvane", "w pamieci" or "brak" */
    CRVPROFILE_ATTR_DB_NAME = 18,                  /* text: database name */
    CRVPROFILE_ATTR_DB_LOGIN = 19,                 /* text: database user */
    CRVPROFILE_ATTR_DB_PASS = 20,                  /* text: database password */
    CRVPROFILE_ATTR_EXTERN_SPIN = 21,              /* flag: the signing PIN is entered on the reader */
    CRVPROFILE_ATTR_EXTERN_DPIN = 22,              /* flag: the decryption PIN is entered on the reader */
    CRVPROFILE_ATTR_TYPE_TEXT = 23,                /* text: kind in decimal, read only */
    CRVPROFILE_ATTR_T23_TYPE_TEXT = 26,            /* text: type of the Tarvo device in decimal */
    CRVPROFILE_ATTR_PKCS11_SYNC_BY_LIB = 27,       /* flag: the module serialises access itself */
    CRVPROFILE_ATTR_IGNORE_SFT_FILE = 28,          /* long, for a token flag: do not use the security file */
    CRVPROFILE_ATTR_AUTO_EXTERN_PINS = 29,         /* flag: do not detect PIN entry on the reader */
    CRVPROFILE_ATTR_PKCS12_FILE_PATH = 30,         /* the same as 9 */
    CRVPROFILE_ATTR_READER_NAME = 31,              /* text: card reader */
    CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN = 32, /* flag: keep the token session open between operations */
    CRVPROFILE_ATTR_CSP_KEY_SPEC_TEXT = 33,        /* text: which key of a provider, in decimal */
    CRVPROFILE_ATTR_SKEY_CERT = 34,                /* octets: certificate of the signing key; not kept in lists */
    CRVPROFILE_ATTR_CERT_FILTER = 35,              /* text: certificate filter */
    CRVPROFILE_ATTR_CERT_FILTER_FIELD_TYPE = 36,   /* long: field of the certificate that the filter looks at */
    CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD = 37,     /* long: 1 when the additional trust points have an empty password */
    CRVPROFILE_ATTR_CSP_PROVIDER = 38,             /* text: cryptographic provider */
    CRVPROFILE_ATTR_CSP_CONTAINER = 39,            /* text: key container of the provider */
    CRVPROFILE_ATTR_CSP_PROV_TYPE = 40,            /* long: provider type */
    CRVPROFILE_ATTR_CSP_KEY_SPEC = 41,             /* long: which key of the provider */
    CRVPROFILE_ATTR_CSP_PROV_TYPE_TEXT = 42,       /* text: provider type in decimal */
    CRVPROFILE_ATTR_SKEY_USAGE_SPEC = 43,          /* long: declared use of the signing key */
    CRVPROFILE_ATTR_DKEY_USAGE_SPEC = 44,          /* long: declared use of the decryption key */
    CRVPROFILE_ATTR_PKCS11_LIBRARIES = 45,         /* the same as 3 */
    CRVPROFILE_ATTR_SFT_FILE_BYTES = 46            /* octets: security file of a PKCS#12 profile without a path */
};

/* What a server is used for; values combine. */
enum CrvServerUsage {
    CRVSRV_USAGE_CERTIFICATES = 1,
    CRVSRV_USAGE_CRL = 2,
    CRVSRV_USAGE_OCSP = 4,
    CRVSRV_USAGE_TIME_STAMP = 8
};

/* Protocol of a server. */
enum CrvServerType { CRVSRV_TYPE_LDAP = 1, CRVSRV_TYPE_HTTP = 2, CRVSRV_TYPE_FTP = 3, CRVSRV_TYPE_FILE = 4 };

/* TLS of a connection: none; always (https, ldaps, or FTP over TLS); begun on an open connection (LDAP, FTP). */
enum CrvServerTls { CRVSRV_TLS_NONE = 0, CRVSRV_TLS_ALWAYS = 1, CRVSRV_TLS_START = 2 };

#endif
