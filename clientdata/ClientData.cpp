// The agent-information record and the signed client data.
#include "ClientData"

#include "Encoding"
#include "HMAC"
#include "MD5"
#include "PasswayConfig.h"
#include "Platform"
#include "StrFormat"

namespace {

const unsigned char prelogon_preshared_key[64] = {PASSWAY_PRELOGON_KEY_BYTES};

const char kAgentInfo[] =
    "<agent_info><type>%s</type><version>%s</version><platform>%s</platform><cpu>%s</cpu>"
    "<javascript>%s</javascript><activex>%s</activex><plugin>%s</plugin><landinguri>%s</landinguri>%s"
    "</agent_info>";
const char kFallbackAgentInfo[] =
    "<agent_info><type>standalone</type><version>1.0</version><platform>Win32</platform></agent_info>";

}  // namespace

CString formatDevInfo(const char* type, const char* version, const UDeviceInfo& device, const char* landingUri) {
    CString record;
    record.Format(kAgentInfo, type, version, GetOSShortName(), GetProcessArchitecture(), "true", "false", "true",
                  landingUri, static_cast<const char*>(device.toXml()));
    return record;
}

CString formatDevInfo(const char* type, const char* version, bool javascript, bool* activex, const char* plugin,
                      const char* landingUri) {
    if (type == nullptr || *type == '\0' || version == nullptr || *version == '\0') return CString(kFallbackAgentInfo);
    CString record;
    record.Format(kAgentInfo, type, version, GetOSShortName(), GetProcessArchitecture(),
                  javascript ? "true" : "false", activex != nullptr && *activex ? "true" : "false", plugin, landingUri,
                  "");
    return record;
}

CString signMessage(const char* message, const char* /*token*/) {
    CMD5 md5;
    CHMAC mac(&md5, prelogon_preshared_key, sizeof prelogon_preshared_key);
    CString text(message);
    unsigned char digest[16];
    mac.Sign(reinterpret_cast<unsigned char*>(const_cast<char*>(static_cast<const char*>(text))), text.GetLength(),
             digest, sizeof digest);
    CString signature;
    CRFCBase64::Encode(digest, sizeof digest, signature);
    return signature;
}

CString formatClientData(const char* session, const char* deviceInfo, const char* agentResult, const char* token) {
    CString text;
    text.Format("session=%s&device_info=%s&agent_result=%s&token=%s", session, deviceInfo, agentResult, token);
    text += "&signature=" + signMessage(text, token);
    CString encoded;
    CRFCBase64::Encode(reinterpret_cast<const unsigned char*>(static_cast<const char*>(text)), text.GetLength(),
                       encoded);
    return encoded;
}
