// Pairs a benchmark with the baseline it is measured against in the same run. After the run, the
// table prints, for each pair, the subject's speed as a multiple of the baseline's (above 1 = faster).
#ifndef PASSWAY_BENCH_RATIO_H
#define PASSWAY_BENCH_RATIO_H

#include <string>
#include <vector>

struct RatioPair {
    std::string label;
    std::string subject;   // benchmark name, as registered
    std::string baseline;  // benchmark name, as registered
};

std::vector<RatioPair>& ratioPairs();

// Registers a pair at static-initialisation time: PASSWAY_RATIO(label, subject, baseline).
struct RatioRegistration {
    RatioRegistration(const char* label, const char* subject, const char* baseline) {
        ratioPairs().push_back({label, subject, baseline});
    }
};
#define PASSWAY_RATIO_CAT2(a, b) a##b
#define PASSWAY_RATIO_CAT(a, b) PASSWAY_RATIO_CAT2(a, b)
#define PASSWAY_RATIO(label, subject, baseline) \
    static RatioRegistration PASSWAY_RATIO_CAT(ratio_, __LINE__)(label, subject, baseline)

#endif
