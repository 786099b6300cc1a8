// Any octets as a message in pieces: signed, enveloped, with authentication, in PEM. How the octets are cut makes no
// difference, and nothing is a good message of the signer who is known here.
#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "crypto/crypto_error.h"
#include "crypto/private_key.h"
#include "messages/message_decryptor.h"
#include "messages/message_verifier.h"
#include "misc/exceptions.h"
#include "pki/revocation_manager.h"

using namespace crv;

namespace {

/// Managers that trust nobody.
struct Managers {
    Managers() {
        DbConfig none;
        none.setType("brak");
        database.init(none);
        certificates.init(database, cache, [] { return CertList(); });
        revocation.init(certificates);
    }
    DbManager database;
    CertificateCache cache;
    CertificateManager certificates;
    RevocationManager revocation;
};

const DecryptionKey& decryptionKey() {
    static const DecryptionKey made = [] {
        RandomBridge source([](std::span<uint8_t> out) { return systemRandom(out); });
        return DecryptionKey{std::make_shared<PrivateKey>(PrivateKey::generateEc(StdECId::P256, false, source))};
    }();
    return made;
}

/// What became of the octets: a code, or the content and the codes of the signers.
struct Outcome {
    int code = 0;
    Bytes content{};
    std::vector<int> signers{};
    bool operator==(const Outcome&) const = default;
};

template <class Work>
Outcome outcomeOf(Work work) {
    Outcome outcome;
    try {
        work(outcome);
    } catch (const CrvApiException& failure) {
        outcome.code = failure.code();
    } catch (const CryptoError&) {
        outcome.code = -1;
    }
    return outcome;
}

void feed(auto& reader, ByteView octets, size_t step) {
    for (; !octets.empty(); octets = octets.subspan(std::min(step, octets.size())))
        reader.update(octets.first(std::min(step, octets.size())));
}

Outcome verified(ByteView octets, size_t step) {
    return outcomeOf([&](Outcome& outcome) {
        Managers managers;
        const auto sink = [&](ByteView piece) {
            return outcome.content.insert(outcome.content.end(), piece.begin(), piece.end()), true;
        };
        MessageVerifier verifier({.content = sink, .now = 1'800'000'000}, managers.certificates, managers.revocation);
        feed(verifier, octets, step);
        const MessageVerdict verdict = verifier.finish();
        if (verdict.good()) std::abort();
        for (const SignerVerdict& one : verdict.signers) outcome.signers.push_back(one.code);
    });
}

Outcome decrypted(ByteView octets, size_t step) {
    return outcomeOf([&](Outcome&) {
        MessageDecryptor decryptor({decryptionKey()}, [](ByteView) { return true; });
        feed(decryptor, octets, step);
        static_cast<void>(decryptor.finish());
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t step = size_t{1} + *data % 7;
    const ByteView octets(data + 1, size - 1);
    if (verified(octets, SIZE_MAX) != verified(octets, step)) std::abort();
    if (decrypted(octets, SIZE_MAX) != decrypted(octets, step)) std::abort();
    return 0;
}
