// passway-sign as an operator uses it: the plug-in's check accepts what it signs; its exit codes.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "Signature"

namespace {

TEST(PasswaySign, SignsWhatThePluginAcceptsAndExitsByOutcome) {
    TempHome home;
    const std::string package = home.path() + "/package", key = testDataPath("test-signing-key.pem");
    writeFile(package, std::string(3 * 65536 + 17, 'p'));  // several reads, the last one partial
    std::string signature = runCommand({PASSWAY_SIGN, key, package}).out;
    EXPECT_TRUE(CSignature().VerifySignature(signature.c_str(), opensslBase64(opensslMd5(readFile(package))).c_str()));
    const std::vector<std::string> rows[] = {  // 0 signed or verified, 1 not verified, 2 usage, 3 unusable file
        {"0", "--verify", testDataPath("test-signing-cert.pem"), package, signature},
        {"1", "--verify", testDataPath("test-other-cert.pem"), package, signature},
        {"0", key, "/dev/null"},
        {"2"},
        {"3", "/nonexistent.pem", package},
        {"3", key, "/tmp"},
        {"3", testDataPath("test-ec-key.pem"), package},
    };
    for (std::vector<std::string> row : rows) {
        int exitCode = std::stoi(row[0]);
        row[0] = PASSWAY_SIGN;
        EXPECT_EQ(exitCode, runCommand(row).exitCode) << ::testing::PrintToString(row);
    }
}

}  // namespace
