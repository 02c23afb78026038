// The agent record and the signed client data as the portal receives them.
#include <gtest/gtest.h>

#include "ClientData"
#include "Encoding"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

TEST(ClientData, WithoutATypeOrVersionTheFallbackRecordAndSignedData) {
    for (auto [type, version] : {std::pair<const char*, const char*>{nullptr, "1"}, {"", "1"}, {"t", nullptr}, {"t", ""}})
        EXPECT_EQ("<agent_info><type>standalone</type><version>1.0</version><platform>Win32</platform></agent_info>",
                  text(formatDevInfo(type, version, true, nullptr, "p", "/")));
    // HMAC-MD5 with the prelogon key (tests/data/test-prelogon.key), as base64.
    EXPECT_EQ("session=S1&device_info=<agent_info/>&agent_result=ok&token=T2&signature=dZ0P2deiyqRTSTTjSsXG0g==",
              text(CRFCBase64::Decode(formatClientData("S1", "<agent_info/>", "ok", "T2"))));
}

TEST(HostName, WithItsTerminatingZero) {
    unsigned char buffer[256];
    unsigned long length = sizeof buffer;
    ASSERT_TRUE(GetUTF8HostName(buffer, length));
    EXPECT_EQ(strlen(reinterpret_cast<char*>(buffer)), length);
}

}  // namespace
