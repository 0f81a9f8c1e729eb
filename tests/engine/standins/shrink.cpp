// Stand-in optimizer that works in place, like "oxipng": when VELT_STANDIN_RECORD names a file,
// appends its arguments to it as the record stand-in does (one per line, then an empty line);
// then cuts the file named by its last argument to half its size (at least one byte is kept).
// Exits 2 without arguments and 1 when the file cannot be read or written.
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    if (const char* record = std::getenv("VELT_STANDIN_RECORD"); record && *record) {
        std::FILE* log = std::fopen(record, "ab");
        if (log == nullptr) return 1;
        for (int index = 1; index < argc; ++index) std::fprintf(log, "%s\n", argv[index]);
        std::fputc('\n', log);
        if (std::fclose(log) != 0) return 1;
    }
    const char* path = argv[argc - 1];
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr) return 1;
    std::vector<unsigned char> bytes;
    unsigned char buffer[65536];
    size_t length;
    while ((length = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        bytes.insert(bytes.end(), buffer, buffer + length);
    std::fclose(file);
    if (bytes.empty()) return 1;
    bytes.resize(bytes.size() > 1 ? bytes.size() / 2 : 1);
    file = std::fopen(path, "wb");
    if (file == nullptr) return 1;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && written ? 0 : 1;
}
