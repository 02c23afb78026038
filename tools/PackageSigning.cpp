// Package signing with OpenSSL's EVP interface and the library's own MD5 and base64.
#include "PackageSigning.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "Encoding"
#include "MD5"

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

SigningResult failure(std::string error) {
    SigningResult result;
    result.error = std::move(error);
    return result;
}

std::string openSslReason() {
    unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) return "no further detail";
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return text;
}

// Reads a PEM file with `read`; on failure `error` says whether the file or its contents was the problem.
template <class Read>
Key readPem(const std::string& path, const char* what, Read read, std::string& error) {
    FILE* f = fopen(path.c_str(), "r");
    if (f == nullptr) {
        error = "cannot open " + std::string(what) + " '" + path + "': " + strerror(errno);
        return Key(nullptr, EVP_PKEY_free);
    }
    Key key = read(f);
    fclose(f);
    if (!key) error = "'" + path + "' holds no " + what + " in PEM form (" + openSslReason() + ")";
    return key;
}

bool isRsa(const Key& key) { return EVP_PKEY_base_id(key.get()) == EVP_PKEY_RSA; }

// A context for `key` set up for PKCS #1 v1.5 over MD5 digests by `init`.
KeyContext md5Context(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*)) {
    KeyContext ctx(EVP_PKEY_CTX_new(key, nullptr), EVP_PKEY_CTX_free);
    if (!ctx || init(ctx.get()) <= 0 || EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) <= 0 ||
        EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_md5()) <= 0)
        ctx.reset();
    return ctx;
}

}  // namespace

SigningResult digestFile(const std::string& path) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) return failure("cannot open package '" + path + "': " + strerror(errno));
    CMD5 md5;
    std::vector<unsigned char> chunk(64 * 1024);
    size_t n;
    while ((n = fread(chunk.data(), 1, chunk.size(), f)) > 0) md5.Update(chunk.data(), static_cast<int>(n));
    bool failed = ferror(f) != 0;
    int error = errno;
    fclose(f);
    if (failed) return failure("cannot read package '" + path + "': " + strerror(error));
    SigningResult result;
    result.value.resize(16);
    md5.Final(reinterpret_cast<unsigned char*>(&result.value[0]));
    result.ok = true;
    return result;
}

SigningResult signDigest(const std::string& keyPath, const std::string& digest) {
    std::string error;
    Key key = readPem(keyPath, "private key",
                      [](FILE* f) { return Key(PEM_read_PrivateKey(f, nullptr, nullptr, nullptr), EVP_PKEY_free); },
                      error);
    if (!key) return failure(error);
    if (!isRsa(key)) return failure("'" + keyPath + "' is not an RSA key");

    KeyContext ctx = md5Context(key.get(), EVP_PKEY_sign_init);
    size_t length = 0;
    const unsigned char* in = reinterpret_cast<const unsigned char*>(digest.data());
    if (!ctx || EVP_PKEY_sign(ctx.get(), nullptr, &length, in, digest.size()) <= 0)
        return failure("cannot sign with '" + keyPath + "' (" + openSslReason() + ")");
    std::vector<unsigned char> signature(length);
    if (EVP_PKEY_sign(ctx.get(), signature.data(), &length, in, digest.size()) <= 0)
        return failure("cannot sign with '" + keyPath + "' (" + openSslReason() + ")");

    CString encoded;
    CRFCBase64::Encode(signature.data(), static_cast<int>(length), encoded);
    SigningResult result;
    result.ok = true;
    result.value = std::string(encoded);
    return result;
}

SigningResult verifyDigest(const std::string& certPath, const std::string& digest, const std::string& signatureB64) {
    std::string error;
    Key key = readPem(certPath, "certificate or public key",
                      [](FILE* f) {
                          std::unique_ptr<X509, decltype(&X509_free)> cert(PEM_read_X509(f, nullptr, nullptr, nullptr),
                                                                           X509_free);
                          if (cert) return Key(X509_get_pubkey(cert.get()), EVP_PKEY_free);
                          rewind(f);
                          return Key(PEM_read_PUBKEY(f, nullptr, nullptr, nullptr), EVP_PKEY_free);
                      },
                      error);
    if (!key) return failure(error);
    if (!isRsa(key)) return failure("the key of '" + certPath + "' is not an RSA key");

    CArray<unsigned char, unsigned char> signature;
    CRFCBase64::Decode(signatureB64.c_str(), signature);
    KeyContext ctx = md5Context(key.get(), EVP_PKEY_verify_init);
    if (!ctx) return failure("cannot check with '" + certPath + "' (" + openSslReason() + ")");
    SigningResult result;
    result.ok = EVP_PKEY_verify(ctx.get(), signature.GetData(), static_cast<size_t>(signature.GetSize()),
                                reinterpret_cast<const unsigned char*>(digest.data()), digest.size()) == 1;
    ERR_clear_error();
    return result;
}
