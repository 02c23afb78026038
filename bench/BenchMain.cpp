// Runs the registered benchmarks, then prints each subject's speed relative to its baseline.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>

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
        // With repetitions, the median of a benchmark's runs stands for it; otherwise its one run.
        for (const Run& run : runs) {
            if (run.error_occurred || run.iterations <= 0) continue;
            double perRun = run.real_accumulated_time / static_cast<double>(run.iterations);
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median") m_seconds[run.run_name.str()] = perRun;
            } else if (m_medians.count(run.run_name.str()) == 0) {
                m_seconds[run.run_name.str()] = perRun;
            }
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") m_medians.insert(run.run_name.str());
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() const {
        printf("\n%-44s %14s %14s %8s\n", "subject vs baseline (time per run)", "subject", "baseline", "ratio");
        for (const RatioPair& pair : ratioPairs()) {
            auto subject = m_seconds.find(pair.subject);
            auto baseline = m_seconds.find(pair.baseline);
            if (subject == m_seconds.end() || baseline == m_seconds.end()) continue;
            printf("%-44s %14s %14s %7.2fx\n", pair.label.c_str(), duration(subject->second).c_str(),
                   duration(baseline->second).c_str(), baseline->second / subject->second);
        }
    }

private:
    static std::string duration(double seconds) {
        char text[32];
        if (seconds >= 1e-3)
            snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
        else if (seconds >= 1e-6)
            snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
        else
            snprintf(text, sizeof text, "%.1f ns", seconds * 1e9);
        return text;
    }

    std::map<std::string, double> m_seconds;  // time per iteration
    std::set<std::string> m_medians;          // benchmarks whose time is a median
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
