// passway-sign as an operator uses it: the plug-in's check accepts what it signs; its exit codes.
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "Signature"

namespace {

TEST(PasswaySign, SignsWhatThePluginAcceptsAndExitsByOutcome) {
    TempHome home;
    const std::string package = home.path() + "/package", key = testDataPath("test-signing-key.pem");
    writeFile(package, std::string(3 * 65536 + 1, 'p'));  // several reads, the last one of a single byte
    std::string signature = runCommand({PASSWAY_SIGN, key, package}).out;
    EXPECT_TRUE(CSignature().VerifySignature(signature.c_str(),
                                             opensslBase64(opensslMd5(readFile(package))).c_str()));
    // Exit codes: 0 signed or verified, 1 not verified, 2 usage, 3 unusable file.
    const std::pair<int, std::vector<std::string>> rows[] = {
        {0, {PASSWAY_SIGN, "--verify", testDataPath("test-signing-cert.pem"), package, signature}},
        {1, {PASSWAY_SIGN, "--verify", testDataPath("test-other-cert.pem"), package, signature}},
        {0, {PASSWAY_SIGN, key, "/dev/null"}},
        {2, {PASSWAY_SIGN}},
        {3, {PASSWAY_SIGN, "/nonexistent.pem", package}},
        {3, {PASSWAY_SIGN, key, "/tmp"}},
        {3, {PASSWAY_SIGN, testDataPath("test-ec-key.pem"), package}},
    };
    for (const auto& [exitCode, command] : rows)
        EXPECT_EQ(exitCode, runCommand(command).exitCode) << ::testing::PrintToString(command);
    EXPECT_EQ(0u, runCommand({PASSWAY_SIGN, "--help"}).out.find("usage: passway-sign")) << "asked for: on stdout";
    EXPECT_EQ("", runCommand({PASSWAY_SIGN}).out) << "after a problem: on stderr";
}

}  // namespace
