// The installed client's fixed paths, all under the install root of the build.
#ifndef PASSWAY_PROVISIONING_INSTALLPATHS_H
#define PASSWAY_PROVISIONING_INSTALLPATHS_H

#include "PasswayConfig.h"

// The service's executable and pid file, relative to the install root.
#define TUNVO_EXECUTABLE_NAME "tunvo_x86_64"
#define TUNVO_PID_FILE_NAME "var/run/tunvo.pid"

#define TUNVO_EXECUTABLE PASSWAY_INSTALL_ROOT TUNVO_EXECUTABLE_NAME
#define TUNVO_PID_FILE PASSWAY_INSTALL_ROOT TUNVO_PID_FILE_NAME
#define TUNVO_VERSION_FILE PASSWAY_INSTALL_ROOT "etc/version.txt"
#define TUNVO_OFFERED_VERSION "7135.2016.429.1"

#endif
