#include "TestSigning.h"

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdio>
#include <memory>

std::string testDataPath(const std::string& name) { return std::string(PASSWAY_TEST_DATA_DIR) + "/" + name; }

std::string signDigest(const std::string& keyFile, const std::string& digest, const char* digestName) {
    FILE* f = fopen(testDataPath(keyFile).c_str(), "r");
    if (f == nullptr) return "";
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(PEM_read_PrivateKey(f, nullptr, nullptr, nullptr),
                                                            EVP_PKEY_free);
    fclose(f);
    if (!key) return "";
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                    EVP_PKEY_CTX_free);
    size_t length = 0;
    const EVP_MD* md = EVP_get_digestbyname(digestName);
    const unsigned char* in = reinterpret_cast<const unsigned char*>(digest.data());
    if (!ctx || EVP_PKEY_sign_init(ctx.get()) <= 0 || EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) <= 0 ||
        EVP_PKEY_CTX_set_signature_md(ctx.get(), md) <= 0 ||
        EVP_PKEY_sign(ctx.get(), nullptr, &length, in, digest.size()) <= 0)
        return "";
    std::string signature(length, '\0');
    if (EVP_PKEY_sign(ctx.get(), reinterpret_cast<unsigned char*>(&signature[0]), &length, in, digest.size()) <= 0)
        return "";
    signature.resize(length);
    return signature;
}

std::string opensslMd5(const std::string& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest, &length, EVP_md5(), nullptr);
    return std::string(reinterpret_cast<char*>(digest), length);
}

std::string opensslBase64(const std::string& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                            reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}
