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

/// The contents of a safe, of which each thread takes the next one. What fails first decides.
class PfxReader::Safe {
  public:
    explicit Safe(const AuthenticatedSafe& safe) : safe_(safe), parts_(safe.size()) {}

    void readSome(const PbePassword& password) noexcept {
        for (size_t i; !failed_ && (i = taken_++) < parts_.size();) {
            try {
                if (!PfxReader(password, parts_[i]).readContent(safe_[i])) fail(nullptr);
            } catch (...) {
                fail(std::current_exception());
            }
        }
    }
    void readWithThread(const PbePassword& password) {
        const PbePassword other = password.asking([this] { return !failed_; });
        std::future<void> thread = aside([&] { readSome(other); });
        readSome(password);
        // Who waits may still be stopped.
        while (thread.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout) {
            if (password.progress() && !password.progress()())
                fail(std::make_exception_ptr(CryptoError(CryptoFailure::Cancelled, "stopped")));
        }
        thread.get();
    }
    /// In the order of the safe. False for what is malformed.
    [[nodiscard]] bool moveTo(PfxContents& out) {
        if (thrown_) std::rethrow_exception(thrown_);
        for (PfxContents& part : parts_) {
            moveBehind(out.keys, part.keys);
            moveBehind(out.certificates, part.certificates);
            moveBehind(out.secrets, part.secrets);
            moveBehind(out.others, part.others);
        }
        return !failed_;
    }

  private:
    void fail(std::exception_ptr thrown) noexcept {
        if (!failed_.exchange(true)) thrown_ = std::move(thrown);
    }

    const AuthenticatedSafe& safe_;
    std::vector<PfxContents> parts_;
    std::atomic<size_t> taken_ = 0;
    std::atomic<bool> failed_ = false;
    std::exception_ptr thrown_;
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
        safe.readSome(password_);
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
