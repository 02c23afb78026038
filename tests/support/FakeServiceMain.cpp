// fake_tunvo_service: the local VPN service as the plug-in's tests install it (as "tunvo_x86_64" under
// the test root). Reads the parameter text on standard input, puts itself in the background, writes
// var/run/tunvo.pid and var/run/params.txt, serves /vpn.php on 127.0.0.1:44444, appends every request
// line to var/run/requests.log, and on SIGTERM removes its pid file and exits.
//
// Replies: "?CONNECT" gets "connected"; a message holding "say=TEXT" gets TEXT; "hold=N" gets "held:N"
// after N seconds (a service that holds its reply until it has news); "hang" never gets one (a service
// that hangs, until it is stopped); anything else gets "ack:" and the query ("INFO" after a fifth of a
// second, as an idle service would). The service gives up by itself after five minutes.
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

#include "FakeService.h"

static volatile sig_atomic_t g_stop = 0;

int main(int, char** argv) {
    std::string self = argv[0], run = self.substr(0, self.rfind('/') + 1) + "var/run/", params;
    char buffer[4096];
    for (ssize_t n; (n = read(0, buffer, sizeof buffer)) > 0;) params.append(buffer, static_cast<size_t>(n));

    // The launcher's part ends once the service listens and has written its pid file, as a real
    // service must do before its launcher exits.
    int ready[2];
    if (pipe(ready) != 0) return 1;
    pid_t child = fork();
    if (child != 0) {
        close(ready[1]);
        return child > 0 && read(ready[0], buffer, 1) == 1 ? 0 : 1;
    }
    close(ready[0]);
    setsid();
    int null = open("/dev/null", O_RDWR);
    for (int fd = 0; fd < 3; ++fd) dup2(null, fd);
    signal(SIGTERM, [](int) { g_stop = 1; });
    alarm(300);
    std::ofstream(run + "params.txt") << params;
    {
        // A service still shutting down may hold the port for a moment: wait for it.
        std::unique_ptr<FakeService> service;
        for (int attempt = 0; attempt < 100 && !(service && service->listening()); ++attempt) {
            if (attempt > 0) usleep(20000);
            service = std::make_unique<FakeService>();
        }
        if (!service->listening()) return 1;
        service->setReply([run](const std::string& line) {
            std::ofstream(run + "requests.log", std::ios::app) << line << "\n";
            size_t query = line.find('?') + 1;  // every request asks for /vpn.php?...
            std::string text = line.substr(query, line.rfind(" HTTP") - query);
            if (text == "CONNECT") return std::string("connected");
            if (text.rfind("INFO", 0) == 0) usleep(200000);  // an idle service: let a page that polls breathe
            // Waits `seconds` (for ever: 0) or until the service is stopped.
            auto wait = [](long seconds) {
                for (long step = 0; !g_stop && (seconds == 0 || step < seconds * 50); ++step) usleep(20000);
            };
            size_t hold = text.find("hold=");
            if (hold != std::string::npos) {
                long seconds = atol(text.c_str() + hold + 5);
                wait(seconds > 0 ? seconds : 1);
                return "held:" + std::to_string(seconds);
            }
            if (text.rfind("hang", 0) == 0) {
                wait(0);
                return std::string();
            }
            size_t say = text.find("say=");
            if (say != std::string::npos) return text.substr(say + 4, text.find('&', say) - say - 4);
            return "ack:" + text;
        });
        std::ofstream(run + "tunvo.pid") << getpid() << "\n";
        if (write(ready[1], "r", 1) != 1) return 1;
        close(ready[1]);
        while (!g_stop) usleep(20000);  // the signal may land on the server thread: poll the flag
    }                                   // the port is released before the pid file goes
    unlink((run + "tunvo.pid").c_str());
    return 0;
}
