// A reply of the local service, any bytes: handed to the page by sendToJavaScript, and cut by the
// direct query's reply parsing. The page call must always be c_addcomm('...').
#include <cstring>
#include <string>

#include "BrowserCalls.h"
#include "FuzzInput.h"
#include "PageBridge.h"
#include "ServiceChannel.h"

namespace {
NPError pageCall(NPP, const char* url, const char*, void*) {
    size_t n = strlen(url);
    if (strncmp(url, "javascript:c_addcomm('", 22) != 0 || n < 24 || strcmp(url + n - 2, "')") != 0) __builtin_trap();
    return NPERR_NO_ERROR;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    discardLog();
    NPNFuncs.version = 27;
    NPNFuncs.geturlnotify = pageCall;
    CString reply(reinterpret_cast<const char*>(data), static_cast<int>(size)), url, empty1, empty2, empty3, empty4;
    struct_nsPluginInstance record{};
    record.data = &reply;
    record.url = &url;
    record.hostRootUrl = &empty1;
    record.signature = &empty2;
    record.tunvoUrl = &empty3;
    record.tunvoSize = &empty4;
    sendToJavaScript(&record, "");

    std::string text = asText(data, size);
    CString body = directReplyBody(text.c_str());
    if (body.GetLength() > static_cast<int>(strlen(text.c_str()))) __builtin_trap();
    return 0;
}
