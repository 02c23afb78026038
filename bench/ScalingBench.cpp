// How the time of each path that takes input from a page or from the local service grows with the
// input's size: every path runs at a size n and at 4n, and the table at the end shows t(4n)/t(n) by the
// wall clock, with the benchmark thread's CPU time beside it. Linear growth gives about 4; above 6 is
// marked. Quadratic growth gives about 16. A ratio between 6 and 8 may also be a step rather than a
// trend (the text outgrowing the 2 MiB L2 cache, or glibc's malloc handing large buffers back to the
// system and faulting them in again): the same path run at larger sizes (kCases) tells them apart.
//
//  1a/1b  the element's parameters: NPP_New + NPP_Destroy of an element with only plain parameters
//         (nothing is launched, only the parameters are read), called straight through the plug-in's
//         table; by count (n parameters of 1 KiB) and by length (64 parameters of n bytes).
//  2      a service reply relayed to the page: a _probevpn element against a FakeService on
//         127.0.0.1:44444 whose ?INFO reply has n bytes, pumped until the page's c_addcomm has it.
//  3      a page answer relayed to the service: the test root gets the fake service installed (as the
//         plug-in tests do), a last_param element launches it, and the page answers each c_addcomm
//         with n bytes. Timed: the page call, from the answer's stream into the plug-in until the
//         plug-in has handed the ?<answer>&z=<seq> request to the browser. Not timed: that request's
//         trip to the service and its short reply (the fake service's reading is not the plug-in's).
//  4      the package stream: n MiB through NPP_NewStream / NPP_Write (64000-byte pieces) /
//         NPP_DestroyStream, as bench_download does; a bad signature then removes the file.
//  5      a log line: PluginWriteLog of an n-byte line into a temporary HOME's log.
//
// Replies and answers reach the plug-in in the fake browser's 4096-byte pieces. Each time is the median
// of five repetitions. Temporary HOME folders are removed as each benchmark ends; the launched service
// is stopped after path 3 and, should anything be left, at exit.
#include <benchmark/benchmark.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "FakeBrowser.h"
#include "FakeService.h"
#include "PluginLog.h"
#include "TestSupport.h"

namespace {

constexpr int64_t KiB = 1024;
constexpr int64_t MiB = 1024 * KiB;
constexpr int kRepetitions = 5;

const std::string kRoot = PASSWAY_TEST_ROOT;
const std::string kPidFile = kRoot + "var/run/tunvo.pid";
const std::string kRequestLog = kRoot + "var/run/requests.log";

// n bytes of letters: no zero byte, quote or header break that the paths would treat specially.
std::string letters(size_t n) {
    std::string text(n, 'a');
    for (size_t i = 0; i < n; ++i) text[i] = static_cast<char>('a' + i % 26);
    return text;
}

// ---- 1: the element's parameters ------------------------------------------------------------------

// NPP_New then NPP_Destroy of one element, through the plug-in's table as a browser calls them.
void runElements(benchmark::State& state, int count, size_t valueLength) {
    TempHome home;
    FakeBrowser browser(PASSWAY_TEST_PLUGIN);
    browser.initialize();
    std::vector<std::string> names, values;
    for (int i = 0; i < count; ++i) {
        names.push_back("p" + std::to_string(i));  // no name the plug-in acts on
        values.push_back(letters(valueLength));
    }
    std::vector<char*> argn, argv;
    for (int i = 0; i < count; ++i) {
        argn.push_back(&names[i][0]);
        argv.push_back(&values[i][0]);
    }
    char type[] = "application/x-orvane-sslvpn";
    for (auto _ : state) {
        NPP_t element{};
        NPError created = browser.plugin().newp(type, &element, NP_EMBED, static_cast<int16_t>(count), argn.data(),
                                                argv.data(), nullptr);
        browser.plugin().destroy(&element, nullptr);
        if (created != NPERR_NO_ERROR) {
            state.SkipWithError("NPP_New failed");
            break;
        }
    }
}

void BM_ParametersByCount(benchmark::State& state) { runElements(state, static_cast<int>(state.range(0)), KiB); }
void BM_ParametersByLength(benchmark::State& state) { runElements(state, 64, static_cast<size_t>(state.range(0))); }

// ---- 2: a service reply to the page -------------------------------------------------------------------

void BM_ServiceReplyToPage(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    TempHome home;
    FakeService service;
    if (!service.listening()) {
        state.SkipWithError("127.0.0.1:44444 is taken");
        return;
    }
    const std::string reply = letters(n);
    service.setReply([&reply](const std::string&) { return reply; });
    FakeBrowser browser(PASSWAY_TEST_PLUGIN);
    browser.initialize();
    size_t received = 0;
    browser.page = [&received](const std::string& function, const std::string& argument) {
        if (function == "c_addcomm") received = argument.size();
        return std::optional<std::string>();
    };
    for (auto _ : state) {
        received = 0;
        FakeBrowser::Instance* probe = browser.create({{"_probevpn", "1"}});
        browser.pump();
        browser.destroy(probe);
        if (received != n) {
            state.SkipWithError("the page's c_addcomm did not get the whole reply");
            break;
        }
    }
}

// ---- 3: a page answer to the service ------------------------------------------------------------------

// The pid in the launched service's pid file, 0 when there is none.
int servicePid() {
    FILE* f = fopen(kPidFile.c_str(), "r");
    int pid = 0;
    if (f != nullptr) {
        if (fscanf(f, "%d", &pid) != 1) pid = 0;
        fclose(f);
    }
    return pid;
}

// Waits up to `seconds` for the service to remove its pid file; true when it did.
bool serviceGone(double seconds) {
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (servicePid() != 0) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// Stops a service this program launched and left running (at exit, or before installing).
void stopService() {
    int pid = servicePid();
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    if (!serviceGone(2.0)) {
        kill(pid, SIGKILL);
        unlink(kPidFile.c_str());
    }
}

// The fake service as the test root's current client (as the plug-in tests install it), once.
bool installClient() {
    static bool installed = [] {
        stopService();
        writeFile(kRoot + "etc/version.txt", "7135.2016.429.1");
        writeFile(kRequestLog, "");
        std::string service = kRoot + "tunvo_x86_64";
        if (runCommand({"/bin/cp", FAKE_SERVICE, service}).exitCode != 0) return false;
        if (chmod(service.c_str(), 04755) != 0) return false;
        atexit(stopService);
        return true;
    }();
    return installed;
}

void BM_PageAnswerToService(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    if (!installClient()) {
        state.SkipWithError("cannot install the fake service at the test root");
        return;
    }
    TempHome home;
    FakeBrowser browser(PASSWAY_TEST_PLUGIN);
    browser.initialize();
    // "say=ok" makes the fake service answer "ok", so that only the answer's way is large.
    const std::string answer = "say=ok&" + letters(n - 7);
    browser.page = [&answer](const std::string& function, const std::string&) {
        return function == "c_addcomm" ? std::optional<std::string>(answer) : std::nullopt;
    };
    const std::string serviceRequest = "http://127.0.0.1:44444/vpn.php?" + answer + "&z=";
    const std::string pageCall = "javascript:c_addcomm('ok')";
    FakeBrowser::Instance* relay = browser.create({{"last_param", "1"}});
    browser.pump(1);  // ?CONNECT; the page's c_addcomm('connected') is queued
    if (browser.calls().empty() || browser.calls().back().url != "javascript:c_addcomm('connected')") {
        state.SkipWithError("the service did not start");
    } else {
        for (auto _ : state) {
            browser.pump(1);  // the page call: the answer into the plug-in, the service request out
            state.PauseTiming();
            bool handed = browser.calls().back().url.compare(0, serviceRequest.size(), serviceRequest) == 0;
            browser.pump(1);  // the request to the service; its "ok" is queued for the page
            bool answered = browser.calls().back().url == pageCall;
            state.ResumeTiming();
            if (!handed || !answered) {
                state.SkipWithError("the answer did not reach the service");
                break;
            }
        }
    }
    browser.destroy(relay);  // stops the service it launched
    if (!serviceGone(3.0)) stopService();
    writeFile(kRequestLog, "");  // every answer went into it
}

// ---- 4: the package stream ------------------------------------------------------------------------------

std::shared_ptr<const std::string> package(size_t size) {
    static std::map<size_t, std::shared_ptr<const std::string>> made;
    auto& bytes = made[size];
    if (!bytes) {
        auto data = std::make_shared<std::string>(size, '\0');
        for (size_t i = 0; i < size; ++i) (*data)[i] = static_cast<char>(i * 2654435761u >> 24);
        bytes = data;
    }
    return bytes;
}

void BM_PackageStream(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const char url[] = "http://portal.test/client/package";
    auto bytes = package(n);
    TempHome home;
    FakeBrowser browser(PASSWAY_TEST_PLUGIN);
    browser.initialize();
    browser.quiet = true;  // the progress calls to the page are dropped, as in bench_download
    browser.chunkSize = 64000;
    for (auto _ : state) {
        browser.serveShared(url, "application/x-tar", bytes);
        FakeBrowser::Instance* download =
            browser.create({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                            {"tunvosize", std::to_string(n)}, {"signature", "not-signed"}});
        browser.pump();
        browser.destroy(download);
    }
    std::string log = readFile(home.inFolder("tunvo_plugin.log")) + readFile(home.inFolder("tunvo_plugin.log.bak"));
    if (log.find("Received complete file") == std::string::npos) state.SkipWithError("no download completed");
}

// ---- 5: a log line ----------------------------------------------------------------------------------------

void BM_LogLine(benchmark::State& state) {
    const std::string text = letters(static_cast<size_t>(state.range(0)));
    TempHome home;
    PluginOpenLog();
    for (auto _ : state) PluginWriteLog(2, "[sendToJavaScript] Data from server ='%s'\n", text.c_str());
    PluginCloseLog();
}

// ---- the cases and the table ----------------------------------------------------------------------------

struct ScalingCase {
    const char* path;  // the table's label
    const char* name;  // the benchmark's name
    void (*body)(benchmark::State&);
    int64_t n;
    bool isCount;        // n counts parameters rather than bytes
    int64_t iterations;  // per repetition; 0 lets the library choose
};

// Paths 2 and 3 keep every request's URL in the fake browser's call record, and path 3 spends most of
// its wall time outside the timer: they run a fixed number of times.
const ScalingCase kCases[] = {
    {"1a parameters, count (1 KiB values)", "BM_ParametersByCount", BM_ParametersByCount, 500, true, 0},
    {"1b parameters, length (64 values)", "BM_ParametersByLength", BM_ParametersByLength, 16 * KiB, false, 0},
    {"2  service reply -> page", "BM_ServiceReplyToPage", BM_ServiceReplyToPage, 1 * MiB, false, 8},
    {"3  page answer -> service", "BM_PageAnswerToService", BM_PageAnswerToService, 1 * MiB, false, 4},
    {"4  package stream", "BM_PackageStream", BM_PackageStream, 16 * MiB, false, 0},
    {"5  log line", "BM_LogLine", BM_LogLine, 16 * KiB, false, 0},
};

std::string sizeText(int64_t n, bool isCount) {
    if (isCount) return std::to_string(n);
    if (n % MiB == 0) return std::to_string(n / MiB) + " MiB";
    if (n % KiB == 0) return std::to_string(n / KiB) + " KiB";
    return std::to_string(n) + " B";
}

std::string duration(double seconds) {
    char text[32];
    if (seconds >= 1.0)
        snprintf(text, sizeof text, "%.2f s", seconds);
    else if (seconds >= 1e-3)
        snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    else
        snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
    return text;
}

// The median time per iteration of one benchmark: wall clock and the benchmark thread's CPU time.
struct Times {
    double real = -1;
    double cpu = -1;
};

// Prints as usual and keeps each benchmark's median times per iteration, by "name/arg".
class ScalingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.iterations <= 0) continue;
            std::string key = run.run_name.function_name + "/" + run.run_name.args;
            double iterations = static_cast<double>(run.iterations);
            Times times{run.real_accumulated_time / iterations, run.cpu_accumulated_time / iterations};
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median") m_median[key] = times;
            } else {
                m_single[key] = times;  // stands in when no median is reported
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // t(4n)/t(n) by the wall clock; the CPU column tells work from waiting (the reply path's service
    // thread is not in it).
    void printTable() const {
        printf("\n%-38s %8s %11s %11s %11s %8s\n", "path", "size n", "t(n)", "t(4n)", "t(4n)/t(n)", "cpu");
        for (const ScalingCase& c : kCases) {
            Times small = times(c.name, c.n), large = times(c.name, 4 * c.n);
            std::string size = sizeText(c.n, c.isCount);
            if (small.real <= 0 || large.real <= 0) {
                printf("%-38s %8s %11s %11s %11s\n", c.path, size.c_str(), "-", "-", "not run");
                continue;
            }
            double ratio = large.real / small.real;
            printf("%-38s %8s %11s %11s %11.2f %8.2f%s\n", c.path, size.c_str(), duration(small.real).c_str(),
                   duration(large.real).c_str(), ratio, small.cpu > 0 ? large.cpu / small.cpu : 0.0,
                   ratio > 6 ? "  above 6" : "");
        }
    }

private:
    Times times(const std::string& name, int64_t n) const {
        std::string key = name + "/" + std::to_string(n);
        auto median = m_median.find(key);
        if (median != m_median.end()) return median->second;
        auto single = m_single.find(key);
        return single != m_single.end() ? single->second : Times();
    }

    std::map<std::string, Times> m_median, m_single;
};

}  // namespace

int main(int argc, char** argv) {
    for (const ScalingCase& c : kCases) {
        benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark(c.name, c.body);
        b->Arg(c.n)->Arg(4 * c.n)->Repetitions(kRepetitions)->ReportAggregatesOnly(true)->UseRealTime();
        b->Unit(benchmark::kMicrosecond);
        if (c.iterations > 0) b->Iterations(c.iterations);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    ScalingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printTable();
    benchmark::Shutdown();
    return 0;
}
