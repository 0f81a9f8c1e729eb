// Stand-in tool that "succeeds" with a broken result: writes 4096 random bytes to the path that
// follows "-o" or "--output" in its arguments (else to its last argument) and exits 0.
// Exits 2 when it has no argument at all and 1 when the file cannot be written.
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const char* output = argv[argc - 1];
    for (int index = 1; index + 1 < argc; ++index) {
        if (std::strcmp(argv[index], "-o") == 0 || std::strcmp(argv[index], "--output") == 0)
            output = argv[index + 1];
    }
    std::random_device seed;
    std::mt19937 generator(seed());
    std::vector<unsigned char> bytes(4096);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(generator());

    std::FILE* file = std::fopen(output, "wb");
    if (file == nullptr) return 1;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && written ? 0 : 1;
}
