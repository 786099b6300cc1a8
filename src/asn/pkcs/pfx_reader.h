// Sorts the bags of a PKCS#12 file whose integrity was checked.
#pragma once

#include "asn/pkcs/pfx.h"

namespace crv {

/// Walks all contents and collects what is known: keys, plain and enciphered, X.509 certificates, secrets in both
/// layouts; bags of other kinds as they are. The operations answer false for what is malformed and throw
/// CryptoError for what cannot be deciphered.
class PfxReader {
  public:
    /// Refers to both.
    PfxReader(const PbePassword& password, PfxContents& out) : password_(password), out_(out) {}

    [[nodiscard]] bool readSafe(const ContentInfo& authSafe);

  private:
    class Safe;
    using BagReader = bool (PfxReader::*)(const SafeBag& bag);
    struct BagKind {
        const KnownOid& oid;
        BagReader reader;
    };
    static const BagKind kKinds[];
    static constexpr int kDeepest = 8;

    [[nodiscard]] bool readContent(const ContentInfo& content);
    [[nodiscard]] bool readBags(ByteView safeContents);
    [[nodiscard]] bool readBag(const SafeBag& bag);
    [[nodiscard]] bool readSecretsOf(const SafeBag& bag, SafeBag& without);
    [[nodiscard]] bool readKey(const SafeBag& bag);
    [[nodiscard]] bool readShroudedKey(const SafeBag& bag);
    [[nodiscard]] bool readCertificate(const SafeBag& bag);
    [[nodiscard]] bool readSecret(const SafeBag& bag);
    [[nodiscard]] bool readNested(const SafeBag& bag);
    [[nodiscard]] bool passOver(const SafeBag&) { return true; }
    bool keep(const SafeBag& bag);
    bool addKey(PrivateKeyInfo key, const SafeBag& bag);

    const PbePassword& password_;
    PfxContents& out_;
    int depth_ = 0;
};

}  // namespace crv
