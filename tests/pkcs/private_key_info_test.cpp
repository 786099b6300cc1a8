// PKCS#8 keys, plain and under a password.
#include "asn/pkcs/private_key_info.h"

#include <gtest/gtest.h>

#include "asn/known_oids.h"
#include "asn/pkcs/secret_encoding.h"
#include "crypto/crypto_error.h"
#include "pkcs/data_file.h"

namespace crv::test {
namespace {

TEST(PrivateKeyInfo, EncipheredKeysOfOthersAreRead) {
    const Bytes plain = dataFile("key_ec.der");
    for (const char* name : {"aes256", "aes128", "aes192_sha512", "des3", "rc2_64", "pbe3des", "pbe40"}) {
        SCOPED_TRACE(name);
        EncryptedPrivateKeyInfo enciphered;
        ASSERT_TRUE(enciphered.readExactly(dataFile(std::string("enc_") + name + ".der")));
        EXPECT_EQ(enciphered.decrypt(PbePassword(kPassword)).encoded(), plain);
        EXPECT_THROW(static_cast<void>(enciphered.decrypt(PbePassword("wrong"))), CryptoError);
    }
}

CryptoFailure failureOf(const EncryptedPrivateKeyInfo& enciphered) {
    try {
        static_cast<void>(enciphered.decrypt(PbePassword("x")));
    } catch (const CryptoError& error) {
        return error.failure();
    }
    ADD_FAILURE() << "deciphered";
    return CryptoFailure::internal;
}

TEST(PrivateKeyInfo, UnknownSchemesAndAbsurdCountsAreRefused) {
    for (const char* name : {"enc_scrypt.der", "enc_pbemd5des.der"}) {
        EncryptedPrivateKeyInfo enciphered;
        ASSERT_TRUE(enciphered.readExactly(dataFile(name))) << name;
        EXPECT_EQ(failureOf(enciphered), CryptoFailure::unsupported) << name;
    }
    const Bytes salt(8, 1);
    EncryptedPrivateKeyInfo enciphered;
    enciphered.encryptedData.build(Bytes(8, 0));
    for (const long count : {0L, -1L, 10'000'001L}) {
        enciphered.encryptionAlgorithm = PbeSettings{PbeAlgo::sha1TripleDesCbc, {}, salt, count}.algorithm();
        EXPECT_EQ(failureOf(enciphered), CryptoFailure::badParameter) << count;
    }
    enciphered.encryptionAlgorithm.parameters.reset();
    EXPECT_EQ(failureOf(enciphered), CryptoFailure::badParameter) << "no parameters";
}

TEST(PrivateKeyInfo, KeyUsageSurvivesEncipherment) {
    PrivateKeyInfo key;
    ASSERT_TRUE(key.readExactly(dataFile("key_rsa.der")));
    EXPECT_EQ(key.keyUsage(), std::nullopt);
    key.setKeyUsage(kKeyEncipherment | kDataEncipherment);
    key.setKeyUsage(kKeyEncipherment);  // replaces
    ASSERT_EQ(key.attributes->size(), 1U);
    EXPECT_EQ(key.attributes->encoded(), (Bytes{0xA0, 13, 0x30, 11, 6, 3, 0x55, 0x1D, 15, 0x31, 4, 3, 2, 5, 0x20}));
    const SecretBytes password = utf16BePassword(kPassword);
    const Bytes salt(8, 3);
    EncryptedPrivateKeyInfo enciphered;
    enciphered.encrypt({PbeAlgo::sha1TripleDesCbc, password, salt, 5}, key);
    EXPECT_EQ(enciphered.decrypt(PbePassword(kPassword)).keyUsage(), kKeyEncipherment);
}

}  // namespace
}  // namespace crv::test
