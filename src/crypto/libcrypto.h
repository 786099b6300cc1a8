// Owning pointers and helpers for libcrypto objects. Internal to src/crypto: it pulls libcrypto's headers in.
#pragma once

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <memory>
#include <string>

#include "crypto/crypto_error.h"

namespace crv::ossl {

template <auto Free>
struct Deleter {
    template <class T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};
template <class T, auto Free>
using Owned = std::unique_ptr<T, Deleter<Free>>;

using LibCtx = Owned<OSSL_LIB_CTX, OSSL_LIB_CTX_free>;
using Md = Owned<EVP_MD, EVP_MD_free>;
using MdCtx = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;
using Mac = Owned<EVP_MAC, EVP_MAC_free>;
using MacCtx = Owned<EVP_MAC_CTX, EVP_MAC_CTX_free>;
using Cipher = Owned<EVP_CIPHER, EVP_CIPHER_free>;
using CipherCtx = Owned<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using Kdf = Owned<EVP_KDF, EVP_KDF_free>;
using KdfCtx = Owned<EVP_KDF_CTX, EVP_KDF_CTX_free>;
using Pkey = Owned<EVP_PKEY, EVP_PKEY_free>;
using PkeyCtx = Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using Num = Owned<BIGNUM, BN_clear_free>;
using NumCtx = Owned<BN_CTX, BN_CTX_free>;
using Group = Owned<EC_GROUP, EC_GROUP_free>;

/// The library context of all operations: private to this library, with the default provider and our random generator.
/// Lives until the process ends. Never null.
OSSL_LIB_CTX* context();

/// Gives the context the legacy provider, where it is installed: a module of its own, for which hardly any program run
/// has a use, and whose loading falls inside libcrypto where memory runs out.
void needLegacy();

/// What stood in libcrypto's error queue of this thread.
struct Complaints {
    bool any = false;
    bool ofMemory = false;  ///< memory ran out
    bool ofRsa = false;     ///< RSA itself refused something: a signature, a number, a padding
};
/// Empties the error queue.
[[nodiscard]] Complaints takeComplaints();

/// Empties the error queue and throws: std::bad_alloc when memory ran out, whatever failed for it, else the failure.
[[noreturn]] void fail(CryptoFailure failure, const std::string& text);

/// Throws when a libcrypto call did not answer 1.
inline void must(int answer, CryptoFailure failure, const char* text) {
    if (answer != 1) fail(failure, text);
}

/// The same for a call that makes an object; hands the object on.
template <class Ptr>
Ptr made(Ptr object, CryptoFailure failure, const char* text) {
    if (!object) fail(failure, text);
    return object;
}

/// Empties the error queue; throws std::bad_alloc when memory ran out, or nothing is noted. For what is made once: a
/// lack of memory must not pass for something that libcrypto does not have.
void throwIfNoMemory();

/// must() for a call that refuses an input with a note, and notes nothing where memory ran out.
void mustTake(int answer, CryptoFailure failure, const char* text);

/// The group of a curve; never null.
Group groupOf(int curve);

}  // namespace crv::ossl
