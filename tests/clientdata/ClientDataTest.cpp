// The agent record, the signed client data and the host name as the portal receives them.
#include <gtest/gtest.h>

#include "ClientData"
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
    std::string name = text(CRFCBase64::Decode(SGetBase64UTF8HostName()));
    EXPECT_TRUE(!name.empty() && name.find('\0') == std::string::npos) << name;
}

}  // namespace
