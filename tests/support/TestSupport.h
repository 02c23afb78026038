// Small helpers shared by every suite: a capturing log, failing allocations, a null text, running a
// program, a temporary HOME and files, and signing with the test keys of tests/data.
#ifndef PASSWAY_TESTS_TESTSUPPORT_H
#define PASSWAY_TESTS_TESTSUPPORT_H

#include <optional>
#include <string>
#include <vector>

#include "AutoMemory"
#include "ErrorLog"

// A log that keeps every line handed to its sink, for tests that check what would be written.
class CapturingLog : public UObject, public IUErrorLog {
public:
    explicit CapturingLog(int level = 1) { m_logLevel = level; }

    int Open(const char*, const char*) override { return 0; }
    int Close() override { return 0; }
    int WriteLogByte(unsigned char*, unsigned int) override { return 0; }
    int WriteLogByte(const char*, unsigned char*, unsigned int) override { return 0; }
    const char* GetLogName() override { return "capture"; }
    int WriteLogItem(const char* line) override {
        m_lines.emplace_back(line != nullptr ? line : "");
        m_text += m_lines.back();
        return static_cast<int>(m_lines.back().size());
    }

    const std::vector<std::string>& lines() const { return m_lines; }
    // All lines joined, for substring checks.
    const std::string& text() const { return m_text; }
    void clear() { m_lines.clear(), m_text.clear(); }  // the fuzz targets' log keeps one input's lines

private:
    std::vector<std::string> m_lines;
    std::string m_text;
};

// Installs a CapturingLog as the process log for one scope and puts the previous one back.
class ScopedCapturingLog : public CapturingLog {
public:
    explicit ScopedCapturingLog(int level = 1) : CapturingLog(level) { errorLog = this; }
    ~ScopedCapturingLog() override { errorLog = m_previous; }

private:
    IUErrorLog* m_previous = errorLog;
};

// Makes every AutoMemory allocation fail for one scope, to reach the out-of-memory paths.
class FailingAllocation {
public:
    FailingAllocation() : m_saved(g_autoMemoryMalloc) {
        g_autoMemoryMalloc = [](size_t) -> void* { return nullptr; };
    }
    ~FailingAllocation() { g_autoMemoryMalloc = m_saved; }

private:
    UMallocFunction m_saved;
};

// A null text the compiler cannot see through, for calls that must be tested with a null format.
inline const char* nullText() {
    static const char* volatile none = nullptr;
    return none;
}

struct CommandResult {
    int exitCode = -1;  // the exit status, or -1 when the program did not exit normally
    std::string out;
};
// Runs `argv[0]` with the arguments (no shell), `input` on its standard input; collects its standard output.
CommandResult runCommand(const std::vector<std::string>& argv, const std::string& input = "");

// A fresh temporary folder set as HOME for one scope; removed with everything in it afterwards.
class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::string& path() const { return m_path; }
    // path() + "/.Orvane" + "/" + name
    std::string inFolder(const std::string& name) const { return m_path + "/.Orvane/" + name; }

private:
    std::string m_path;
    std::optional<std::string> m_savedHome;
};

// The whole content of a file ("" when it cannot be read).
std::string readFile(const std::string& path);
// Replaces a file's content; creates missing folders on the way.
void writeFile(const std::string& path, const std::string& content);

// Path of a file in tests/data.
std::string testDataPath(const std::string& name);
// Raw RSA PKCS #1 v1.5 signature (DigestInfo form) of `digest` with the PEM key in tests/data/`keyFile`;
// `digestName` is "MD5" or "SHA1". Empty on failure.
std::string signDigest(const std::string& keyFile, const std::string& digest, const char* digestName = "MD5");
// MD5 of `data` computed by OpenSSL, 16 raw bytes.
std::string opensslMd5(const std::string& data);
// Base64 of raw bytes, by OpenSSL.
std::string opensslBase64(const std::string& bytes);
// The base64 signature of `body`'s MD5 with the key in tests/data/`keyFile`, as a portal hands it out.
std::string signatureOf(const std::string& body, const std::string& keyFile = "test-signing-key.pem");

#endif
