// A fresh temporary folder set as HOME for one scope; removed with everything in it afterwards.
#ifndef PASSWAY_TESTS_TEMPHOME_H
#define PASSWAY_TESTS_TEMPHOME_H

#include <string>

class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::string& path() const { return m_path; }
    // path() + "/.Orvane" + "/" + name
    std::string inFolder(const std::string& name) const { return m_path + "/.Orvane/" + name; }

private:
    std::string m_path;
    std::string m_savedHome;
    bool m_hadHome;
};

// The whole content of a file ("" when it cannot be read).
std::string readFile(const std::string& path);
// Replaces a file's content; creates missing folders on the way.
void writeFile(const std::string& path, const std::string& content);

#endif
