#include "PluginTestSupport.h"

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

#include "RunCommand.h"

void TestRoot::reset() {
    stopService();
    runCommand({"/bin/rm", "-rf", path()});
    writeFile(path() + "var/run/requests.log", "");
}

void TestRoot::installClient() {
    writeFile(path() + "etc/version.txt", "7135.2016.429.1");
    ASSERT_EQ(0, runCommand({"/bin/cp", FAKE_SERVICE, path() + "tunvo_x86_64"}).exitCode);
    ASSERT_EQ(0, chmod((path() + "tunvo_x86_64").c_str(), 04755));
}

int TestRoot::servicePid() {
    std::string pid = readFile(path() + "var/run/tunvo.pid");
    return pid.empty() || pid[0] < '0' || pid[0] > '9' ? 0 : std::stoi(pid);
}

void TestRoot::stopService() {
    int pid = servicePid();
    if (pid > 0) kill(pid, SIGKILL);
    unlink((path() + "var/run/tunvo.pid").c_str());
}

std::vector<std::string> TestRoot::serviceRequests() {
    std::vector<std::string> lines;
    std::string text = readFile(path() + "var/run/requests.log");
    for (size_t start = 0, nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.push_back(text.substr(start, nl - start));
    return lines;
}
