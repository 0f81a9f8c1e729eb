#include "engine/errors.h"
#include "engine/registry/content_fingerprint.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

namespace velt {
namespace {

// Bytes that differ from block to block, so a hash over the wrong range cannot pass.
QByteArray patternedBytes(qsizetype size) {
    QByteArray data(size, Qt::Uninitialized);
    std::uint32_t state = 0x9e3779b9u;
    for (qsizetype i = 0; i < size; ++i) {
        state = state * 1664525u + 1013904223u;
        data[i] = static_cast<char>(state >> 24);
    }
    return data;
}

std::uint64_t hashOf(const QByteArray& data, qsizetype from, qsizetype length) {
    return fnv1a64(data.constData() + from, static_cast<std::size_t>(length));
}

TEST(Fingerprint, KnownFnv1aVectors) {
    EXPECT_EQ(fnv1a64("", 0), 0xcbf29ce484222325ULL);
    EXPECT_EQ(fnv1a64("a", 1), 0xaf63dc4c8601ec8cULL);
    EXPECT_EQ(fnv1a64("foobar", 6), 0x85944171f73967e8ULL);
}

TEST(Fingerprint, HeadAndTailBlocksAtBoundarySizes) {
    QTemporaryDir dir;
    const qsizetype block = fingerprintBlockBytes;
    struct Case {
        qsizetype size;
        qsizetype tailFrom;  // where the hashed tail block starts
        qsizetype tailLength;
    };
    const Case cases[] = {
        {1, 0, 1},
        {block, 0, block},      // exactly one block: the tail is the head
        {block + 1, 1, block},  // the tail overlaps the head in all but one byte
        {3 * block + 5, 2 * block + 5, block},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        const QByteArray data = patternedBytes(c.size);
        const QString path = dir.filePath(QStringLiteral("f%1.bin").arg(c.size));
        testing::writeFile(path, data);
        const auto fingerprint = contentFingerprint(path);
        ASSERT_TRUE(fingerprint.has_value());
        EXPECT_EQ(fingerprint->size, c.size);
        EXPECT_EQ(fingerprint->headHash, hashOf(data, 0, std::min(c.size, block)));
        EXPECT_EQ(fingerprint->tailHash, hashOf(data, c.tailFrom, c.tailLength));
        EXPECT_EQ(fingerprint->headHash == fingerprint->tailHash, c.size <= block);
    }
}

TEST(Fingerprint, NoneForEmptyMissingOrFolder) {
    QTemporaryDir dir;
    const QString empty = dir.filePath(QStringLiteral("empty.jpg"));
    testing::writeFile(empty, {});
    EXPECT_EQ(contentFingerprint(empty), std::nullopt);
    EXPECT_EQ(contentFingerprint(dir.filePath(QStringLiteral("missing.jpg"))), std::nullopt);
    EXPECT_EQ(contentFingerprint(dir.path()), std::nullopt);
}

TEST(Sha256Digest, KnownDigestsAndSha256sumForLargeFile) {
    QTemporaryDir dir;
    const QString abc = dir.filePath(QStringLiteral("abc"));
    testing::writeFile(abc, "abc");
    EXPECT_EQ(sha256Digest(abc).toHex(),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const QString empty = dir.filePath(QStringLiteral("empty"));
    testing::writeFile(empty, {});
    EXPECT_EQ(sha256Digest(empty).toHex(),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");

    // Larger than two read chunks and not a multiple of one.
    const QString large = dir.filePath(QStringLiteral("large file.bin"));
    testing::writeFile(large, patternedBytes(2 * 1'048'576 + 12'345));
    QProcess sha256sum;
    sha256sum.start(QStringLiteral("sha256sum"), {large});
    ASSERT_TRUE(sha256sum.waitForFinished(60'000));
    ASSERT_EQ(sha256sum.exitCode(), 0);
    const QByteArray expected = sha256sum.readAllStandardOutput().left(64);
    EXPECT_EQ(sha256Digest(large).toHex(), expected);
}

TEST(Sha256Digest, MissingFileThrows) {
    QTemporaryDir dir;
    EXPECT_THROW(sha256Digest(dir.filePath(QStringLiteral("missing"))), FileSystemError);
}

}  // namespace
}  // namespace velt
