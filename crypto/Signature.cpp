// CSignature: RSA verification against the compiled-in certificate.
#include "Signature"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <vector>

#include "Array"
#include "Encoding"
#include "PasswayConfig.h"

namespace {

const char pemCertificate[] = PASSWAY_SIGNING_CERT_PEM;
const unsigned char preshared_key[64] = {PASSWAY_PRESHARED_KEY_BYTES};

constexpr size_t kDecryptedLimit = 48;  // longest decrypted block DecryptSignature reports

CArray<unsigned char, unsigned char> decoded(const CString& b64) {
    CArray<unsigned char, unsigned char> bytes;
    CRFCBase64::Decode(b64, bytes);
    return bytes;
}

}  // namespace

CSignature::CSignature()
    : m_hmac(nullptr), m_signature(), m_reader(nullptr), m_certificate(nullptr), m_publicKey(nullptr), m_rsa(nullptr) {
    m_hmac = new CHMAC(this, preshared_key, sizeof preshared_key);
    // The reader gets the text with its terminating zero, as the certificate was always handed over.
    m_reader = BIO_new_mem_buf(pemCertificate, static_cast<int>(sizeof pemCertificate));
    if (m_reader != nullptr) m_certificate = PEM_read_bio_X509(m_reader, nullptr, nullptr, nullptr);
    if (m_certificate != nullptr) m_publicKey = X509_get_pubkey(m_certificate);
    if (m_publicKey != nullptr && EVP_PKEY_base_id(m_publicKey) == EVP_PKEY_RSA)
        m_rsa = EVP_PKEY_get1_RSA(m_publicKey);
    ERR_clear_error();
}

CSignature::~CSignature() {
    if (m_rsa != nullptr) RSA_free(m_rsa);
    if (m_publicKey != nullptr) EVP_PKEY_free(m_publicKey);
    if (m_certificate != nullptr) X509_free(m_certificate);
    if (m_reader != nullptr) BIO_free(m_reader);
    delete m_hmac;
}

bool CSignature::VerifySignature(CString signatureB64, CString digestB64) {
    if (m_rsa == nullptr) return false;
    CArray<unsigned char, unsigned char> signature = decoded(signatureB64);
    CArray<unsigned char, unsigned char> digest = decoded(digestB64);
    int verified = RSA_verify(NID_md5, digest.GetData(), static_cast<unsigned int>(digest.GetSize()),
                              signature.GetData(), static_cast<unsigned int>(signature.GetSize()), m_rsa);
    ERR_clear_error();
    return verified != 0;
}

CString CSignature::DecryptSignature(CString signatureB64) {
    if (m_rsa == nullptr) return CString();
    CArray<unsigned char, unsigned char> signature = decoded(signatureB64);
    // Decrypt into a block of the key's size: the result is never copied into less room than it needs.
    std::vector<unsigned char> block(static_cast<size_t>(RSA_size(m_rsa)), 0);
    if (signature.GetSize() > static_cast<int>(block.size())) return CString();
    int n = RSA_public_decrypt(signature.GetSize(), signature.GetData(), block.data(), m_rsa, RSA_PKCS1_PADDING);
    ERR_clear_error();
    if (n <= 0 || static_cast<size_t>(n) > kDecryptedLimit) return CString();
    return BinToHex(block.data(), static_cast<unsigned int>(n), 0);
}

CString CSignature::Sign(CString text) {
    m_hmac->Sign(reinterpret_cast<unsigned char*>(const_cast<char*>(static_cast<const char*>(text))),
                 text.GetLength(), m_signature, sizeof m_signature);
    CString out;
    CRFCBase64::Encode(m_signature, sizeof m_signature, out);
    return out;
}
