#include "residency.h"

#include "engine.h"

#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

// Anonymous memory alone: the pages of code that a process happens to touch belong to no row.
double residentNow()
{
    std::FILE *file = std::fopen("/proc/self/status", "r");
    require(file, "opening status");
    char line[256];
    long kilobytes = -1;
    while (kilobytes < 0 && std::fgets(line, sizeof line, file))
        std::sscanf(line, "RssAnon: %ld kB", &kilobytes);
    std::fclose(file);
    require(kilobytes >= 0, "reading status");
    return double(kilobytes) * 1024;
}

} // namespace

double residentBytes(const std::function<void()> &work)
{
    int ends[2];
    require(pipe(ends) == 0, "opening a pipe");
    const pid_t child = fork();
    require(child >= 0, "starting a process");
    if (child == 0) {
        const double before = residentNow();
        work();
        const double added = residentNow() - before;
        _exit(write(ends[1], &added, sizeof added) == sizeof added ? 0 : 1);
    }
    close(ends[1]);
    double added = 0;
    require(read(ends[0], &added, sizeof added) == sizeof added, "measuring in a process");
    close(ends[0]);
    int status = 0;
    require(waitpid(child, &status, 0) == child && status == 0, "measuring in a process");
    return added;
}
