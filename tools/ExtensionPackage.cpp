// CRX3: "Cr24", version 3, the header's length, the header (a CrxFileHeader protocol buffer), the zip.
// The header holds one sha256_with_rsa proof (the public key and the signature) and the signed header data
// (the CRX ID); the signature covers "CRX3 SignedData\0", the signed header data's length and the data, then
// the whole zip.
#include "ExtensionPackage.h"

#include <cstdint>
#include <cstdio>
#include <memory>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/sha.h>

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Key loadKey(const std::string& path, std::string& error) {
    Key key(nullptr, EVP_PKEY_free);
    if (FILE* file = fopen(path.c_str(), "r")) {
        key.reset(PEM_read_PrivateKey(file, nullptr, nullptr, nullptr));
        fclose(file);
    }
    if (key == nullptr || EVP_PKEY_base_id(key.get()) != EVP_PKEY_RSA) {
        error = "no RSA private key in " + path;
        key.reset();
    }
    return key;
}

std::string publicDer(EVP_PKEY* key) {
    unsigned char* der = nullptr;
    int length = i2d_PUBKEY(key, &der);
    std::string out = length > 0 ? std::string(reinterpret_cast<char*>(der), static_cast<size_t>(length)) : "";
    OPENSSL_free(der);
    return out;
}

// The CRX ID of a public key: the first 16 bytes of SHA-256 of its DER form.
std::string crxId(const std::string& der) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(der.data()), der.size(), digest);
    return std::string(reinterpret_cast<char*>(digest), 16);
}

std::string base64(const std::string& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                            reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}

// A protocol buffer's length-delimited field.
std::string field(uint32_t number, const std::string& value) {
    std::string out;
    for (uint64_t v : {static_cast<uint64_t>(number) << 3 | 2, static_cast<uint64_t>(value.size())}) {
        for (; v >= 0x80; v >>= 7) out += static_cast<char>((v & 0x7f) | 0x80);
        out += static_cast<char>(v);
    }
    return out + value;
}

std::string littleEndian32(uint32_t v) {
    std::string out;
    for (int i = 0; i < 4; ++i) out += static_cast<char>((v >> (8 * i)) & 0xff);
    return out;
}

}  // namespace

ExtensionKey readExtensionKey(const std::string& keyPath) {
    ExtensionKey result;
    Key key = loadKey(keyPath, result.error);
    if (key == nullptr) return result;
    result.publicKeyDer = publicDer(key.get());
    for (unsigned char byte : crxId(result.publicKeyDer)) {  // hex digits written a-p
        result.id += static_cast<char>('a' + (byte >> 4));
        result.id += static_cast<char>('a' + (byte & 0xf));
    }
    result.manifestKey = base64(result.publicKeyDer);
    result.ok = !result.publicKeyDer.empty();
    return result;
}

std::string packCrx3(const std::string& keyPath, const std::string& zip, std::string& error) {
    Key key = loadKey(keyPath, error);
    if (key == nullptr) return "";
    std::string der = publicDer(key.get());
    std::string signedData = field(1, crxId(der));
    std::string message = std::string("CRX3 SignedData\0", 16) + littleEndian32(static_cast<uint32_t>(signedData.size())) +
                          signedData + zip;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    size_t length = 0;
    if (!context || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &length, reinterpret_cast<const unsigned char*>(message.data()),
                       message.size()) != 1) {
        error = "cannot sign with " + keyPath;
        return "";
    }
    std::string signature(length, '\0');
    if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(&signature[0]), &length,
                       reinterpret_cast<const unsigned char*>(message.data()), message.size()) != 1) {
        error = "cannot sign with " + keyPath;
        return "";
    }
    signature.resize(length);
    std::string header = field(2, field(1, der) + field(2, signature)) + field(10000, signedData);
    return "Cr24" + littleEndian32(3) + littleEndian32(static_cast<uint32_t>(header.size())) + header + zip;
}

std::string updateManifest(const std::string& id, const std::string& version, const std::string& codebase) {
    return "<?xml version='1.0' encoding='UTF-8'?>\n"
           "<gupdate xmlns='http://www.google.com/update2/response' protocol='2.0'>\n"
           "  <app appid='" + id + "'>\n"
           "    <updatecheck codebase='" + codebase + "' version='" + version + "' />\n"
           "  </app>\n"
           "</gupdate>\n";
}
