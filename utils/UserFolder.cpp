// The user's folder of the client components, and who owns what is made in it.
#include "UserFolder"

#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

const char* getCurrentUserHomeFolder() {
    const char* home = getenv("HOME");
    if (home != nullptr && *home != '\0') return home;
    const struct passwd* entry = getpwuid(geteuid());
    return entry != nullptr && entry->pw_dir != nullptr && *entry->pw_dir != '\0' ? entry->pw_dir : nullptr;
}

CString userFolder() {
    const char* home = getCurrentUserHomeFolder();
    return home == nullptr ? CString() : CString(home) + "/.Orvane";
}

void getCurrentUserIDGroupID(unsigned int* uid, unsigned int* gid) {
    struct stat info;
    const char* home = getCurrentUserHomeFolder();
    if (home != nullptr && stat(home, &info) == 0) {
        *uid = info.st_uid;
        *gid = info.st_gid;
    } else {
        *uid = geteuid();
        *gid = getegid();
    }
}

void setOwnerAndMode(const char* path, unsigned int uid, unsigned int gid, mode_t mode) {
    if (chown(path, uid, gid) != 0) {
        // Not ours to change (an ordinary user cannot give files away): the file stays the caller's.
    }
    chmod(path, mode);
}

void prepareUserFolder(const char* folder, unsigned int uid, unsigned int gid) {
    struct stat info;
    if (stat(folder, &info) != 0) mkdir(folder, 0755);
    setOwnerAndMode(folder, uid, gid, 0755);
}
