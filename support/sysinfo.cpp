// sysinfo.cpp - the process's memory figures from /proc/self/statm.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "support/vqsupport.h"

extern "C" int VQSYS_GetMemInfo(VQSYS_MEMINFO *info) {
    if (info == nullptr) return 0;
    std::memset(info, 0, sizeof *info);
    int fd = ::open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    char buf[256];
    ssize_t n = ::read(fd, buf, sizeof buf - 1);
    ::close(fd);
    if (n <= 0) return 0;
    buf[n] = '\0';
    unsigned long long size = 0, resident = 0, shared = 0;
    if (std::sscanf(buf, "%llu %llu %llu", &size, &resident, &shared) != 3) return 0;
    long page = ::sysconf(_SC_PAGESIZE);
    info->pageSize = page > 0 ? static_cast<uint64_t>(page) : 4096;
    info->vmSize = size * info->pageSize;
    info->residentPages = resident;
    info->sharedPages = shared;
    return 1;
}
