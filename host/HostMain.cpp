// passway-host: the native messaging host that runs the Passway plug-in for a browser tab.
//
// The browser starts it when the extension opens a port, with the caller's origin (Chromium) or the host
// manifest's path and the extension's id (Firefox) as arguments, and ends it by closing standard input
// when the tab goes away. PASSWAY_HOST_PLUGIN names the plug-in to load; without it the installed one is
// looked up where browsers look. PASSWAY_HOST_CLIENT_ROOT names the client's root when that plug-in is
// built for another one than this host (ServiceGuard.h).
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "Bridge.h"
#include "ServiceGuard.h"
#include "HostLog.h"

namespace {

constexpr char kPluginFile[] = "libtunvo_plugin.so";

std::string pluginPath() {
    if (const char* chosen = getenv("PASSWAY_HOST_PLUGIN"); chosen != nullptr && *chosen != '\0') return chosen;
    std::vector<std::string> folders;
    if (const char* home = getenv("HOME"); home != nullptr && *home != '\0')
        folders.push_back(std::string(home) + "/.mozilla/plugins/");
    folders.push_back("/usr/lib/mozilla/plugins/");
    folders.push_back("/usr/local/lib/mozilla/plugins/");
    for (const std::string& folder : folders)
        if (access((folder + kPluginFile).c_str(), R_OK) == 0) return folder + kPluginFile;
    return "/usr/lib/mozilla/plugins/" + std::string(kPluginFile);
}

bool writeAll(const char* data, size_t length) {
    while (length > 0) {
        ssize_t n = write(1, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;  // the browser is gone
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

void ignore(int) {}

}  // namespace

int main() {
    // A browser gone away fails our writes instead of ending us. (A handler, not SIG_IGN: the installer
    // and the service that the plug-in starts get the default disposition back at exec.)
    signal(SIGPIPE, ignore);
    // The guard first, before the plug-in is loaded: it must hold nothing the plug-in opens.
    ServiceGuard guard;
    std::string root = clientRoot();
    guard.start(root);
    FrameWriter out(writeAll);
    Bridge bridge(pluginPath(), out);
    bridge.setGuard(&guard, root);
    FrameReader in;
    std::vector<char> buffer(1 << 20);
    for (bool open = true; open;) {
        std::vector<int> service = bridge.watched();
        std::vector<pollfd> fds = {{0, POLLIN, 0}};
        for (int fd : service) fds.push_back({fd, POLLIN, 0});
        int ready = poll(fds.data(), fds.size(), -1);
        if (ready < 0 && errno != EINTR) {
            hostLog("poll failed: %s", strerror(errno));
            break;
        }
        for (size_t i = 1; ready > 0 && i < fds.size(); ++i)
            if (fds[i].revents != 0) bridge.onReadable(fds[i].fd);
        bridge.run();
        if (ready > 0 && fds[0].revents != 0) {
            ssize_t n = read(0, buffer.data(), buffer.size());
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;  // the tab closed
            in.feed(buffer.data(), static_cast<size_t>(n));
            std::string frame;
            uint32_t length = 0;
            for (FrameReader::Result r; (r = in.next(frame, length)) != FrameReader::Result::NeedMore;) {
                if (r == FrameReader::Result::TooLarge) {
                    hostLog("a frame of %u bytes: more than a browser sends; reading stops", length);
                    out.send(protocol::errorMessage(protocol::kBadFrame, length));
                    open = false;
                    break;
                }
                bridge.onFrame(frame);
                bridge.run();
            }
        }
    }
    bridge.shutdown();
    return 0;
}
