#include "platform/executable_check.h"

#include "model/file_descriptor.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QFile>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace velt {
namespace {

// Enough for an ELF header and the architecture table of any real universal binary.
constexpr std::size_t headerBytes = 4096;

// Mach-O values (mach-o/loader.h, mach-o/fat.h), written out because Linux has no such headers.
constexpr std::uint32_t machMagic64 = 0xfeedfacf;
constexpr std::uint32_t fatMagic = 0xcafebabe;
constexpr std::uint32_t fatMagic64 = 0xcafebabf;
constexpr std::uint32_t cpuTypeX86_64 = 0x01000007;
constexpr std::uint32_t cpuTypeArm64 = 0x0100000c;  // covers arm64 and arm64e
// Java class files share the fat magic; their version field reads as 45 or more here, while no
// universal binary carries that many architectures.
constexpr std::uint32_t maxFatArchitectures = 32;

#if defined(__x86_64__)
constexpr std::uint16_t nativeElfMachine = EM_X86_64;
constexpr std::uint32_t nativeMachOCpuType = cpuTypeX86_64;
#elif defined(__aarch64__)
constexpr std::uint16_t nativeElfMachine = EM_AARCH64;
constexpr std::uint32_t nativeMachOCpuType = cpuTypeArm64;
#else
// Other processors have no external tools we would run.
constexpr std::uint16_t nativeElfMachine = EM_NONE;
constexpr std::uint32_t nativeMachOCpuType = 0;
#endif

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr unsigned char nativeElfData = ELFDATA2LSB;
#else
constexpr unsigned char nativeElfData = ELFDATA2MSB;
#endif

struct Bytes {
    const unsigned char* data;
    std::size_t size;
};

std::uint32_t readLittle32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
           std::uint32_t(p[3]) << 24;
}

std::uint32_t readBig32(const unsigned char* p) {
    return std::uint32_t(p[3]) | std::uint32_t(p[2]) << 8 | std::uint32_t(p[1]) << 16 |
           std::uint32_t(p[0]) << 24;
}

bool isNativeElf(Bytes header) {
    if (header.size < sizeof(Elf64_Ehdr) || std::memcmp(header.data, ELFMAG, SELFMAG) != 0)
        return false;
    if (header.data[EI_CLASS] != ELFCLASS64 || header.data[EI_DATA] != nativeElfData ||
        header.data[EI_VERSION] != EV_CURRENT)
        return false;
    Elf64_Ehdr elf;
    std::memcpy(&elf, header.data, sizeof elf);  // byte order checked above: fields read as is
    // Relocatable objects and core dumps are ELF files too, but nothing one can run.
    if (elf.e_type != ET_EXEC && elf.e_type != ET_DYN) return false;
    return nativeElfMachine != EM_NONE && elf.e_machine == nativeElfMachine;
}

bool isNativeMachO(Bytes header) {
    if (header.size < 8 || nativeMachOCpuType == 0) return false;
    if (readLittle32(header.data) == machMagic64)
        return readLittle32(header.data + 4) == nativeMachOCpuType;
    if (readBig32(header.data) == machMagic64)
        return readBig32(header.data + 4) == nativeMachOCpuType;

    const std::uint32_t magic = readBig32(header.data);
    if (magic != fatMagic && magic != fatMagic64) return false;
    const std::uint32_t count = readBig32(header.data + 4);
    if (count == 0 || count > maxFatArchitectures) return false;
    // fat_arch is 20 bytes, fat_arch_64 32; both begin with the big-endian CPU type.
    const std::size_t entrySize = magic == fatMagic ? 20 : 32;
    for (std::uint32_t index = 0; index < count; ++index) {
        const std::size_t offset = 8 + index * entrySize;
        if (offset + entrySize > header.size) return false;
        if (readBig32(header.data + offset) == nativeMachOCpuType) return true;
    }
    return false;
}

}  // namespace

bool executableSupportsCurrentArchitecture(const QString& path) {
    const QByteArray encoded = QFile::encodeName(path);
    // O_NONBLOCK: a FIFO planted under a tool's name must not hang the search.
    const FileDescriptor file(
        ::open(encoded.constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (file.get() < 0) return false;
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return false;

    unsigned char buffer[headerBytes];
    ssize_t length;
    do {
        length = ::pread(file.get(), buffer, sizeof buffer, 0);
    } while (length < 0 && errno == EINTR);
    if (length <= 0) return false;
    const Bytes header{buffer, static_cast<std::size_t>(length)};
    return isNativeElf(header) || isNativeMachO(header);
}

}  // namespace velt
