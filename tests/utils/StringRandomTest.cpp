// CString against std::string over thousands of random operations on a pool of strings that share,
// lock and fork their buffers. Any difference in text or length after any step fails the test.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "String"
#include "TestSeed.h"

namespace {

constexpr int kPool = 6;
constexpr int kSteps = 5000;

std::string bytes(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

std::string modelReplace(const std::string& s, const std::string& from, const std::string& to) {
    std::string out;
    size_t pos = 0;
    for (size_t hit; (hit = s.find(from, pos)) != std::string::npos; pos = hit + from.size())
        out += s.substr(pos, hit - pos) + to;
    return out + s.substr(pos);
}

class Fuzzer {
public:
    explicit Fuzzer(uint32_t seed) : m_rng(seed), m_strings(kPool), m_models(kPool), m_locked(kPool, false) {}

    std::string randomText(int maxLength) {
        static const char alphabet[] = "ab \tAB.%\n";
        std::string s(pick(maxLength + 1), ' ');
        for (char& c : s) c = alphabet[pick(sizeof alphabet - 1)];
        return s;
    }

    int pick(int n) { return static_cast<int>(m_rng() % static_cast<uint32_t>(n)); }

    // Applies one random operation to the pool; returns its name for the failure message.
    const char* step() {
        int i = pick(kPool), j = pick(kPool);
        CString& s = m_strings[i];
        std::string& m = m_models[i];
        switch (pick(20)) {
            case 0: s = m_strings[j]; m = m_models[j]; return "assign";
            case 1: { CString copy(m_strings[j]); s = copy; m = m_models[j]; return "copy-construct"; }
            case 2: { std::string t = randomText(12); s = t.c_str(); m = t; return "assign text"; }
            case 3: { std::string t = randomText(5); s += t.c_str(); m += t; return "append text"; }
            case 4: s += m_strings[j]; m += m_models[j]; return "append string";
            case 5: { char c = "xy\0"[pick(3)]; s += c; if (c) m += c; return "append char"; }
            case 6: if (!m.empty()) { int k = pick(static_cast<int>(m.size())); s.SetAt(k, 'Z'); m[k] = 'Z'; } return "SetAt";
            case 7: { int n = s.Replace('a', 'q'); int e = 0; for (char& c : m) if (c == 'a') { c = 'q'; ++e; } EXPECT_EQ(e, n); return "Replace char"; }
            case 8: {
                std::string from = randomText(2), to = randomText(3);
                if (from.empty()) return "Replace empty";
                s.Replace(from.c_str(), to.c_str());
                m = modelReplace(m, from, to);
                return "Replace text";
            }
            case 9: { s.TrimLeft(); size_t k = 0; while (k < m.size() && isspace(static_cast<unsigned char>(m[k]))) ++k; m.erase(0, k); return "TrimLeft"; }
            case 10: { s.TrimRight(); while (!m.empty() && isspace(static_cast<unsigned char>(m.back()))) m.pop_back(); return "TrimRight"; }
            case 11: { s.MakeUpper(); for (char& c : m) c = static_cast<char>(toupper(static_cast<unsigned char>(c))); return "MakeUpper"; }
            case 12: { int f = pick(8) - 2, n = pick(8) - 2; s = m_strings[j].Mid(f, n);
                       const std::string& src = m_models[j]; int ff = f < 0 ? 0 : f, nn = n < 0 ? 0 : n;
                       m = ff > static_cast<int>(src.size()) ? "" : src.substr(ff, nn); return "Mid"; }
            case 13: { int n = pick(8) - 2; s = m_strings[j].Left(n); m = m_models[j].substr(0, n < 0 ? 0 : n); return "Left"; }
            case 14: { int n = pick(8) - 2; s = m_strings[j].Right(n); const std::string& src = m_models[j];
                       size_t k = n < 0 ? 0 : std::min<size_t>(n, src.size()); m = src.substr(src.size() - k); return "Right"; }
            case 15: {
                int extra = pick(6);
                char* p = s.GetBuffer(static_cast<int>(m.size()) + extra);
                for (int k = 0; k < extra; ++k) p[m.size() + k] = 'g';
                s.ReleaseBuffer(static_cast<int>(m.size()) + extra);
                m.append(extra, 'g');
                return "GetBuffer/ReleaseBuffer";
            }
            case 16: if (m_locked[i]) s.UnlockBuffer(); else s.LockBuffer(); m_locked[i] = !m_locked[i]; return "Lock/Unlock";
            case 17: s.Empty(); m.clear(); return "Empty";
            case 18: { s.Format("%s|%d", static_cast<const char*>(m_strings[j]), i); m = m_models[j] + "|" + std::to_string(i); return "Format"; }
            default: s.FreeExtra(); return "FreeExtra";
        }
    }

    void check(const char* operation, int stepNumber) {
        for (int k = 0; k < kPool; ++k) {
            ASSERT_EQ(m_models[k], bytes(m_strings[k])) << "string " << k << " after step " << stepNumber << " ("
                                                        << operation << ")";
            ASSERT_EQ(static_cast<int>(m_models[k].size()), m_strings[k].GetLength());
            ASSERT_EQ('\0', static_cast<const char*>(m_strings[k])[m_strings[k].GetLength()]);
        }
    }

private:
    std::mt19937 m_rng;
    std::vector<CString> m_strings;
    std::vector<std::string> m_models;
    std::vector<bool> m_locked;
};

TEST(CStringRandom, MatchesStdStringThroughSharingAndLocking) {
    Fuzzer fuzzer(testSeed());
    for (int n = 0; n < kSteps; ++n) {
        const char* operation = fuzzer.step();
        fuzzer.check(operation, n);
        if (HasFatalFailure()) break;
    }
}

}  // namespace
