// The host's guard: a process of its own, forked before the plug-in is loaded, that outlives the host and
// stops the local service that the host's plug-in started when the host ends without stopping it: killed
// (even with SIGKILL), crashed, or killed by the browser while the plug-in blocked. The plug-in stops the
// service it started from NPP_Destroy; a host that never gets there leaves that to its guard.
//
// The host tells its guard over a pipe which service its plug-in started and when the plug-in stopped it;
// the guard sees the host end when the pipe's last writer goes (the write end is close-on-exec, so the
// plug-in's children never hold it). The guard runs in a session of its own, so that a browser ending the
// host's process group does not end it too, and holds nothing of the host's standard input or output.
#ifndef PASSWAY_HOST_SERVICEGUARD_H
#define PASSWAY_HOST_SERVICEGUARD_H

#include <string>
#include <sys/types.h>

// A running service, as the plug-in recognises it: the pid in the pid file, a live process whose argv[0]
// is exactly the service executable's path; and its start time, so that a pid used again later by
// another process is never taken for it.
struct ServiceProcess {
    pid_t pid = 0;
    unsigned long long started = 0;  // in clock ticks since boot (/proc/PID/stat)
};

// The installed client's root (ending in "/") whose service the host guards: PASSWAY_HOST_CLIENT_ROOT when
// set (a plug-in built for another install root, as the tests use), else the build's install root.
std::string clientRoot();

// The service now running under `root`, by the pid file and the process's command line; false when none.
bool runningService(const std::string& root, ServiceProcess& service);

class ServiceGuard {
public:
    // Forks the guard for the service under `root`. False (with a log line) when it could not: the host then
    // runs unguarded.
    bool start(const std::string& root);
    // Tells `fd` (a pipe's write end, now owned) instead of a guard of its own: the tests read it.
    void attach(int fd) { m_pipe = fd; }
    // This host's plug-in started `service` / stopped it itself.
    void owned(const ServiceProcess& service);
    void released();
    // The host ends in order: the guard ends with nothing to do (the plug-in stopped what it started).
    ~ServiceGuard();

private:
    void tell(const std::string& line);
    int m_pipe = -1;
};

// The guard's own loop, in the forked process: reads the host's lines from `fd` until the host is gone,
// then stops the service it was told of, if that is still the one running. Returns what it did, for the log.
std::string guardService(int fd, const std::string& root);

#endif
