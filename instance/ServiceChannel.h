// The local VPN service's HTTP endpoint, and the requests the plug-in sends it.
#ifndef PASSWAY_INSTANCE_SERVICECHANNEL_H
#define PASSWAY_INSTANCE_SERVICECHANNEL_H

#include "PluginInstance.h"
#include "ServiceAddress.h"

// Asks the service "?INFO" through the browser: RESULT_PROBE_REQUESTED (100) when handed over,
// RESULT_BROWSER_REFUSED (-7) when the browser refused.
int NS_ProbeVpn(struct_nsPluginInstance* record);
// Sends the page's answer (in `data`) to the service with the next sequence number, when this instance
// owns the service; switches logging on the service's word.
void sendToTunvo(struct_nsPluginInstance* record, const char* completedUrl);
// Queries "?INFO" over a socket of its own (blocking): 1 with `data` set to the reply body, 0 on failure.
int GetDataFromTunvo(struct_nsPluginInstance* record);
// The body of a direct reply: what follows its first blank line, or nothing when it has none.
CString directReplyBody(const char* reply);

#endif
