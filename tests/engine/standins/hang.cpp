// Stand-in tool that never finishes on its own: sleeps 60 seconds, then exits 0.
//
// Environment:
//   VELT_STANDIN_IGNORE_TERM=1  ignore SIGTERM, so that only SIGKILL ends it early.
//   VELT_STANDIN_READY=<file>   once the signal handling is in place, write the process id to
//                               <file> (complete when the file appears: written beside it, then
//                               renamed), so that a test knows it runs and which pid to check.
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

bool flagSet(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && std::strcmp(value, "1") == 0;
}

bool announceReady(const char* path) {
    const std::string temporary = std::string(path) + ".partial";
    std::FILE* file = std::fopen(temporary.c_str(), "w");
    if (file == nullptr) return false;
    const bool written = std::fprintf(file, "%ld\n", static_cast<long>(getpid())) > 0;
    if (std::fclose(file) != 0 || !written) return false;
    return std::rename(temporary.c_str(), path) == 0;
}

}  // namespace

int main() {
    if (flagSet("VELT_STANDIN_IGNORE_TERM")) std::signal(SIGTERM, SIG_IGN);
    if (const char* ready = std::getenv("VELT_STANDIN_READY"); ready && *ready) {
        if (!announceReady(ready)) return 2;
    }
    timespec remaining{60, 0};
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
    return 0;
}
