// passway-sign as an operator uses it: what it prints, its exit codes, and that the plug-in's check
// accepts what it signs.
#include <gtest/gtest.h>

#include "RunCommand.h"
#include "Signature"
#include "TempHome.h"
#include "TestSigning.h"

namespace {

TEST(PasswaySign, SignsWhatThePluginAcceptsAndNamesEveryBadInput) {
    TempHome home;
    const std::string package = home.path() + "/package", other = home.path() + "/other";
    const std::string key = testDataPath("test-signing-key.pem"), cert = testDataPath("test-signing-cert.pem");
    std::string content(3 * 65536 + 17, 'p');  // several reads, the last one partial
    content[70000] = 'q';
    writeFile(package, content);
    writeFile(other, "p");
    CommandResult signing = runCommand({PASSWAY_SIGN, key, package});
    ASSERT_EQ(0, signing.exitCode) << signing.err;
    std::string signature = signing.out.substr(0, signing.out.find('\n'));
    EXPECT_EQ(signature + "\n", signing.out);
    EXPECT_TRUE(CSignature().VerifySignature(signature.c_str(), opensslBase64(opensslMd5(content)).c_str()));
    const struct { std::vector<std::string> args; int exitCode; const char* says; } rows[] = {
        {{"--verify", cert, package, signature}, 0, "verified: "},
        {{"--verify", testDataPath("test-other-cert.pem"), package, signature}, 1, "does not verify"},
        {{"--verify", cert, other, signature}, 1, "does not verify"},
        {{"--verify", cert, package, ""}, 1, "does not verify"},
        {{key, "/dev/null"}, 0, "="},
        {{"--help"}, 0, "usage: passway-sign KEY.pem PACKAGE"},
        {{}, 2, "usage: passway-sign KEY.pem PACKAGE"},
        {{"--verify", "a", "b"}, 2, "--verify takes CERT.pem, PACKAGE and SIGNATURE"},
        {{"/nonexistent.pem", package}, 3, "cannot open private key '/nonexistent.pem'"},
        {{key, "/nonexistent"}, 3, "cannot open package '/nonexistent'"},
        {{key, "/tmp"}, 3, "cannot read package '/tmp'"},
        {{testDataPath("test-ec-key.pem"), package}, 3, "is not an RSA key"},
        {{cert, package}, 3, "holds no private key"},
        {{"--verify", key, package, "AAAA"}, 3, "holds no certificate or public key"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> argv{PASSWAY_SIGN};
        argv.insert(argv.end(), row.args.begin(), row.args.end());
        CommandResult r = runCommand(argv);
        EXPECT_EQ(row.exitCode, r.exitCode) << row.says;
        EXPECT_NE(std::string::npos, (r.err + r.out).find(row.says)) << r.err;
    }
}

}  // namespace
