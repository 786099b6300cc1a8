// The result codes of the key manager: its own numbering, for which each screen of the console has its texts.
#pragma once

namespace crv {

/// What the operations of KeyManager and of the key store's media answer. Numbers that are not listed are never
/// answered. 41 means one thing at opening a profile and another at installing a certificate.
enum KeyManagerResult : int {
    kKmOk = 0,
    kKmNotOnThisMedium = 3,       ///< the medium does not offer the operation
    kKmNoMemory = 4,              ///< out of memory, or the file could not be built
    kKmOpenFailed = 6,            ///< the security file has no path or cannot be opened
    kKmWriteFailed = 7,           ///< cannot be written, or changed meanwhile under another password
    kKmReadFailed = 8,            ///< cannot be read
    kKmBadFormat = 12,            ///< no security file, or its configuration cannot be decoded
    kKmWrongPassword = 13,        ///< wrong password or PIN, or the file was altered
    kKmNoCaCertificate = 15,      ///< not the self-issued certificate of an authority
    kKmNoKeyForCertificate = 16,  ///< the certificate belongs to no key of the user
    kKmBadSignature = 17,
    kKmRsaFailed = 18,            ///< an RSA operation failed
    kKmUnknownKeyAlgorithm = 19,  ///< a private key that is not RSA, DSA or EC
    kKmDeviceError = 20,          ///< the Tarvo device failed; the context holds its error number
    kKmDeviceUnusable = 21,
    kKmEkdNotFound = 23,
    kKmCardNotFound = 24,
    kKmCardError = 25,  ///< communication with the card
    kKmCardFileSystem = 26,
    kKmCardBlocked = 27,
    kKmDeviceNotFound = 28,  ///< no initialised Tarvo device
    kKmDeviceLibrary = 29,   ///< the device's library is not there
    kKmDeviceFunction = 30,  ///< a function is missing in the device's library
    kKmPkcs11NotInitialised = 31,
    kKmTokenKeyNotFound = 35,
    kKmPkcs11Init = 36,
    kKmKeyNotFound = 37,  ///< no key that fits the profile
    kKmTrustPointExists = 39,
    kKmManyCards = 40,  ///< 40 to 43: several cards that fit the profile
    kKmRoleTaken = 41,  ///< the certificate's use belongs to another key
    kKmManySigningCards = 42,
    kKmManyDecryptionCards = 43,
    kKmRootsFormat = 44,             ///< the additional trust-point store is not one
    kKmNoSeed = 46,                  ///< nothing to seed the generators from
    kKmConfigurationSignature = 47,  ///< the signed configuration does not verify
    kKmCancelled = 48,               ///< the user gave no password or PIN
    kKmNoDecryptionPin = 49,
    kKmNoRootsPassword = 50,
    kKmNoSigningKeyPin = 51,
    kKmWrongRootsPassword = 52,
    kKmWrongSigningKeyPin = 53,
    kKmTrustPointRefused = 54,  ///< MD5, or an RSA key below 2048 bits
    kKmHashNotSupported = 55,   ///< the hash does not go with the key
    kKmGenerationFailed = 56,   ///< the generation of a key failed
    kKmCertificateExists = 57,  ///< a certificate that is as new is installed for the key
    kKmKeyHasTwoNames = 58,     ///< one key certified under two names, which option 13 does not allow
    kKmKeyTooShort = 62,        ///< RSA below 2048 bits
    kKmCurveTooSmall = 63,
    kKmAlgorithmNotSupported = 64,
    kKmDsaNotSupported = 65,
};

/// The library's code (corvane/crverrors.h) for a result of opening or saving a profile; a result that those do not
/// answer is ECRV_INTERNAL_ERROR.
[[nodiscard]] int libraryCode(KeyManagerResult result) noexcept;

}  // namespace crv
