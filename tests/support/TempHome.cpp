#include "TempHome.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

TempHome::TempHome() {
    char pattern[] = "/tmp/passway-home-XXXXXX";
    m_path = mkdtemp(pattern);
    const char* home = getenv("HOME");
    m_hadHome = home != nullptr;
    if (m_hadHome) m_savedHome = home;
    setenv("HOME", m_path.c_str(), 1);
}

TempHome::~TempHome() {
    if (m_hadHome)
        setenv("HOME", m_savedHome.c_str(), 1);
    else
        unsetenv("HOME");
    std::string command = "rm -rf '" + m_path + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "could not remove %s\n", m_path.c_str());
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0755);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}
