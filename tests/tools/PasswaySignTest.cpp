// passway-sign as an operator uses it: what it prints, its exit codes, and that the plug-in's check
// accepts what it signs.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <unistd.h>

#include "Encoding"
#include "RunCommand.h"
#include "Signature"
#include "TestSigning.h"

namespace {

// A package file of `size` bytes that goes away with the test.
class Package {
public:
    explicit Package(size_t size) {
        char name[] = "/tmp/passway-package-XXXXXX";
        int fd = mkstemp(name);
        m_path = name;
        std::string chunk(1 << 16, '\0');
        for (size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 31);
        for (size_t done = 0; done < size; done += chunk.size())
            EXPECT_GT(write(fd, chunk.data(), std::min(chunk.size(), size - done)), 0);
        close(fd);
    }
    ~Package() { unlink(m_path.c_str()); }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

std::string digestOf(const std::string& path) {
    FILE* f = fopen(path.c_str(), "rb");
    std::string data;
    char buffer[65536];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) data.append(buffer, n);
    fclose(f);
    return opensslMd5(data);
}

CommandResult sign(const std::string& key, const std::string& package) {
    return runCommand({PASSWAY_SIGN, testDataPath(key), package});
}

CommandResult verify(const std::string& cert, const std::string& package, const std::string& signature) {
    return runCommand({PASSWAY_SIGN, "--verify", testDataPath(cert), package, signature});
}

TEST(PasswaySign, SignsWhatThePluginAcceptsAndVerifiesIt) {
    Package package(3 * 65536 + 17);  // several reads, and a partial one
    CommandResult signed_ = sign("test-signing-key.pem", package.path());
    ASSERT_EQ(0, signed_.exitCode) << signed_.err;
    ASSERT_EQ('\n', signed_.out.back());
    std::string signature = signed_.out.substr(0, signed_.out.size() - 1);
    EXPECT_EQ(344u, signature.size()) << "base64 of 256 bytes";

    EXPECT_TRUE(CSignature().VerifySignature(signature.c_str(), opensslBase64(digestOf(package.path())).c_str()));
    EXPECT_EQ(0, verify("test-signing-cert.pem", package.path(), signature).exitCode);

    CommandResult wrongKey = verify("test-other-cert.pem", package.path(), signature);
    EXPECT_EQ(1, wrongKey.exitCode);
    EXPECT_NE(std::string::npos, wrongKey.err.find("does not verify"));
    Package other(10);
    EXPECT_EQ(1, verify("test-signing-cert.pem", other.path(), signature).exitCode);
    EXPECT_EQ(1, verify("test-signing-cert.pem", package.path(), "").exitCode);
}

TEST(PasswaySign, EmptyPackageStillSigns) {
    Package empty(0);
    CommandResult r = sign("test-signing-key.pem", empty.path());
    EXPECT_EQ(0, r.exitCode) << r.err;
}

TEST(PasswaySign, BadInputsAreNamedErrorsWithExitCodes) {
    Package package(100);
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        const char* says;
    };
    const Case cases[] = {
        {{}, 2, "usage: passway-sign KEY.pem PACKAGE"},
        {{"--verify", "a", "b"}, 2, "--verify takes CERT.pem, PACKAGE and SIGNATURE"},
        {{"--help"}, 0, ""},
        {{"/nonexistent.pem", package.path()}, 3, "cannot open private key '/nonexistent.pem'"},
        {{testDataPath("test-signing-key.pem"), "/nonexistent"}, 3, "cannot open package '/nonexistent'"},
        {{testDataPath("test-signing-key.pem"), "/tmp"}, 3, "cannot read package '/tmp'"},
        {{testDataPath("test-ec-key.pem"), package.path()}, 3, "is not an RSA key"},
        {{testDataPath("test-signing-cert.pem"), package.path()}, 3, "holds no private key"},
        {{"--verify", testDataPath("test-signing-key.pem"), package.path(), "AAAA"}, 3, "holds no certificate or public key"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> argv{PASSWAY_SIGN};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        CommandResult r = runCommand(argv);
        EXPECT_EQ(c.exitCode, r.exitCode) << c.says;
        EXPECT_NE(std::string::npos, (r.err + r.out).find(c.says)) << r.err;
    }
}

}  // namespace
