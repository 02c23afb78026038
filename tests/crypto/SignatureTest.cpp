// CSignature: what verifies against the compiled-in test certificate, and that every damaged
// signature, digest or key is refused.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <string>

#include "Signature"
#include "TestSigning.h"

namespace {

const std::string kPackage = "#!/bin/sh\necho test installer\n";

struct Signed {
    std::string digest = opensslMd5(kPackage);
    std::string signature = signDigest("test-signing-key.pem", digest);
};

bool verifies(const std::string& signature, const std::string& digest) {
    CSignature check;
    return check.VerifySignature(opensslBase64(signature).c_str(), opensslBase64(digest).c_str());
}

TEST(CSignature, VerifiesASignatureOfTheTestKey) {
    Signed s;
    ASSERT_EQ(256u, s.signature.size());
    EXPECT_TRUE(CSignature().hasKey());
    EXPECT_TRUE(verifies(s.signature, s.digest));
    // Line breaks in the parameter are skipped by the decoder.
    std::string b64 = opensslBase64(s.signature);
    b64.insert(64, "\r\n");
    EXPECT_TRUE(CSignature().VerifySignature(b64.c_str(), opensslBase64(s.digest).c_str()));
}

TEST(CSignature, EveryBitFlipByteFlipAndTruncationFails) {
    Signed s;
    int accepted = 0;
    for (size_t bit = 0; bit < s.digest.size() * 8; ++bit) {
        std::string d = s.digest;
        d[bit / 8] = static_cast<char>(d[bit / 8] ^ (1 << (bit % 8)));
        accepted += verifies(s.signature, d);
    }
    for (size_t bit = 0; bit < s.signature.size() * 8; ++bit) {
        std::string sig = s.signature;
        sig[bit / 8] = static_cast<char>(sig[bit / 8] ^ (1 << (bit % 8)));
        accepted += verifies(sig, s.digest);
    }
    for (size_t i = 0; i < s.signature.size(); ++i) {
        std::string sig = s.signature;
        sig[i] = static_cast<char>(~sig[i]);
        accepted += verifies(sig, s.digest);
        accepted += verifies(s.signature.substr(0, i), s.digest);
    }
    for (size_t i = 0; i < s.digest.size(); ++i) accepted += verifies(s.signature, s.digest.substr(0, i));
    EXPECT_EQ(0, accepted);
}

TEST(CSignature, RefusesOtherKeysOtherDigestsAndNonsense) {
    Signed s;
    EXPECT_FALSE(verifies(signDigest("test-other-key.pem", s.digest), s.digest)) << "another key";
    std::string sha1(20, '\0');
    EVP_Digest(kPackage.data(), kPackage.size(), reinterpret_cast<unsigned char*>(&sha1[0]), nullptr, EVP_sha1(),
               nullptr);
    EXPECT_FALSE(verifies(signDigest("test-signing-key.pem", sha1, "SHA1"), sha1)) << "a signature over SHA-1";
    CSignature check;
    EXPECT_FALSE(check.VerifySignature("", opensslBase64(s.digest).c_str())) << "an empty signature";
    EXPECT_FALSE(check.VerifySignature("!!!not base64!!!", "???"));
    EXPECT_FALSE(check.VerifySignature(opensslBase64(s.signature + s.signature).c_str(), opensslBase64(s.digest).c_str()));
}

TEST(CSignature, DecryptSignatureShowsTheDigestInfo) {
    Signed s;
    std::string hex(CSignature().DecryptSignature(opensslBase64(s.signature).c_str()));
    // DigestInfo for MD5: the algorithm prefix, then the digest.
    EXPECT_EQ("3020300c06082a864886f70d020505000410", hex.substr(0, 36));
    EXPECT_EQ(68u, hex.size());
    EXPECT_EQ("", std::string(CSignature().DecryptSignature("AAAA")));
    std::string sha512(64, '\x01');
    std::string longBlock = signDigest("test-signing-key.pem", sha512, "SHA512");
    EXPECT_EQ("", std::string(CSignature().DecryptSignature(opensslBase64(longBlock).c_str())))
        << "a block longer than 48 bytes is not reported";
}

TEST(CSignature, SignIsHmacMd5WithThePresharedKey) {
    FILE* f = fopen(testDataPath("test-preshared.key").c_str(), "rb");
    ASSERT_NE(nullptr, f);
    unsigned char key[64];
    ASSERT_EQ(64u, fread(key, 1, 64, f));
    fclose(f);
    const std::string text = "session=1&token=2";
    unsigned char mac[16];
    HMAC(EVP_md5(), key, 64, reinterpret_cast<const unsigned char*>(text.data()), text.size(), mac, nullptr);
    EXPECT_EQ(opensslBase64(std::string(reinterpret_cast<char*>(mac), 16)), std::string(CSignature().Sign(text.c_str())));
}

}  // namespace
