// Runs the registered benchmarks, then prints each subject's speed relative to its baseline.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

#include "Ratio.h"

std::vector<RatioPair>& ratioPairs() {
    static std::vector<RatioPair> pairs;
    return pairs;
}

namespace {

// Keeps the time per iteration of every run while printing as usual.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (!run.error_occurred && run.iterations > 0)
                m_seconds[run.benchmark_name()] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() const {
        printf("\n%-44s %14s %14s %8s\n", "subject vs baseline", "subject", "baseline", "ratio");
        for (const RatioPair& pair : ratioPairs()) {
            auto subject = m_seconds.find(pair.subject);
            auto baseline = m_seconds.find(pair.baseline);
            if (subject == m_seconds.end() || baseline == m_seconds.end()) continue;
            printf("%-44s %12.1f%s %12.1f%s %7.2fx\n", pair.label.c_str(), subject->second, "ns",
                   baseline->second, "ns", baseline->second / subject->second);
        }
    }

private:
    std::map<std::string, double> m_seconds;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    return 0;
}
