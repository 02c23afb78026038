// The agent record, the signed client data and the host name as the portal receives them.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <sched.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ClientData"
#include "DeviceInfo"
#include "Encoding"

namespace {

const auto text = [](const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); };

TEST(ClientData, TheFallbackRecordTheSignedDataAndTheHostName) {
    const char* agent =  // the fallback record, without a type or a version
        "<agent_info><type>standalone</type><version>1.0</version><platform>Win32</platform></agent_info>";
    const char* rows[][2] = {{nullptr, "1"}, {"", "1"}, {"t", nullptr}, {"t", ""}};  // type, version
    for (auto [type, version] : rows) EXPECT_STREQ(agent, formatDevInfo(type, version, true, {}, "", ""));
    // HMAC-MD5 with the prelogon key (tests/data/test-prelogon.key), as base64.
    EXPECT_EQ(
        "session=S1&device_info=<agent_info/>&agent_result=ok&token=T2&signature=dZ0P2deiyqRTSTTjSsXG0g==",
        text(CRFCBase64::Decode(formatClientData("S1", "<agent_info/>", "ok", "T2"))));
    // The host name as the device record carries it: in base64, without its terminating zero.
    char host[HOST_NAME_MAX + 1] = {};
    gethostname(host, sizeof host);
    EXPECT_EQ(host, text(CRFCBase64::Decode(SGetBase64UTF8HostName())));
    unsigned char small[2] = {'x', 'x'};
    unsigned long room = 1;  // without room for the name and its zero, the room needed comes back
    EXPECT_TRUE(!GetUTF8HostName(small, room) && room == strlen(host) + 1 && small[0] == 'x') << room;
    struct utsname system;
    ASSERT_EQ(0, uname(&system));
    UDeviceInfo device = UDeviceInfo::forThisMachine();
    EXPECT_EQ(system.machine, text(device.model));
    EXPECT_EQ(system.release, text(device.platformVersion));
}

// A host name as long as the system allows (64 bytes) is carried whole: a child of its own names its own
// host (root only).
TEST(ClientData, TheLongestHostNameIsCarriedWhole) {
    if (geteuid() != 0) GTEST_SKIP() << "naming a host of its own needs root";
    const std::string longest(HOST_NAME_MAX, 'h');
    pid_t child = fork();
    if (child == 0)
        _exit(unshare(CLONE_NEWUTS) == 0 && sethostname(longest.data(), longest.size()) == 0 &&
                      text(CRFCBase64::Decode(SGetBase64UTF8HostName())) == longest ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
}

}  // namespace
