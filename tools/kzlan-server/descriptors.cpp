#include "descriptors.h"

#include <cerrno>
#include <climits>

#include <dirent.h>
#include <sys/resource.h>

int openDescriptors()
{
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir) return errno == EMFILE || errno == ENFILE ? INT_MAX : -1; // no room to look
    int n = 0;
    while (const dirent* e = ::readdir(dir))
        if (e->d_name[0] != '.') ++n;
    ::closedir(dir);
    return n - 1; // the directory's own descriptor
}

long descriptorLimit()
{
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur == RLIM_INFINITY) return -1;
    return long(files.rlim_cur);
}
