// CHMAC::Sign's two passes.
#include "HMAC"

void CHMAC::signInto(unsigned char* data, int length, unsigned char* out) {
    unsigned char innerDigest[64];  // room for any hash of up to 512 bits
    const int digestLength = GetLengthBytes();
    CRYPTO_REQUIRE(digestLength > 0 && digestLength <= static_cast<int>(sizeof innerDigest));

    m_hash->Init();
    m_hash->Update(m_innerPad, 64);
    m_hash->Update(data, length);
    m_hash->Final(innerDigest);

    m_hash->Init();
    m_hash->Update(m_outerPad, 64);
    m_hash->Update(innerDigest, digestLength);
    m_hash->Final(out);
}
