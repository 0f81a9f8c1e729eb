#include "platform/executable_check.h"

#include "encoders/standin_tools.h"

#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QDir>
#include <QTemporaryDir>
#include <cstring>

namespace velt {
namespace {

#if defined(__x86_64__)
constexpr std::uint16_t nativeMachine = EM_X86_64;
constexpr std::uint16_t foreignMachine = EM_AARCH64;
constexpr std::uint32_t nativeCpu = 0x01000007;
constexpr std::uint32_t foreignCpu = 0x0100000c;
#else
constexpr std::uint16_t nativeMachine = EM_AARCH64;
constexpr std::uint16_t foreignMachine = EM_X86_64;
constexpr std::uint32_t nativeCpu = 0x0100000c;
constexpr std::uint32_t foreignCpu = 0x01000007;
#endif

QByteArray elfHeader(unsigned char elfClass, std::uint16_t type, std::uint16_t machine,
                     unsigned char data = ELFDATA2LSB) {
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = elfClass;
    header.e_ident[EI_DATA] = data;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = type;
    header.e_machine = machine;
    header.e_version = EV_CURRENT;
    return QByteArray(reinterpret_cast<const char*>(&header), sizeof header) + QByteArray(64, '\0');
}

QByteArray little32(std::uint32_t value) {
    QByteArray bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += char((value >> shift) & 0xff);
    return bytes;
}

QByteArray big32(std::uint32_t value) {
    QByteArray bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += char((value >> shift) & 0xff);
    return bytes;
}

QByteArray thinMachO(std::uint32_t magic, std::uint32_t cpu) {
    return little32(magic) + little32(cpu) + QByteArray(24, '\0');
}

// A universal binary's header listing `cpus` (fat_arch entries of 20 bytes).
QByteArray fatMachO(std::initializer_list<std::uint32_t> cpus, std::uint32_t declared = 0) {
    QByteArray bytes = big32(0xcafebabe) + big32(declared ? declared : std::uint32_t(cpus.size()));
    for (std::uint32_t cpu : cpus) bytes += big32(cpu) + QByteArray(16, '\0');
    return bytes;
}

TEST(ExecutableCheck, WrittenHeaders) {
    const QByteArray nativeElf = elfHeader(ELFCLASS64, ET_DYN, nativeMachine);
    const std::tuple<const char*, QByteArray, bool> cases[] = {
        {"ELF64 position-independent executable", nativeElf, true},
        {"ELF64 executable", elfHeader(ELFCLASS64, ET_EXEC, nativeMachine), true},
        {"ELF64 of the other processor family", elfHeader(ELFCLASS64, ET_DYN, foreignMachine),
         false},
        {"ELF32 (x32 or i386 style)", elfHeader(ELFCLASS32, ET_EXEC, nativeMachine), false},
        {"ELF32 i386", elfHeader(ELFCLASS32, ET_EXEC, EM_386), false},
        {"big-endian ELF", elfHeader(ELFCLASS64, ET_DYN, nativeMachine, ELFDATA2MSB), false},
        {"relocatable object", elfHeader(ELFCLASS64, ET_REL, nativeMachine), false},
        {"core dump", elfHeader(ELFCLASS64, ET_CORE, nativeMachine), false},
        {"truncated ELF header", nativeElf.left(20), false},
        {"shell script", QByteArray("#!/bin/sh\nexit 0\n"), false},
        {"empty file", QByteArray(), false},
        {"Mach-O 64", thinMachO(0xfeedfacf, nativeCpu), true},
        {"Mach-O 64 of the other family", thinMachO(0xfeedfacf, foreignCpu), false},
        {"Mach-O 32", thinMachO(0xfeedface, nativeCpu), false},
        {"universal with both families", fatMachO({foreignCpu, nativeCpu}), true},
        {"universal with the other family only", fatMachO({foreignCpu}), false},
        {"universal whose table is cut short", fatMachO({foreignCpu}, 2), false},
        {"Java class file", big32(0xcafebabe) + big32(0x00000034) + QByteArray(64, '\0'), false},
    };
    QTemporaryDir folder;
    int index = 0;
    for (const auto& [name, content, expected] : cases) {
        const QString path = folder.filePath(QString::number(index++));
        testing::writeExecutable(path, content);
        EXPECT_EQ(executableSupportsCurrentArchitecture(path), expected) << name;
    }
}

TEST(ExecutableCheck, RealFilesAndNonFiles) {
    QTemporaryDir folder;
    const QString fifo = folder.filePath(QStringLiteral("fifo"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0755), 0);
    const std::pair<QString, bool> cases[] = {
        {QStringLiteral("/bin/ls"), true},
        {testing::standinPath(QStringLiteral("record")), true},
        {folder.path(), false},
        {folder.filePath(QStringLiteral("missing")), false},
        {fifo, false},  // must answer without waiting for a writer
    };
    for (const auto& [path, expected] : cases)
        EXPECT_EQ(executableSupportsCurrentArchitecture(path), expected) << path.toStdString();
    if (QFile::exists(QStringLiteral("/usr/bin/cwebp"))) {
        EXPECT_TRUE(executableSupportsCurrentArchitecture(QStringLiteral("/usr/bin/cwebp")));
    }
}

}  // namespace
}  // namespace velt
