// Stand-in tool that talks a lot: writes 50 MB to standard output and 50 MB to standard error,
// then exits 0. It exits 1 when a write fails (a closed stream, for example), so a caller that
// does not give it somewhere to write sees a failure; a caller whose pipe nobody drains would
// see it hang.
#include <unistd.h>
#include <cerrno>
#include <cstring>

namespace {

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

int main() {
    static char chunk[64 * 1024];
    std::memset(chunk, 'x', sizeof chunk);
    constexpr size_t total = 50u * 1024 * 1024;
    for (size_t sent = 0; sent < total; sent += sizeof chunk) {
        if (!writeAll(STDOUT_FILENO, chunk, sizeof chunk)) return 1;
        if (!writeAll(STDERR_FILENO, chunk, sizeof chunk)) return 1;
    }
    return 0;
}
