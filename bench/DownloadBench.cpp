// The package download path: 256 MiB through NPP_NewStream / NPP_Write (64000-byte pieces) /
// NPP_DestroyStream in the fake browser, against plain write + OpenSSL MD5 of the same pieces, and the
// plug-in's resident-memory growth during one download.
#include <benchmark/benchmark.h>

#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "FakeBrowser.h"
#include "Ratio.h"

namespace {

constexpr size_t kPackageSize = 256u << 20;
constexpr size_t kPiece = 64000;
const char kUrl[] = "http://portal.test/client/package";

std::shared_ptr<const std::string> package() {
    static std::shared_ptr<const std::string> bytes = [] {
        auto data = std::make_shared<std::string>(kPackageSize, '\0');
        for (size_t i = 0; i < data->size(); ++i) (*data)[i] = static_cast<char>(i * 2654435761u >> 24);
        return std::shared_ptr<const std::string>(data);
    }();
    return bytes;
}

// A temporary HOME for the plug-in's log; removed at exit.
void benchHome() {
    static bool made = [] {
        static char home[] = "/tmp/passway-download-XXXXXX";
        if (mkdtemp(home) == nullptr) {
            perror("mkdtemp");
            exit(1);
        }
        setenv("HOME", home, 1);
        atexit([] { (void)!system((std::string("rm -rf '") + home + "'").c_str()); });
        return true;
    }();
    (void)made;
}

long statusKiB(const char* field) {
    FILE* f = fopen("/proc/self/status", "r");
    char line[256];
    long value = -1;
    size_t n = strlen(field);
    while (f != nullptr && fgets(line, sizeof line, f) != nullptr)
        if (strncmp(line, field, n) == 0) value = atol(line + n + 1);
    if (f != nullptr) fclose(f);
    return value;
}

void downloadOnce(FakeBrowser& browser) {
    browser.serveShared(kUrl, "application/x-tar", package());
    FakeBrowser::Instance* instance =
        browser.create({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                        {"tunvosize", std::to_string(kPackageSize)}, {"signature", "not-signed"}});
    browser.pump();  // the download; the bad signature then removes the file
    browser.destroy(instance);
}

void BM_PluginDownload_256MiB(benchmark::State& state) {
    benchHome();
    FakeBrowser browser(PASSWAY_TEST_PLUGIN);
    browser.initialize();
    browser.quiet = true;
    browser.chunkSize = kPiece;
    package();
    downloadOnce(browser);  // warm up: code, log file, allocator

    long before = statusKiB("VmRSS:");
    FILE* clear = fopen("/proc/self/clear_refs", "w");  // resets the peak to the current size
    if (clear != nullptr) {
        fputs("5", clear);
        fclose(clear);
    }
    for (auto _ : state) downloadOnce(browser);
    state.counters["rss_growth_KiB"] = static_cast<double>(statusKiB("VmHWM:") - before);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kPackageSize));
}
BENCHMARK(BM_PluginDownload_256MiB)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_WriteAndMd5_256MiB(benchmark::State& state) {
    const std::string& data = *package();
    unsigned char digest[16];
    for (auto _ : state) {
        char name[] = "/tmp/passway-baseline-XXXXXX";
        int fd = mkstemp(name);
        EVP_MD_CTX* md5 = EVP_MD_CTX_new();
        EVP_DigestInit_ex(md5, EVP_md5(), nullptr);
        for (size_t at = 0; at < data.size(); at += kPiece) {
            size_t n = std::min(kPiece, data.size() - at);
            if (write(fd, data.data() + at, n) < 0) state.SkipWithError("write failed");
            EVP_DigestUpdate(md5, data.data() + at, n);
        }
        EVP_DigestFinal_ex(md5, digest, nullptr);
        EVP_MD_CTX_free(md5);
        close(fd);
        unlink(name);
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kPackageSize));
}
BENCHMARK(BM_WriteAndMd5_256MiB)->Unit(benchmark::kMillisecond)->Iterations(3);
PASSWAY_RATIO("download 256 MiB vs write + OpenSSL MD5", "BM_PluginDownload_256MiB/iterations:3",
              "BM_WriteAndMd5_256MiB/iterations:3");

}  // namespace
