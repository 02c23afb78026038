// UDeviceInfo and the host name helpers.
#include "DeviceInfo"

#include <climits>
#include <cstdio>
#include <cstring>
#include <sys/utsname.h>
#include <unistd.h>

#include "Encoding"
#include "StrFormat"

UDeviceInfo UDeviceInfo::forThisMachine() {
    UDeviceInfo device;
    struct utsname system;
    if (uname(&system) == 0) {
        device.model = system.machine;
        device.platformVersion = system.release;
    }
    unsigned char name[HOST_NAME_MAX + 1];
    unsigned long length = sizeof name;
    if (GetUTF8HostName(name, length)) device.hostname = reinterpret_cast<const char*>(name);
    if (FILE* f = fopen("/etc/machine-id", "r")) {
        char id[64] = {};
        if (fgets(id, sizeof id, f) != nullptr) {
            device.uniqueId = id;
            device.uniqueId.TrimRight();
        }
        fclose(f);
    }
    device.jailbreak = "false";
    return device;
}

CString UDeviceInfo::toXml() const {
    CString xml;
    xml += StrFormat("<model>%1</model>").arg(model).str();
    xml += StrFormat("<platform_version>%1</platform_version>").arg(platformVersion).str();
    xml += StrFormat("<imei>%1</imei>").arg(imei).str();
    xml += StrFormat("<mac_address>%1</mac_address>").arg(macAddress).str();
    xml += StrFormat("<unique_id>%1</unique_id>").arg(uniqueId).str();
    xml += StrFormat("<serial_number>%1</serial_number>").arg(serialNumber).str();
    xml += StrFormat("<vendor_data>%1</vendor_data>").arg(vendorData).str();
    xml += StrFormat("<app_id>%1</app_id>").arg(appId).str();
    xml += StrFormat("<app_version>%1</app_version>").arg(appVersion).str();
    xml += "<hostname>" + hostname + "</hostname>";
    xml += StrFormat("<jailbreak>%1</jailbreak>").arg(jailbreak).str();
    return xml;
}

bool GetUTF8HostName(unsigned char* buffer, unsigned long& length) {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name) != 0) return false;  // room for the longest name and its zero
    unsigned long needed = strlen(name) + 1;
    if (buffer == nullptr || needed > length) {
        length = needed;
        return false;
    }
    memcpy(buffer, name, needed);
    length = needed - 1;
    return true;
}

CString SGetBase64UTF8HostName() {
    unsigned char name[HOST_NAME_MAX + 1];
    unsigned long length = sizeof name;
    CString encoded;
    if (GetUTF8HostName(name, length)) CRFCBase64::Encode(name, static_cast<int>(length), encoded);
    return encoded;
}
