// The result codes of the key manager: its own numbering, for which each screen of the console has its texts.
#pragma once

#include "crypto/crypto_error.h"

namespace crv {

/// What the operations of KeyManager and of the key store's media answer: X(name, number, the library's code for it,
/// what it means). Numbers that are not listed are never answered. 41 means one thing at opening a profile (several
/// cards) and another at installing a certificate.
#define KEY_MANAGER_RESULTS(X)                                                                                \
    X(kKmOk, 0, CRV_OK, "success")                                                                            \
    X(kKmNotOnThisMedium, 3, ECRV_INTERNAL_ERROR, "the medium does not offer the operation")                  \
    X(kKmNoMemory, 4, ECRV_MEM, "out of memory, or the file could not be built")                              \
    X(kKmOpenFailed, 6, ECRV_SFT_OPEN, "the security file has no path or cannot be opened")                   \
    X(kKmWriteFailed, 7, ECRV_SFT_WRITE, "cannot be written, or changed meanwhile under another password")    \
    X(kKmReadFailed, 8, ECRV_SFT_READ, "cannot be read")                                                      \
    X(kKmBadFormat, 12, ECRV_SFT_FMT, "no security file, or its configuration cannot be decoded")             \
    X(kKmWrongPassword, 13, ECRV_PASSWORD, "wrong password or PIN, or the file was altered")                  \
    X(kKmNoCaCertificate, 15, ECRV_INTERNAL_ERROR, "not the self-issued certificate of an authority")         \
    X(kKmNoKeyForCertificate, 16, ECRV_INTERNAL_ERROR, "the certificate belongs to no key of the user")       \
    X(kKmBadSignature, 17, ECRV_INTERNAL_ERROR, "a signature does not verify")                                \
    X(kKmRsaFailed, 18, ECRV_RSA, "an RSA operation failed")                                                  \
    X(kKmUnknownKeyAlgorithm, 19, ECRV_SFT_FMT, "a private key that is not RSA, DSA or EC")                   \
    X(kKmDeviceError, 20, ECRV_TRV, "the Tarvo device failed; the context holds its error number")            \
    X(kKmDeviceUnusable, 21, ECRV_TRV, "the Tarvo device cannot be used")                                     \
    X(kKmEkdNotFound, 23, ECRV_EKD_NOT_FOUND, "no EKD card")                                                  \
    X(kKmCardNotFound, 24, ECRV_CRD_NOT_FOUND, "no card")                                                     \
    X(kKmCardError, 25, ECRV_CRD_COM, "communication with the card")                                          \
    X(kKmCardFileSystem, 26, ECRV_INTERNAL_ERROR, "the file system of the card cannot be made")               \
    X(kKmCardBlocked, 27, ECRV_CRD_BLOCKED, "the card is blocked")                                            \
    X(kKmDeviceNotFound, 28, ECRV_TRV_NOT_FOUND, "no initialised Tarvo device")                               \
    X(kKmDeviceLibrary, 29, ECRV_TRV_LIB, "the device's library is not there")                                \
    X(kKmDeviceFunction, 30, ECRV_TRV_DLL_FNC_LOAD_ERR, "a function is missing in the device's library")      \
    X(kKmPkcs11NotInitialised, 31, ECRV_PKCS_NOT_INIT, "the PKCS#11 interface is not initialised")            \
    X(kKmTokenKeyNotFound, 35, ECRV_KEY_NOT_FOUND, "no key of the profile on the token")                      \
    X(kKmPkcs11Init, 36, ECRV_PKCS_NOT_INIT, "the PKCS#11 library cannot be initialised")                     \
    X(kKmKeyNotFound, 37, ECRV_KEY_NOT_FOUND, "no key that fits the profile")                                 \
    X(kKmTrustPointExists, 39, ECRV_INTERNAL_ERROR, "the trust point is there already")                       \
    X(kKmManyCards, 40, ECRV_TOO_MANY_EKDS, "several cards that fit the profile")                             \
    X(kKmRoleTaken, 41, ECRV_TOO_MANY_EKDS, "the certificate's use belongs to another key")                   \
    X(kKmManySigningCards, 42, ECRV_TOO_MANY_EKDS, "several cards with a signing key that fit")               \
    X(kKmManyDecryptionCards, 43, ECRV_TOO_MANY_EKDS, "several cards with a decryption key that fit")         \
    X(kKmRootsFormat, 44, ECRV_SFT_FMT, "the additional trust-point store is not one")                        \
    X(kKmNoSeed, 46, ECRV_SEED_NOT_PRES, "nothing to seed the generators from")                               \
    X(kKmConfigurationSignature, 47, ECRV_SFT_FMT, "the signed configuration does not verify")                \
    X(kKmCancelled, 48, ECRV_ACTION_CANCELLED, "the user gave no password or PIN")                            \
    X(kKmNoDecryptionPin, 49, ECRV_DEC_PIN_NOT_PRES, "no PIN for the decryption key")                         \
    X(kKmNoRootsPassword, 50, ECRV_ROOTS_PIN_NOT_PRES, "no password for the additional trust-point store")    \
    X(kKmNoSigningKeyPin, 51, ECRV_SGN_KEY_PIN_NOT_PRES, "no PIN for the signing key")                        \
    X(kKmWrongRootsPassword, 52, ECRV_ROOTS_PASSWORD, "wrong password of the additional trust-point store")   \
    X(kKmWrongSigningKeyPin, 53, ECRV_SGN_KEY_PASSWORD, "wrong PIN of the signing key")                       \
    X(kKmTrustPointRefused, 54, ECRV_TRUSTED_CA_DIFFERENT_GROUP, "MD5, or an RSA key below 2048 bits")        \
    X(kKmHashNotSupported, 55, ECRV_SIG_WITH_DIG_NOT_SUPPORTED, "the hash does not go with the key")          \
    X(kKmGenerationFailed, 56, ECRV_INTERNAL_ERROR, "the generation of a key failed")                         \
    X(kKmCertificateExists, 57, ECRV_INTERNAL_ERROR, "a certificate that is as new is installed for the key") \
    X(kKmKeyHasTwoNames, 58, ECRV_RECERTIFICATION_WITH_DIFF_DN,                                               \
      "one key certified under two names, which option 13 does not allow")                                    \
    X(kKmKeyTooShort, 62, ECRV_UNSUPPORTED_KEY_LEN_CERT_VERSION, "RSA below 2048 bits")                       \
    X(kKmCurveTooSmall, 63, ECRV_UNSUPPORTED_CURVE_CERT_VERSION, "an EC key over a field that is too small")  \
    X(kKmAlgorithmNotSupported, 64, ECRV_UNSUPPORTED_ALGO_CERT_VERSION, "the algorithm is not supported")     \
    X(kKmDsaNotSupported, 65, ECRV_UNSUPPORTED_KEY_ALGO_CERT_VERSION, "DSA keys are not offered")             \
    X(kKmProtectionNotSupported, 66, ECRV_INV_KEY_PROT,                                                       \
      "the file's protection is unknown here or has too many rounds")                                         \
    X(kKmStopped, 67, ECRV_ACTION_CANCELLED, "the user stopped the opening")                                  \
    X(kKmPasswordNotText, 68, ECRV_TEXT_CONVERT, "the password is no UTF-8 text")                             \
    X(kKmLockFailed, 70, ECRV_LOCK, "the lock on the security file cannot be had or given back")              \
    X(kKmLockGivenUp, 71, ECRV_LOCK, "the wait for the lock was ended")                                       \
    X(kKmReadOnly, 72, ECRV_SFT_WRITE, "the key store was opened for reading only")                           \
    X(kKmForeignFile, 73, ECRV_SFT_WRITE, "another program's file stands where ours was opened")              \
    X(kKmHistoryFailed, 74, ECRV_SFT_WRITE, "the file of before cannot be kept in its history")               \
    X(kKmKeyExists, 75, ECRV_INTERNAL_ERROR, "the key is there already")

#define CRV_KM_RESULT(name, number, library, meaning) name = (number),
enum KeyManagerResult : int { KEY_MANAGER_RESULTS(CRV_KM_RESULT) };
#undef CRV_KM_RESULT

/// The library's code (corvane/crverrors.h) for a result of opening or saving a profile; a result that those do not
/// answer is ECRV_INTERNAL_ERROR.
[[nodiscard]] int libraryCode(KeyManagerResult result) noexcept;

/// What a result means, for the log.
[[nodiscard]] const char* resultText(KeyManagerResult result) noexcept;

/// What a failed operation with a key answers: an RSA one (`rsa`) kKmRsaFailed where another is kKmGenerationFailed.
[[nodiscard]] KeyManagerResult keyResultOf(CryptoFailure failure, bool rsa) noexcept;

}  // namespace crv
