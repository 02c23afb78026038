// The per-embed record, what the browser hands over at creation, and the controller's process-wide state.
#ifndef PASSWAY_INSTANCE_PLUGININSTANCE_H
#define PASSWAY_INSTANCE_PLUGININSTANCE_H

#include <cstdint>

#include "MD5"
#include "Npapi.h"
#include "String"

// One record per embed, reached through the instance handle's pdata.
struct struct_nsPluginInstance {
    NPWindow* window;
    NPP instance;
    uint32_t initialized;
    CString* data;            // exchange buffer: reply bodies, page answers
    CString* url;             // scratch buffer for every outgoing URL
    uint32_t doNotTerminate;  // 1 = leave the service running, ignore page answers
    uint32_t probeVpn;        // 1 = created with _probevpn
    CMD5 md5;                 // running hash of the package download
    CString* hostRootUrl;
    CString* signature;
    CString* tunvoUrl;
    CString* tunvoSize;
    uint32_t received;  // package bytes received so far
};

// What NPP_New hands to the controller.
struct nsPluginCreateData {
    NPP instance;
    NPMIMEType type;
    uint16_t mode;
    int16_t argc;
    char** argn;
    char** argv;
    NPSavedData* saved;
};

// Process-wide state of the controller.
extern int64_t g_seq;                  // sequence number of relayed messages; never reset
extern CString g_password;             // _userpassword of the installation in progress
extern CString g_installationMethod;   // _installmethod of that installation

NPError NS_PluginInitialize();
NPError NS_PluginShutdown();
NPError NS_PluginGetValue(NPPVariable variable, void* value);

// Creates the record, reads the parameters and takes the one action they ask for. Null on failure.
struct_nsPluginInstance* NS_NewPluginInstance(nsPluginCreateData* create);
// Stops a service this instance started, releases the record and closes the log.
NPError NS_DestroyPluginInstance(struct_nsPluginInstance* record);

int PluginInstance_init(struct_nsPluginInstance* record, NPWindow* window);
void PluginInstance_shut(struct_nsPluginInstance* record);
int PluginInstance_isInitialized(struct_nsPluginInstance* record);
CString PluginInstance_getVersion(struct_nsPluginInstance* record);
NPError PluginInstance_SetWindow(struct_nsPluginInstance* record, NPWindow* window);
NPError PluginInstance_GetValue(struct_nsPluginInstance* record, NPPVariable variable, void* value);
NPError PluginInstance_SetValue(struct_nsPluginInstance* record, NPNVariable variable, void* value);
void PluginInstance_StreamAsFile(struct_nsPluginInstance* record, NPStream* stream, const char* fileName);
void PluginInstance_Print(struct_nsPluginInstance* record, NPPrint* print);

// The end of a request made with a request record: drives the relay, hands a package to verification.
void PluginInstance_URLNotify(struct_nsPluginInstance* record, const char* url, NPReason reason, void* notifyData);

#endif
