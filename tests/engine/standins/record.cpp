// Stand-in tool that records how it was called: when VELT_STANDIN_RECORD names a file, appends to
// it every argument after the program name, each followed by a line feed, then one more line feed
// (an empty line ends each call). Arguments are written byte for byte, so a test can compare them
// exactly. Exits 1 when the record cannot be written, else 0.
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    const char* path = std::getenv("VELT_STANDIN_RECORD");
    if (path == nullptr || *path == '\0') return 0;
    std::FILE* file = std::fopen(path, "ab");
    if (file == nullptr) return 1;
    bool written = true;
    for (int index = 1; index < argc; ++index)
        written = written && std::fprintf(file, "%s\n", argv[index]) >= 0;
    written = written && std::fputc('\n', file) != EOF;
    return std::fclose(file) == 0 && written ? 0 : 1;
}
