// Getting the client onto the machine and running: the package download, its signature check, the
// installer, and the service's start and stop.
#ifndef PASSWAY_PROVISIONING_PROVISIONING_H
#define PASSWAY_PROVISIONING_PROVISIONING_H

#include "NotifyData.h"
#include "PluginInstance.h"

// Result codes of the controller and provisioning calls.
enum {
    RESULT_PROBE_REQUESTED = 100,
    RESULT_SERVICE_STARTED = 0,
    RESULT_ALREADY_RUNNING = -1,
    RESULT_NOT_INSTALLED = -2,
    RESULT_INSTALL_FAILED = -3,
    RESULT_INSTALL_SUCCEEDED = -4,
    RESULT_LAUNCH_FAILED = -5,
    RESULT_UNKNOWN_LAUNCH_RESULT = -6,
    RESULT_BROWSER_REFUSED = -7,
};

// Tells the page the download starts and asks the browser for hostrooturl + tunvourl:
// 0 when the browser took both requests, -1 otherwise.
int downloadTUNVO(struct_nsPluginInstance* record);

// The stream callbacks for every request record: reply bodies into `data`, the package into its file.
NPError PluginInstance_NewStream(struct_nsPluginInstance* record, NPMIMEType type, NPStream* stream, NPBool seekable,
                                 uint16_t* stype);
int32_t PluginInstance_WriteReady(struct_nsPluginInstance* record, NPStream* stream);
int32_t PluginInstance_Write(struct_nsPluginInstance* record, NPStream* stream, int32_t offset, int32_t len,
                             void* buffer);
NPError PluginInstance_DestroyStream(struct_nsPluginInstance* record, NPStream* stream, NPReason reason);
void notifyProgress(struct_nsPluginInstance* record);

// Checks the finished package's signature and installs it: 0 installed, 1 not.
int verify_install(struct_nsPluginInstance* record, streamData* package);

class UPropertyList;

// Non-zero when the client must be installed or upgraded before it can start: no version file, an
// older installed version (byte-wise text comparison), or a service executable that is not a set-user-id
// regular file of the service owner.
int NeedInstall(UPropertyList& params);
// Runs the package as the installer ("SUDO" or "SU", the password on its standard input, at most about
// five seconds): -4 installed, -3 failed, or the installer's raw non-zero exit status.
int InstallVPN(struct_nsPluginInstance* record, const char* password, const char* installMethod, CString package);
// Installs the verified package and tells the page: -4 installed, -3 not.
int NS_InstallVpn(struct_nsPluginInstance* record, const char* password, const char* installMethod);
// Starts the service with the parameter text (mode 0), or stops it (mode 1).
int NS_LaunchVpn(struct_nsPluginInstance* record, const char* params, int mode);
int LaunchVPN(const char* params, int mode);
// True when the process's argv[0] is exactly the service executable's path.
bool TunvoOwnsPid(int pid);
bool IsProcessRunning(long pid);

#endif
