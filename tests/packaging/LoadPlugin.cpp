// load_plugin PATH: loads a plug-in through the fake browser as a browser does when it starts, and
// checks its MIME type, its name, that its description carries this build's version, and that
// NP_Initialize accepts today's browser table. Exit 0 when all hold. Used on the plug-in the .deb
// installed (scripts/check-deb).
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "FakeBrowser.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: load_plugin PATH\n");
        return 2;
    }
    FakeBrowser browser(argv[1]);
    if (!browser.loaded()) {
        fprintf(stderr, "load_plugin: cannot load %s: %s\n", argv[1], dlerror());
        return 1;
    }
    const char* mime = browser.getMIMEDescription();
    const char* name = nullptr;
    const char* description = nullptr;
    browser.getValue(nullptr, NPPVpluginNameString, &name);
    browser.getValue(nullptr, NPPVpluginDescriptionString, &description);
    NPError initialized = browser.initialize();
    printf("%s\n  MIME: %s\n  name: %s\n  description: %s\n  NP_Initialize: %d\n", argv[1], mime, name,
           description, initialized);

    bool ok = mime != nullptr && strncmp(mime, "application/x-orvane-sslvpn:", 28) == 0 && name != nullptr &&
              strcmp(name, "Orvane Passway plugin") == 0 && description != nullptr &&
              std::string(description).find("Ver. " PASSWAY_VERSION) != std::string::npos &&
              initialized == NPERR_NO_ERROR;
    if (!ok) fprintf(stderr, "load_plugin: %s does not answer as this build's plug-in\n", argv[1]);
    return ok ? 0 : 1;
}
