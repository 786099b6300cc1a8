// Generation of the user's keys.
#include "asn/x509/sign_algo.h"
#include "config/configuration_manager.h"
#include "crypto/crypto_error.h"
#include "crypto/private_key.h"
#include "keystore/crt_request.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"
#include "keystore/key_store_media.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

constexpr unsigned kFewestRsaBits = 2048;

SignerPtr shared(PrivateKey key) {
    return std::make_shared<const PrivateKey>(std::move(key));
}

}  // namespace

KeyManagerResult KeyManager::keepGenerated(KeyType use, KeyScheme scheme, const KeyGenHooks& hooks,
                                           const std::function<SignerPtr()>& generate) {
    demand({State::Open});
    VTEST(mayGenerate(use, hooks.successor), kKeyManagerPlace);
    if (!media().hasSecurityFile()) return kKmNotOnThisMedium;
    if (!generators_.refresh()) return kKmNoSeed;
    SignerPtr key;
    try {
        key = generate();
    } catch (const CryptoError& error) {
        return keyResultOf(error.failure(), isRsa(scheme));
    }
    return keepKey(use, scheme, hooks, std::move(key));
}

KeyManagerResult KeyManager::keepKey(KeyType use, KeyScheme scheme, const KeyGenHooks& hooks, SignerPtr key) {
    unsaved_ = NewKey{use, scheme, hooks.forcedHash, std::move(key), hooks.successor};
    const KeyManagerResult ready = hooks.beforeSave ? hooks.beforeSave() : kKmOk;
    return ready == kKmOk ? saveUnsavedKey() : ready;
}

std::optional<KeyLimits> KeyManager::keyLimits(KeyType use) {
    return media().keyLimits(use);
}

std::optional<KeyType> KeyManager::unsavedKey() const {
    return unsaved_ ? std::optional(unsaved_->use) : std::nullopt;
}

KeyManagerResult KeyManager::saveUnsavedKey() {
    demand({State::Open});
    VTEST(unsaved_, kKeyManagerPlace);
    const KeyManagerResult result = unsaved_->successor ? saveSuccessor(*unsaved_) : saveNewKey(*unsaved_);
    if (result == kKmOk) unsaved_.reset();
    return result;
}

KeyManagerResult KeyManager::saveNewKey(const NewKey& generated) {
    Undo undo(*this);
    const auto record = configuration().sharedRecord();
    const KcHashAlgo hash = generated.hash == KcHashAlgo::None ? record->getHashAlgo(generated.scheme) : generated.hash;
    const auto algorithm = signAlgorithm(generated.scheme, hash);
    if (generated.use != KeyType::Encryption && algorithm) {
        CRVCfgFile& edited = configuration().editRecord();
        if (generated.hash != KcHashAlgo::None) edited.setHashAlgo(hash);
        edited.setSignaturaAlgorithmIdentifier(*algorithm);
    }
    return undo.keep(addNewKey(generated.use, generated.key, pssMark(generated.hash)));
}

bool KeyManager::mayGenerate(KeyType use, bool successor) const {
    if (!successor) return !hasKey(use);
    return contents_.keyInRole(roleOf(use)) && !successorOf(use);
}

/// What it will sign with is remembered beside it: the configuration still belongs to the key in use.
KeyManagerResult KeyManager::saveSuccessor(const NewKey& generated) {
    // Another session may have given the role away meanwhile.
    const StoredKey* inUse = contents_.keyInRole(roleOf(generated.use));
    if (!inUse) return saveNewKey(generated);
    const auto record = configuration().sharedRecord();
    const KcHashAlgo hash = generated.hash == KcHashAlgo::None ? record->getHashAlgo(generated.scheme) : generated.hash;
    Undo undo(*this);
    contents_.keys.push_back(
        {generated.key,
         KeyRole::Further,
         {},
         successorMark(inUse->key->keyId(), signAlgorithm(generated.scheme, hash), pssMark(generated.hash))});
    return undo.keep(saveConfiguration());
}

KeyManagerResult KeyManager::generateRsaUserKey(KeyType use, uint64_t publicExponent, unsigned bits, KeyScheme scheme,
                                                const KeyGenHooks& hooks) {
    VTEST(isRsa(scheme), kKeyManagerPlace);
    if (bits < kFewestRsaBits) return kKmKeyTooShort;
    if (media().keyLimits(use)) {
        demand({State::Open});
        // Which key of a token does what is for the token and the profile to say.
        if (hooks.successor) return kKmNotOnThisMedium;
        VTEST(mayGenerate(use, false), kKeyManagerPlace);
        SignerPtr key;
        const KeyManagerResult made = media().generateRsa({use, bits, publicExponent, hooks.progress}, key);
        return made == kKmOk ? keepKey(use, scheme, hooks, std::move(key)) : made;
    }
    return keepGenerated(use, scheme, hooks, [&] {
        return shared(PrivateKey::generateRsa(bits, publicExponent, random_, hooks.progress));
    });
}

KeyManagerResult KeyManager::generateDsaUserKey(unsigned bits, const KeyGenHooks& hooks) {
    return keepGenerated(KeyType::Signing, KeyScheme::Dsa, hooks,
                         [&] { return shared(PrivateKey::generateDsa(bits, random_, hooks.progress)); });
}

KeyManagerResult KeyManager::generateECDsaUserKey(KeyType use, StdECId curve, bool explicitDomain,
                                                  const KeyGenHooks& hooks) {
    return keepGenerated(use, KeyScheme::Ecdsa, hooks,
                         [&] { return shared(PrivateKey::generateEc(curve, explicitDomain, random_)); });
}

}  // namespace crv
