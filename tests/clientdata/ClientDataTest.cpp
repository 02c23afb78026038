// The agent record and the signed client data as the portal receives them.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdio>
#include <string>
#include <unistd.h>

#include "ClientData"
#include "Encoding"
#include "TestSigning.h"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

TEST(FormatDevInfo, FullRecordWithDeviceElementsInOrder) {
    UDeviceInfo device;
    device.model = "m";
    device.platformVersion = "6.1";
    device.macAddress = "00:11";
    device.hostname = "host%1";
    device.jailbreak = "false";
    EXPECT_EQ("<agent_info><type>plugin</type><version>7135.2016.429.1</version><platform>Linux</platform>"
              "<cpu>x64</cpu><javascript>true</javascript><activex>false</activex><plugin>true</plugin>"
              "<landinguri>/portal?a=1&b=<2></landinguri><model>m</model><platform_version>6.1</platform_version>"
              "<imei></imei><mac_address>00:11</mac_address><unique_id></unique_id><serial_number></serial_number>"
              "<vendor_data></vendor_data><app_id></app_id><app_version></app_version><hostname>host%1</hostname>"
              "<jailbreak>false</jailbreak></agent_info>",
              text(formatDevInfo("plugin", "7135.2016.429.1", device, "/portal?a=1&b=<2>")))
        << "values go in as they are, unescaped";
}

TEST(FormatDevInfo, ShortRecordAndItsFallback) {
    bool activex = true;
    EXPECT_EQ("<agent_info><type>t</type><version>1</version><platform>Linux</platform><cpu>x64</cpu>"
              "<javascript>false</javascript><activex>true</activex><plugin>(null)</plugin>"
              "<landinguri>/</landinguri></agent_info>",
              text(formatDevInfo("t", "1", false, &activex, nullptr, "/")));
    const std::string fallback =
        "<agent_info><type>standalone</type><version>1.0</version><platform>Win32</platform></agent_info>";
    EXPECT_EQ(fallback, text(formatDevInfo(nullptr, "1", true, nullptr, "p", "/")));
    EXPECT_EQ(fallback, text(formatDevInfo("t", "", true, nullptr, "p", "/")));
}

std::string prelogonHmac(const std::string& message) {
    FILE* f = fopen(testDataPath("test-prelogon.key").c_str(), "rb");
    unsigned char key[64] = {};
    EXPECT_EQ(64u, fread(key, 1, 64, f));
    fclose(f);
    unsigned char mac[16];
    HMAC(EVP_md5(), key, 64, reinterpret_cast<const unsigned char*>(message.data()), message.size(), mac, nullptr);
    return opensslBase64(std::string(reinterpret_cast<char*>(mac), 16));
}

TEST(ClientData, SignedWithThePrelogonKeyAndWrappedInBase64) {
    std::string signature = text(signMessage("abc", "token"));
    EXPECT_EQ(24u, signature.size());
    EXPECT_EQ(prelogonHmac("abc"), signature);
    EXPECT_EQ(signature, text(signMessage("abc", "another token"))) << "the signature covers the message";

    std::string decoded = text(CRFCBase64::Decode(formatClientData("S1", "<agent_info/>", "ok", "T2")));
    const std::string body = "session=S1&device_info=<agent_info/>&agent_result=ok&token=T2";
    EXPECT_EQ(body + "&signature=" + prelogonHmac(body), decoded);
    EXPECT_EQ(0u, text(CRFCBase64::Decode(formatClientData(nullptr, "", "", ""))).find("session=(null)&"));
}

TEST(HostName, PlainAndBase64) {
    char expected[256] = {};
    gethostname(expected, sizeof expected - 1);
    unsigned char buffer[256];
    unsigned long length = sizeof buffer;
    ASSERT_TRUE(GetUTF8HostName(buffer, length));
    EXPECT_EQ(strlen(expected), length);
    EXPECT_STREQ(expected, reinterpret_cast<char*>(buffer));
    unsigned long tiny = 1;
    EXPECT_FALSE(GetUTF8HostName(buffer, tiny));
    EXPECT_EQ(strlen(expected) + 1, tiny) << "the room needed";
    EXPECT_EQ(opensslBase64(expected), text(SGetBase64UTF8HostName()));
    EXPECT_EQ(expected, text(UDeviceInfo::forThisMachine().hostname));
}

}  // namespace
