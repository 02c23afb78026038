// The agent record and the signed client data as the portal receives them.
#include <gtest/gtest.h>

#include <unistd.h>

#include "ClientData"
#include "Encoding"
#include "TestSigning.h"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

TEST(FormatDevInfo, RecordsHoldTheirValuesAsTheyAreAndWithoutATypeOrVersionTheFallback) {
    UDeviceInfo device;
    device.model = "m";
    device.macAddress = "00:11";
    device.hostname = "host%1";
    EXPECT_EQ("<agent_info><type>plugin</type><version>7.1</version><platform>Linux</platform><cpu>x64</cpu>"
              "<javascript>true</javascript><activex>false</activex><plugin>true</plugin><landinguri>/p?a=1&b=<2>"
              "</landinguri><model>m</model><platform_version></platform_version><imei></imei><mac_address>00:11"
              "</mac_address><unique_id></unique_id><serial_number></serial_number><vendor_data></vendor_data>"
              "<app_id></app_id><app_version></app_version><hostname>host%1</hostname><jailbreak></jailbreak>"
              "</agent_info>",
              text(formatDevInfo("plugin", "7.1", device, "/p?a=1&b=<2>")));
    bool activex = true;
    EXPECT_EQ("<agent_info><type>t</type><version>1</version><platform>Linux</platform><cpu>x64</cpu>"
              "<javascript>false</javascript><activex>true</activex><plugin>(null)</plugin>"
              "<landinguri>/</landinguri></agent_info>",
              text(formatDevInfo("t", "1", false, &activex, nullptr, "/")));
    for (auto [type, version] : {std::pair<const char*, const char*>{nullptr, "1"}, {"", "1"}, {"t", nullptr}, {"t", ""}})
        EXPECT_EQ("<agent_info><type>standalone</type><version>1.0</version><platform>Win32</platform></agent_info>",
                  text(formatDevInfo(type, version, true, nullptr, "p", "/")));
}

// HMAC-MD5 with the prelogon key (tests/data/test-prelogon.key), as base64; the token is not signed.
TEST(ClientData, SignedWithThePrelogonKeyAndWrappedInBase64) {
    EXPECT_EQ("nqP8zORtwrzD7Q++AsN8LQ==", text(signMessage("abc", "token")));
    EXPECT_EQ("nqP8zORtwrzD7Q++AsN8LQ==", text(signMessage("abc", "another token")));
    EXPECT_EQ("session=S1&device_info=<agent_info/>&agent_result=ok&token=T2&signature=dZ0P2deiyqRTSTTjSsXG0g==",
              text(CRFCBase64::Decode(formatClientData("S1", "<agent_info/>", "ok", "T2"))));
    EXPECT_EQ(0u, text(CRFCBase64::Decode(formatClientData(nullptr, "", "", ""))).find("session=(null)&"));
}

TEST(HostName, PlainAndBase64) {
    char expected[256] = {};
    gethostname(expected, sizeof expected - 1);
    unsigned char buffer[256];
    unsigned long length = sizeof buffer, tiny = 1;
    ASSERT_TRUE(GetUTF8HostName(buffer, length));
    EXPECT_EQ(std::string(expected) + '\0', std::string(reinterpret_cast<char*>(buffer), length + 1));
    EXPECT_FALSE(GetUTF8HostName(buffer, tiny));
    EXPECT_EQ(strlen(expected) + 1, tiny) << "the room needed";
    EXPECT_EQ(opensslBase64(expected), text(SGetBase64UTF8HostName()));
    EXPECT_EQ(expected, text(UDeviceInfo::forThisMachine().hostname));
}

}  // namespace
