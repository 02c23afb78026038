// Hashing and base64 against OpenSSL in the same run.
#include <benchmark/benchmark.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <random>
#include <vector>

#include "Encoding"
#include "HMAC"
#include "MD5"
#include "Ratio.h"

namespace {

std::vector<unsigned char> randomBytes(size_t n) {
    std::vector<unsigned char> bytes(n);
    std::mt19937 rng(42);
    for (unsigned char& b : bytes) b = static_cast<unsigned char>(rng());
    return bytes;
}

constexpr size_t k64MiB = 64u << 20;
constexpr size_t k1MiB = 1u << 20;

void BM_CMD5_64MiB(benchmark::State& state) {
    static std::vector<unsigned char> data = randomBytes(k64MiB);
    unsigned char digest[16];
    for (auto _ : state) {
        CMD5 md5;
        md5.Update(data.data(), static_cast<int>(data.size()));
        md5.Final(digest);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_CMD5_64MiB)->Unit(benchmark::kMillisecond);

void BM_OpenSslMD5_64MiB(benchmark::State& state) {
    static std::vector<unsigned char> data = randomBytes(k64MiB);
    unsigned char digest[16];
    for (auto _ : state) {
        EVP_Digest(data.data(), data.size(), digest, nullptr, EVP_md5(), nullptr);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_OpenSslMD5_64MiB)->Unit(benchmark::kMillisecond);
PASSWAY_RATIO("CMD5 64 MiB vs OpenSSL MD5", "BM_CMD5_64MiB", "BM_OpenSslMD5_64MiB");

void BM_Base64Encode_1MiB(benchmark::State& state) {
    static std::vector<unsigned char> data = randomBytes(k1MiB);
    for (auto _ : state) {
        CString out;
        CRFCBase64::Encode(data.data(), static_cast<int>(data.size()), out);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_Base64Encode_1MiB)->Unit(benchmark::kMicrosecond);

void BM_EVP_EncodeBlock_1MiB(benchmark::State& state) {
    static std::vector<unsigned char> data = randomBytes(k1MiB);
    for (auto _ : state) {
        std::vector<unsigned char> out(4 * ((data.size() + 2) / 3) + 1);  // the same one allocation
        EVP_EncodeBlock(out.data(), data.data(), static_cast<int>(data.size()));
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}
BENCHMARK(BM_EVP_EncodeBlock_1MiB)->Unit(benchmark::kMicrosecond);
PASSWAY_RATIO("base64 encode 1 MiB vs EVP_EncodeBlock", "BM_Base64Encode_1MiB", "BM_EVP_EncodeBlock_1MiB");

const std::string& encoded1MiB() {
    static std::string text = [] {
        std::vector<unsigned char> data = randomBytes(k1MiB);
        CString out;
        CRFCBase64::Encode(data.data(), static_cast<int>(data.size()), out);
        return std::string(out);
    }();
    return text;
}

void BM_Base64Decode_1MiB(benchmark::State& state) {
    const std::string& text = encoded1MiB();
    for (auto _ : state) {
        CArray<unsigned char, unsigned char> out;
        CRFCBase64::Decode(text.c_str(), out);
        benchmark::DoNotOptimize(out.GetData());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * k1MiB));
}
BENCHMARK(BM_Base64Decode_1MiB)->Unit(benchmark::kMicrosecond);

void BM_EVP_DecodeBlock_1MiB(benchmark::State& state) {
    const std::string& text = encoded1MiB();
    for (auto _ : state) {
        std::vector<unsigned char> out(text.size() / 4 * 3 + 3);  // the same one allocation
        EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * k1MiB));
}
BENCHMARK(BM_EVP_DecodeBlock_1MiB)->Unit(benchmark::kMicrosecond);
PASSWAY_RATIO("base64 decode 1 MiB vs EVP_DecodeBlock", "BM_Base64Decode_1MiB", "BM_EVP_DecodeBlock_1MiB");

const unsigned char kKey[64] = {1, 2, 3};
unsigned char kText[] = "session=0123456789abcdef&token=fedcba9876543210";

void BM_CHMAC_Short(benchmark::State& state) {
    CMD5 md5;
    CHMAC mac(&md5, kKey, 64);
    unsigned char out[16];
    for (auto _ : state) {
        mac.Sign(kText, sizeof kText - 1, out, 16);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_CHMAC_Short);

void BM_OpenSslHMAC_Short(benchmark::State& state) {
    unsigned char out[16];
    for (auto _ : state) {
        HMAC(EVP_md5(), kKey, 64, kText, sizeof kText - 1, out, nullptr);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_OpenSslHMAC_Short);
PASSWAY_RATIO("CHMAC::Sign 48 bytes vs OpenSSL HMAC", "BM_CHMAC_Short", "BM_OpenSslHMAC_Short");

}  // namespace
