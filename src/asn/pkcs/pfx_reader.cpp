#include "asn/pkcs/pfx_reader.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <iterator>

#include "asn/known_oids.h"
#include "asn/pkcs/encrypted_data.h"
#include "asn/pkcs/secret_encoding.h"
#include "crypto/crypto_error.h"
#include "misc/aside.h"

namespace crv {

const PfxReader::BagKind PfxReader::kKinds[] = {
    {OID_PKCS12_KEY_BAG, &PfxReader::readKey},          {OID_PKCS12_SHROUDED_KEY_BAG, &PfxReader::readShroudedKey},
    {OID_PKCS12_CERT_BAG, &PfxReader::readCertificate}, {OID_PKCS12_SECRET_BAG, &PfxReader::readSecret},
    {OID_CRV_SECRETS_BAG, &PfxReader::passOver},        {OID_PKCS12_SAFE_CONTENTS_BAG, &PfxReader::readNested},
};

namespace {

/// Whether two threads are through sooner than one, which derives one key after the other.
bool isWorthAThread(const AuthenticatedSafe& safe) {
    EncryptedData enciphered;
    return safe.size() > 1 && std::ranges::any_of(safe, [&](const ContentInfo& content) {
               return content.get(OID_PKCS7_ENCRYPTED_DATA, enciphered, ASN_FLAG_CONST) &&
                      hasOwnKey(enciphered.encryptedContentInfo.contentEncryptionAlgorithm);
           });
}

template <class Item>
void moveBehind(std::vector<Item>& all, std::vector<Item>& more) {
    std::ranges::move(more, std::back_inserter(all));
}

}  // namespace

/// The contents of a safe, of which each thread takes the next one. Of several faults that of the first one is told, as
/// if one thread had read them all.
class PfxReader::Safe {
  public:
    explicit Safe(const AuthenticatedSafe& safe) : safe_(safe), parts_(safe.size()), failedAt_(safe.size()) {}

    /// `at` is the content that is being read.
    void readSome(const PbePassword& password, size_t& at) noexcept {
        while (!cancelled_ && (at = taken_++) < failedAt_) {
            Part& part = parts_[at];
            try {
                part.malformed = !PfxReader(password, part.contents).readContent(safe_[at]);
            } catch (...) {
                part.thrown = std::current_exception();
            }
            if (part.malformed || part.thrown) lowerTo(failedAt_, at);
        }
    }
    void readWithThread(const PbePassword& password) {
        const auto goOn = [&] {
            if (password.progress() && !password.progress()()) cancelled_ = true;
            return !cancelled_;
        };
        size_t here = 0, there = 0;
        const PbePassword own = password.asking(goOn);
        const PbePassword other = password.asking([&] { return !cancelled_ && there < failedAt_; });
        std::future<void> thread = aside([&] { readSome(other, there); });
        readSome(own, here);
        // Who waits may still be stopped.
        while (!cancelled_ && thread.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout) goOn();
        thread.get();
    }
    /// In the order of the safe. False for what is malformed.
    [[nodiscard]] bool moveTo(PfxContents& out) {
        if (cancelled_) throw CryptoError(CryptoFailure::Cancelled, "stopped");
        for (Part& part : parts_) {
            if (part.thrown) std::rethrow_exception(part.thrown);
            if (part.malformed) return false;
            moveBehind(out.keys, part.contents.keys);
            moveBehind(out.certificates, part.contents.certificates);
            moveBehind(out.secrets, part.contents.secrets);
            moveBehind(out.others, part.contents.others);
        }
        return true;
    }

  private:
    struct Part {
        PfxContents contents;
        bool malformed = false;
        std::exception_ptr thrown;
    };

    const AuthenticatedSafe& safe_;
    std::vector<Part> parts_;
    std::atomic<size_t> taken_ = 0;
    std::atomic<size_t> failedAt_;
    std::atomic<bool> cancelled_ = false;
};

bool PfxReader::readSafe(const ContentInfo& authSafe) {
    ASNoctstr octets;
    AuthenticatedSafe contents;
    if (!authSafe.getData(octets, ASN_FLAG_CONST) || !contents.readExactly(octets.value(), ASN_FLAG_CONST))
        return false;
    Safe safe(contents);
    if (isWorthAThread(contents)) {
        safe.readWithThread(password_);
    } else {
        size_t at = 0;
        safe.readSome(password_, at);
    }
    return safe.moveTo(out_);
}

bool PfxReader::readContent(const ContentInfo& content) {
    ASNoctstr octets;
    if (content.getData(octets, ASN_FLAG_CONST)) return readBags(octets.value());
    EncryptedData enciphered;
    return content.get(OID_PKCS7_ENCRYPTED_DATA, enciphered, ASN_FLAG_CONST) && readBags(enciphered.decrypt(password_));
}

bool PfxReader::readBags(ByteView safeContents) {
    SafeContents bags;
    if (!bags.readExactly(safeContents, ASN_FLAG_CONST)) return false;
    return std::ranges::all_of(bags, [&](const SafeBag& bag) {
        if (!bag.bagAttributes || !bag.bagAttributes->find(OID_CRV_SECRETS)) return readBag(bag);
        SafeBag without;
        return readSecretsOf(bag, without) && readBag(without);
    });
}

bool PfxReader::readBag(const SafeBag& bag) {
    for (const BagKind& kind : kKinds)
        if (bag.bagId == kind.oid) return (this->*kind.reader)(bag);
    return keep(bag);
}

bool PfxReader::readSecretsOf(const SafeBag& bag, SafeBag& without) {
    for (const Attribute& attribute : *bag.bagAttributes) {
        if (!(attribute.type == OID_CRV_SECRETS)) continue;
        for (const ASNany& value : attribute.values) {
            EncryptedData enciphered;
            SecretBag secret;
            if (!value.decode(enciphered, ASN_FLAG_CONST) || !secret.readExactly(enciphered.decrypt(password_)))
                return false;
            out_.secrets.push_back({std::move(secret.secretTypeId), std::move(secret.secretValue.value), {}});
        }
    }
    without = bag;
    without.bagAttributes.reset();
    without.addAttributes(bag.bagAttributes->encodedWithout(OID_CRV_SECRETS));
    return true;
}

bool PfxReader::keep(const SafeBag& bag) {
    out_.others.push_back(encodedSecret(bag));
    return true;
}

bool PfxReader::addKey(PrivateKeyInfo key, const SafeBag& bag) {
    out_.keys.push_back({std::move(key), bag.localKeyId(), bag.friendlyName(), bag.otherAttributes()});
    return true;
}

bool PfxReader::readKey(const SafeBag& bag) {
    PrivateKeyInfo key;
    return bag.bagValue.value.decode(key) && addKey(std::move(key), bag);
}

bool PfxReader::readShroudedKey(const SafeBag& bag) {
    EncryptedPrivateKeyInfo shrouded;
    return bag.bagValue.value.decode(shrouded, ASN_FLAG_CONST) && addKey(shrouded.decrypt(password_), bag);
}

bool PfxReader::readCertificate(const SafeBag& bag) {
    CertBag cert;
    if (!bag.bagValue.value.decode(cert, ASN_FLAG_CONST)) return false;
    if (!(cert.certId == OID_PKCS9_X509_CERTIFICATE)) return keep(bag);
    ASNoctstr octets;
    if (!cert.certValue.value.decode(octets, ASN_FLAG_CONST)) return false;
    out_.certificates.push_back({toBytes(octets.value()), bag.localKeyId(), bag.friendlyName(), bag.otherAttributes()});
    return true;
}

bool PfxReader::readSecret(const SafeBag& bag) {
    SecretBag secret;
    EncryptedData enciphered;
    if (bag.bagValue.value.decode(enciphered, ASN_FLAG_CONST)) {
        if (!secret.readExactly(enciphered.decrypt(password_))) return false;
    } else if (!bag.bagValue.value.decode(secret)) {
        return false;
    }
    out_.secrets.push_back(
        {std::move(secret.secretTypeId), std::move(secret.secretValue.value), bag.otherAttributes()});
    return true;
}

bool PfxReader::readNested(const SafeBag& bag) {
    if (depth_ == kDeepest) return false;
    ++depth_;
    const bool read = readBags(bag.bagValue.value.getMemory());
    --depth_;
    return read;
}

}  // namespace crv
