// Stand-in tool that records how it was called and then behaves like a lossless encoder.
//
// 1. When VELT_STANDIN_RECORD names a file, appends to it every argument after the program name,
//    each followed by a line feed, then one more line feed (an empty line ends each call).
//    Arguments are written byte for byte, so a test can compare them exactly.
// 2. Finds its output: the argument after "-o", "--output" or "-outfile". Finds its input: the
//    last other argument that does not start with "-" (everything after "--" counts as such).
// 3. When it found both, copies the input's bytes to the output (exit 1 if that fails).
// Exits 0 otherwise, also when it could not tell input and output apart.
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool isOutputOption(const char* argument) {
    return std::strcmp(argument, "-o") == 0 || std::strcmp(argument, "--output") == 0 ||
           std::strcmp(argument, "-outfile") == 0;
}

bool recordArguments(const char* path, int argc, char** argv) {
    std::FILE* file = std::fopen(path, "ab");
    if (file == nullptr) return false;
    bool written = true;
    for (int index = 1; index < argc; ++index)
        written = written && std::fprintf(file, "%s\n", argv[index]) >= 0;
    written = written && std::fputc('\n', file) != EOF;
    return std::fclose(file) == 0 && written;
}

bool copyFile(const char* input, const char* output) {
    std::FILE* source = std::fopen(input, "rb");
    if (source == nullptr) return false;
    std::FILE* target = std::fopen(output, "wb");
    if (target == nullptr) {
        std::fclose(source);
        return false;
    }
    char buffer[64 * 1024];
    bool copied = true;
    size_t length;
    while (copied && (length = std::fread(buffer, 1, sizeof buffer, source)) > 0)
        copied = std::fwrite(buffer, 1, length, target) == length;
    copied = copied && !std::ferror(source);
    std::fclose(source);
    return std::fclose(target) == 0 && copied;
}

}  // namespace

int main(int argc, char** argv) {
    if (const char* record = std::getenv("VELT_STANDIN_RECORD"); record && *record) {
        if (!recordArguments(record, argc, argv)) return 1;
    }
    const char* input = nullptr;
    const char* output = nullptr;
    bool optionsEnded = false;
    for (int index = 1; index < argc; ++index) {
        const char* argument = argv[index];
        if (!optionsEnded && std::strcmp(argument, "--") == 0) {
            optionsEnded = true;
        } else if (!optionsEnded && isOutputOption(argument) && index + 1 < argc) {
            output = argv[++index];
        } else if (optionsEnded || argument[0] != '-') {
            input = argument;
        }
    }
    if (input == nullptr || output == nullptr) return 0;
    return copyFile(input, output) ? 0 : 1;
}
