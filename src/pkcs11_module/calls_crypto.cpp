// Calls that sign, verify, decrypt, hash, and give random octets.
#include <algorithm>

#include "crypto/random_bridge.h"
#include "pkcs11_module/frame.h"

namespace crv::p11 {
namespace {

/// The key of a handle. CKR_USER_NOT_LOGGED_IN, CKR_KEY_HANDLE_INVALID.
template <class Work>
void withKey(Session& session, CK_OBJECT_HANDLE key, bool isPrivate, const Work& work) {
    const ObjectsPtr objects = session.token->objects(false).ofFile;
    demand(objects != nullptr, CKR_USER_NOT_LOGGED_IN);
    const TokenObject* found = findObject(objects.get(), key);
    demand(found && found->publicKey && (found->privateKey != nullptr) == isPrivate, CKR_KEY_HANDLE_INVALID);
    work(*found);
}

CK_RV beginSignature(CK_SESSION_HANDLE handle, const CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key, CK_FLAGS use) {
    return inSession(handle, [&](Session& session) {
        demand(mechanism, CKR_ARGUMENTS_BAD);
        auto& operation = use == CKF_SIGN ? session.signing : session.verifying;
        demand(!operation, CKR_OPERATION_ACTIVE);
        withKey(session, key, use == CKF_SIGN,
                [&](const TokenObject& object) { operation.emplace(*mechanism, object, use); });
    });
}

/// Works with the key of a running operation. One that is gone though the user is logged in was deleted from the file
/// by another program: CKR_FUNCTION_FAILED, for a PIN would not bring it back.
template <class Work>
auto withHeldKey(Session& session, const Work& work) try {
    return work();
} catch (const Refusal& refusal) {
    demand(refusal.rv != CKR_USER_NOT_LOGGED_IN || !session.token->loggedIn(), CKR_FUNCTION_FAILED);
    throw;
}

void addPart(std::optional<SignatureOperation>& operation, const void* part, CK_ULONG length) {
    static_cast<void>(running(operation));
    Ending ending(operation);
    operation->update(viewOf(part, length), true);
    ending.goOn();
}

/// What a call hands over in one piece, as the caller gave it.
struct Given {
    const void* octets;
    CK_ULONG length;
};

void finishSignature(Session& session, unsigned char* signature, CK_ULONG* length, const Given* data) {
    SignatureOperation& operation = running(session.signing);
    // Parts are ended by C_SignFinal, data in one piece by C_Sign.
    demand(!data || !operation.inParts(), CKR_OPERATION_NOT_INITIALIZED);
    Ending ending(session.signing);
    const ByteView view = data ? viewOf(data->octets, data->length) : ByteView();
    if (!ending.fits(signature, length, operation.length())) return;
    if (data) operation.update(view, false);
    const Bytes made = withHeldKey(session, [&] { return operation.sign(); });
    std::ranges::copy(made, signature);
    *length = made.size();
}

void handDigest(Session& session, unsigned char* digest, CK_ULONG* length, const Given* data) {
    Digest& operation = running(session.digesting);
    demand(!data || !operation.inParts, CKR_OPERATION_NOT_INITIALIZED);
    Ending ending(session.digesting);
    const ByteView view = data ? viewOf(data->octets, data->length) : ByteView();
    if (!ending.fits(digest, length, operation.hash.length())) return;
    if (data) operation.hash.update(view);
    operation.hash.final({digest, operation.hash.length()});
}

}  // namespace
}  // namespace crv::p11

using namespace crv::p11;

CK_RV C_SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return beginSignature(handle, mechanism, key, CKF_SIGN);
}

CK_RV C_Sign(CK_SESSION_HANDLE handle, unsigned char* data, CK_ULONG dataLength, unsigned char* signature,
             CK_ULONG* length) {
    return inSession(handle, [&](Session& session) {
        const Given given{data, dataLength};
        finishSignature(session, signature, length, &given);
    });
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE handle, unsigned char* part, CK_ULONG length) {
    return inSession(handle, [&](Session& session) { addPart(session.signing, part, length); });
}

CK_RV C_SignFinal(CK_SESSION_HANDLE handle, unsigned char* signature, CK_ULONG* length) {
    return inSession(handle, [&](Session& session) { finishSignature(session, signature, length, nullptr); });
}

CK_RV C_VerifyInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return beginSignature(handle, mechanism, key, CKF_VERIFY);
}

CK_RV C_Verify(CK_SESSION_HANDLE handle, unsigned char* data, CK_ULONG dataLength, unsigned char* signature,
               CK_ULONG length) {
    return inSession(handle, [&](Session& session) {
        demand(!running(session.verifying).inParts(), CKR_OPERATION_NOT_INITIALIZED);
        const Ending ending(session.verifying);
        session.verifying->update(viewOf(data, dataLength), false);
        session.verifying->verify(viewOf(signature, length));
    });
}

CK_RV C_VerifyUpdate(CK_SESSION_HANDLE handle, unsigned char* part, CK_ULONG length) {
    return inSession(handle, [&](Session& session) { addPart(session.verifying, part, length); });
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE handle, unsigned char* signature, CK_ULONG length) {
    return inSession(handle, [&](Session& session) {
        SignatureOperation& operation = running(session.verifying);
        const Ending ending(session.verifying);
        operation.verify(viewOf(signature, length));
    });
}

CK_RV C_DecryptInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return inSession(handle, [&](Session& session) {
        demand(mechanism, CKR_ARGUMENTS_BAD);
        demand(!session.decrypting, CKR_OPERATION_ACTIVE);
        withKey(session, key, true, [&](const TokenObject& object) { session.decrypting.emplace(*mechanism, object); });
    });
}

CK_RV C_Decrypt(CK_SESSION_HANDLE handle, unsigned char* ciphertext, CK_ULONG ciphertextLength, unsigned char* data,
                CK_ULONG* length) {
    return inSession(handle, [&](Session& session) {
        DecryptOperation& operation = running(session.decrypting);
        Ending ending(session.decrypting);
        // How long the plaintext is shows when it is deciphered; who only asks is told what always suffices.
        if (!data && !ending.fits(data, length, operation.length())) return;
        const crv::ByteView view = viewOf(ciphertext, ciphertextLength);
        const crv::SecretBytes plain = withHeldKey(session, [&] { return operation.decrypt(view); });
        if (ending.fits(data, length, plain.size())) std::ranges::copy(plain, data);
    });
}

CK_RV C_DigestInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism) {
    return inSession(handle, [&](Session& session) {
        demand(mechanism, CKR_ARGUMENTS_BAD);
        demand(!session.digesting, CKR_OPERATION_ACTIVE);
        const MechanismRow& row = findMechanism(mechanism->mechanism, CKF_DIGEST);
        demandNoParameter(*mechanism);
        session.digesting.emplace(Digest{crv::KcHash(row.hash)});
    });
}

CK_RV C_Digest(CK_SESSION_HANDLE handle, unsigned char* data, CK_ULONG dataLength, unsigned char* digest,
               CK_ULONG* length) {
    return inSession(handle, [&](Session& session) {
        const Given given{data, dataLength};
        handDigest(session, digest, length, &given);
    });
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE handle, unsigned char* part, CK_ULONG length) {
    return inSession(handle, [&](Session& session) {
        Digest& operation = running(session.digesting);
        Ending ending(session.digesting);
        operation.inParts = true;
        operation.hash.update(viewOf(part, length));
        ending.goOn();
    });
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE handle, unsigned char* digest, CK_ULONG* length) {
    return inSession(handle, [&](Session& session) { handDigest(session, digest, length, nullptr); });
}

CK_RV C_SeedRandom(CK_SESSION_HANDLE handle, unsigned char*, CK_ULONG) {
    return inSession(handle, [](Session&) { throw Refusal{CKR_RANDOM_SEED_NOT_SUPPORTED}; });
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE handle, unsigned char* octets, CK_ULONG length) {
    return inSession(handle, [&](Session&) {
        demand(octets || length == 0, CKR_ARGUMENTS_BAD);
        demand(crv::systemRandom({octets, length}), CKR_DEVICE_ERROR);
    });
}
