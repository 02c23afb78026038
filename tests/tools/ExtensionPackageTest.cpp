// passway-crx as the build and an administrator use it: the test key's ID (a known answer, from openssl and
// sha256sum), a CRX3 file whose signature verifies over the zip it carries and fails on any changed byte,
// the update manifest, the exit codes.
#include <gtest/gtest.h>

#include <map>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "ExtensionPackage.h"
#include "TestSupport.h"

namespace {

// The length-delimited fields of a protocol buffer message, by number (the last of each number).
std::map<uint64_t, std::string> fields(const std::string& message) {
    std::map<uint64_t, std::string> out;
    auto varint = [&](size_t& at) {
        uint64_t value = 0;
        for (int shift = 0; at < message.size(); shift += 7) {
            unsigned char byte = static_cast<unsigned char>(message[at++]);
            value |= static_cast<uint64_t>(byte & 0x7f) << shift;
            if (!(byte & 0x80)) break;
        }
        return value;
    };
    for (size_t at = 0; at < message.size();) {
        uint64_t key = varint(at), length = varint(at);
        out[key >> 3] = message.substr(at, length);
        at += length;
    }
    return out;
}

uint32_t littleEndian32(const std::string& bytes, size_t at) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

// Whether the CRX3 file's proof verifies over its signed header data and zip.
bool verifies(const std::string& crx) {
    if (crx.compare(0, 4, "Cr24") != 0 || littleEndian32(crx, 4) != 3) return false;
    std::string header = crx.substr(12, littleEndian32(crx, 8)), zip = crx.substr(12 + header.size());
    std::map<uint64_t, std::string> top = fields(header), proof = fields(top[2]);
    const std::string& signedData = top[10000];
    std::string message("CRX3 SignedData\0", 16);
    for (int i = 0; i < 4; ++i) message += static_cast<char>((signedData.size() >> (8 * i)) & 0xff);
    message += signedData + zip;
    const unsigned char* der = reinterpret_cast<const unsigned char*>(proof[1].data());
    EVP_PKEY* key = d2i_PUBKEY(nullptr, &der, static_cast<long>(proof[1].size()));
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    bool ok = key != nullptr && EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, key) == 1 &&
              EVP_DigestVerify(context, reinterpret_cast<const unsigned char*>(proof[2].data()), proof[2].size(),
                               reinterpret_cast<const unsigned char*>(message.data()), message.size()) == 1;
    EVP_MD_CTX_free(context);
    EVP_PKEY_free(key);
    return ok;
}

TEST(ExtensionPackage, TheTestKeysIdAndACrxWhoseSignatureCoversTheZip) {
    const std::string key = testDataPath("test-extension-key.pem");
    ExtensionKey read = readExtensionKey(key);
    ASSERT_TRUE(read.ok) << read.error;
    EXPECT_EQ("hlmebnbopkgpblopheclgoamccpinpha", read.id);
    EXPECT_EQ(opensslBase64(read.publicKeyDer), read.manifestKey);
    std::string error, zip = "PK\x03\x04 an archive" + std::string(70000, 'z');
    std::string crx = packCrx3(key, zip, error);
    ASSERT_TRUE(verifies(crx)) << error;
    EXPECT_EQ(zip, crx.substr(crx.size() - zip.size()));
    crx[crx.size() - 5] ^= 1;
    EXPECT_FALSE(verifies(crx)) << "a changed byte of the zip";
    for (const char* bad : {"test-ec-key.pem", "test-signing-cert.pem", "nonexistent.pem"}) {
        EXPECT_FALSE(readExtensionKey(testDataPath(bad)).ok) << bad;
        EXPECT_EQ("", packCrx3(testDataPath(bad), zip, error)) << bad;
    }
}

// A 1,024-bit key signs with 128 bytes, the first length that takes two bytes in the header.
TEST(ExtensionPackage, ASignatureOf128BytesIsCarriedWhole) {
    TempHome home;
    std::string keyPath = home.path() + "/rsa1024.pem", error;
    EVP_PKEY* key = EVP_RSA_gen(1024);
    FILE* file = fopen(keyPath.c_str(), "w");
    ASSERT_TRUE(key != nullptr && file != nullptr);
    EXPECT_EQ(1, PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr));
    fclose(file), EVP_PKEY_free(key);
    EXPECT_TRUE(verifies(packCrx3(keyPath, "PK\x03\x04", error))) << error;
}

TEST(PasswayCrx, WritesWhatChromeTakesAndExitsByOutcome) {
    TempHome home;
    const std::string key = testDataPath("test-extension-key.pem"), zip = home.path() + "/x.zip";
    writeFile(zip, "PK\x03\x04");
    EXPECT_EQ(readExtensionKey(key).manifestKey + "\nhlmebnbopkgpblopheclgoamccpinpha\n",
              runCommand({PASSWAY_CRX, "key", key}).out);
    EXPECT_EQ("hlmebnbopkgpblopheclgoamccpinpha\n", runCommand({PASSWAY_CRX, "pack", key, zip, zip + ".crx"}).out);
    EXPECT_TRUE(verifies(readFile(zip + ".crx")));
    CommandResult run = runCommand({PASSWAY_CRX, "update-manifest", "abc", "1.0", "https://h/p.crx"});
    const std::string& manifest = run.out;
    EXPECT_EQ(0, run.exitCode);
    EXPECT_NE(std::string::npos, manifest.find("<app appid='abc'>")) << manifest;
    EXPECT_NE(std::string::npos, manifest.find("codebase='https://h/p.crx' version='1.0'")) << manifest;
    const std::pair<int, std::vector<std::string>> rows[] = {
        {2, {PASSWAY_CRX}},
        {2, {PASSWAY_CRX, "pack", key}},
        {3, {PASSWAY_CRX, "key", testDataPath("test-ec-key.pem")}},
        {3, {PASSWAY_CRX, "pack", key, "/nonexistent.zip", zip + ".crx"}},
        {3, {PASSWAY_CRX, "pack", key, zip, "/nonexistent/x.crx"}},
    };
    for (const auto& [exitCode, command] : rows)
        EXPECT_EQ(exitCode, runCommand(command).exitCode) << ::testing::PrintToString(command);
}

}  // namespace
