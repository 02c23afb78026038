// MD5 as RFC 1321 defines it.
//
// The round functions are written so that the processor can work on two independent parts at once:
// G adds its two disjoint terms separately, and the message word and round constant are added to the
// target before the round function is ready. Words are read from the caller's buffer with memcpy,
// which compiles to plain loads on this little-endian platform.
#include "MD5"

#include <cstring>

namespace {

inline uint32_t rotl(uint32_t x, int s) { return (x << s) | (x >> (32 - s)); }
inline uint32_t load(const unsigned char* p) {
    uint32_t w;
    memcpy(&w, p, 4);
    return w;
}

#define MD5_F(a, b, c, d, x, s, k)               \
    a += (x) + (k) + ((d) ^ ((b) & ((c) ^ (d)))); \
    a = rotl(a, s) + (b)
#define MD5_G(a, b, c, d, x, s, k)       \
    a += (x) + (k) + (~(d) & (c));        \
    a += (d) & (b);                       \
    a = rotl(a, s) + (b)
#define MD5_H(a, b, c, d, x, s, k)       \
    a += (x) + (k) + ((b) ^ (c) ^ (d));   \
    a = rotl(a, s) + (b)
#define MD5_I(a, b, c, d, x, s, k)       \
    a += (x) + (k) + ((c) ^ ((b) | ~(d))); \
    a = rotl(a, s) + (b)

}  // namespace

void CMD5::Init() {
    m_state[0] = 0x67452301u;
    m_state[1] = 0xefcdab89u;
    m_state[2] = 0x98badcfeu;
    m_state[3] = 0x10325476u;
    m_bytes[0] = m_bytes[1] = 0;
}

void CMD5::byteSwap(unsigned int* words, unsigned int count) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    for (unsigned int i = 0; i < count; ++i) words[i] = __builtin_bswap32(words[i]);
#else
    (void)words;
    (void)count;
#endif
}

void CMD5::transform(const unsigned char* block, unsigned int blocks) {
    uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];
    for (; blocks > 0; --blocks, block += 64) {
        uint32_t x[16];
        for (int i = 0; i < 16; ++i) x[i] = load(block + 4 * i);
        byteSwap(x, 16);
        const uint32_t oa = a, ob = b, oc = c, od = d;

        MD5_F(a, b, c, d, x[0], 7, 0xd76aa478u);   MD5_F(d, a, b, c, x[1], 12, 0xe8c7b756u);
        MD5_F(c, d, a, b, x[2], 17, 0x242070dbu);  MD5_F(b, c, d, a, x[3], 22, 0xc1bdceeeu);
        MD5_F(a, b, c, d, x[4], 7, 0xf57c0fafu);   MD5_F(d, a, b, c, x[5], 12, 0x4787c62au);
        MD5_F(c, d, a, b, x[6], 17, 0xa8304613u);  MD5_F(b, c, d, a, x[7], 22, 0xfd469501u);
        MD5_F(a, b, c, d, x[8], 7, 0x698098d8u);   MD5_F(d, a, b, c, x[9], 12, 0x8b44f7afu);
        MD5_F(c, d, a, b, x[10], 17, 0xffff5bb1u); MD5_F(b, c, d, a, x[11], 22, 0x895cd7beu);
        MD5_F(a, b, c, d, x[12], 7, 0x6b901122u);  MD5_F(d, a, b, c, x[13], 12, 0xfd987193u);
        MD5_F(c, d, a, b, x[14], 17, 0xa679438eu); MD5_F(b, c, d, a, x[15], 22, 0x49b40821u);

        MD5_G(a, b, c, d, x[1], 5, 0xf61e2562u);   MD5_G(d, a, b, c, x[6], 9, 0xc040b340u);
        MD5_G(c, d, a, b, x[11], 14, 0x265e5a51u); MD5_G(b, c, d, a, x[0], 20, 0xe9b6c7aau);
        MD5_G(a, b, c, d, x[5], 5, 0xd62f105du);   MD5_G(d, a, b, c, x[10], 9, 0x02441453u);
        MD5_G(c, d, a, b, x[15], 14, 0xd8a1e681u); MD5_G(b, c, d, a, x[4], 20, 0xe7d3fbc8u);
        MD5_G(a, b, c, d, x[9], 5, 0x21e1cde6u);   MD5_G(d, a, b, c, x[14], 9, 0xc33707d6u);
        MD5_G(c, d, a, b, x[3], 14, 0xf4d50d87u);  MD5_G(b, c, d, a, x[8], 20, 0x455a14edu);
        MD5_G(a, b, c, d, x[13], 5, 0xa9e3e905u);  MD5_G(d, a, b, c, x[2], 9, 0xfcefa3f8u);
        MD5_G(c, d, a, b, x[7], 14, 0x676f02d9u);  MD5_G(b, c, d, a, x[12], 20, 0x8d2a4c8au);

        MD5_H(a, b, c, d, x[5], 4, 0xfffa3942u);   MD5_H(d, a, b, c, x[8], 11, 0x8771f681u);
        MD5_H(c, d, a, b, x[11], 16, 0x6d9d6122u); MD5_H(b, c, d, a, x[14], 23, 0xfde5380cu);
        MD5_H(a, b, c, d, x[1], 4, 0xa4beea44u);   MD5_H(d, a, b, c, x[4], 11, 0x4bdecfa9u);
        MD5_H(c, d, a, b, x[7], 16, 0xf6bb4b60u);  MD5_H(b, c, d, a, x[10], 23, 0xbebfbc70u);
        MD5_H(a, b, c, d, x[13], 4, 0x289b7ec6u);  MD5_H(d, a, b, c, x[0], 11, 0xeaa127fau);
        MD5_H(c, d, a, b, x[3], 16, 0xd4ef3085u);  MD5_H(b, c, d, a, x[6], 23, 0x04881d05u);
        MD5_H(a, b, c, d, x[9], 4, 0xd9d4d039u);   MD5_H(d, a, b, c, x[12], 11, 0xe6db99e5u);
        MD5_H(c, d, a, b, x[15], 16, 0x1fa27cf8u); MD5_H(b, c, d, a, x[2], 23, 0xc4ac5665u);

        MD5_I(a, b, c, d, x[0], 6, 0xf4292244u);   MD5_I(d, a, b, c, x[7], 10, 0x432aff97u);
        MD5_I(c, d, a, b, x[14], 15, 0xab9423a7u); MD5_I(b, c, d, a, x[5], 21, 0xfc93a039u);
        MD5_I(a, b, c, d, x[12], 6, 0x655b59c3u);  MD5_I(d, a, b, c, x[3], 10, 0x8f0ccc92u);
        MD5_I(c, d, a, b, x[10], 15, 0xffeff47du); MD5_I(b, c, d, a, x[1], 21, 0x85845dd1u);
        MD5_I(a, b, c, d, x[8], 6, 0x6fa87e4fu);   MD5_I(d, a, b, c, x[15], 10, 0xfe2ce6e0u);
        MD5_I(c, d, a, b, x[6], 15, 0xa3014314u);  MD5_I(b, c, d, a, x[13], 21, 0x4e0811a1u);
        MD5_I(a, b, c, d, x[4], 6, 0xf7537e82u);   MD5_I(d, a, b, c, x[11], 10, 0xbd3af235u);
        MD5_I(c, d, a, b, x[2], 15, 0x2ad7d2bbu);  MD5_I(b, c, d, a, x[9], 21, 0xeb86d391u);

        a += oa;
        b += ob;
        c += oc;
        d += od;
    }
    m_state[0] = a;
    m_state[1] = b;
    m_state[2] = c;
    m_state[3] = d;
}

void CMD5::Update(unsigned char* data, int length) {
    if (data == nullptr || length < 1) return;
    uint32_t used = m_bytes[0] & 63;  // bytes already waiting in m_block
    uint32_t before = m_bytes[0];
    m_bytes[0] += static_cast<uint32_t>(length);
    if (m_bytes[0] < before) ++m_bytes[1];

    unsigned char* pending = reinterpret_cast<unsigned char*>(m_block);
    uint32_t n = static_cast<uint32_t>(length);
    if (used > 0) {
        uint32_t room = 64 - used;
        if (n < room) {
            memcpy(pending + used, data, n);
            return;
        }
        memcpy(pending + used, data, room);
        transform(pending, 1);
        data += room;
        n -= room;
    }
    if (n >= 64) {
        transform(data, n / 64);
        data += n & ~63u;
        n &= 63;
    }
    memcpy(pending, data, n);
}

void CMD5::Final(unsigned char* digest) {
    unsigned char* pending = reinterpret_cast<unsigned char*>(m_block);
    uint32_t used = m_bytes[0] & 63;
    pending[used++] = 0x80;
    if (used > 56) {
        memset(pending + used, 0, 64 - used);
        transform(pending, 1);
        used = 0;
    }
    memset(pending + used, 0, 56 - used);
    m_block[14] = m_bytes[0] << 3;
    m_block[15] = (m_bytes[1] << 3) | (m_bytes[0] >> 29);
    byteSwap(&m_block[14], 2);  // the length words are little-endian in the block
    transform(pending, 1);
    for (int i = 0; i < 4; ++i) {
        uint32_t w = m_state[i];
        byteSwap(&w, 1);
        memcpy(digest + 4 * i, &w, 4);
    }
    memset(m_state, 0, sizeof m_state);
    memset(m_bytes, 0, sizeof m_bytes);
    memset(m_block, 0, sizeof m_block);
}

void CMD5::HashBuffer(unsigned char* out, unsigned char* in, int length) {
    Init();
    Update(in, length);
    Final(out);
}
