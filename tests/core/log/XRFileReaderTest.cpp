// The chunked line reader and its byte search.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "log/ByteRange.h"
#include "log/XRFileReader.h"

namespace {

class XRFileReaderTest : public ::testing::Test {
protected:
    QString fileWith(const QByteArray& data) {
        const QString path = dir.filePath(QStringLiteral("lines.log"));
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write(data);
        return path;
    }
    static QStringList allLines(XRFileReader& reader) {
        QStringList lines;
        reader.enumerateLinesUsingBlock([&lines](const QString& line, bool&) { lines << line; });
        return lines;
    }
    QTemporaryDir dir;
};

TEST_F(XRFileReaderTest, LinesKeepTheirDelimiterAndTheLastOneNeedsNone) {
    auto reader = XRFileReader::initWithFilePath(fileWith("first\n\nlast without end"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->lineDelimiter(), QStringLiteral("\n"));
    EXPECT_EQ(reader->chunkSize(), 512u);
    EXPECT_EQ(reader->readLine(), QStringLiteral("first\n"));
    EXPECT_EQ(reader->readLine(), QStringLiteral("\n"));
    EXPECT_EQ(reader->readLine(), QStringLiteral("last without end"));
    EXPECT_EQ(reader->readLine(), std::nullopt);
    EXPECT_EQ(reader->readLine(), std::nullopt);

    EXPECT_FALSE(XRFileReader::initWithFilePath(dir.filePath(QStringLiteral("missing"))));
    auto empty = XRFileReader::initWithFilePath(fileWith(""));
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->readLine(), std::nullopt);
}

TEST_F(XRFileReaderTest, LongLinesAndCharactersAcrossChunkBordersAreReadWhole) {
    // "é" is two bytes; placed so that it straddles the first chunk border.
    const QByteArray longLine = QByteArray(511, 'a') + "é" + QByteArray(1000, 'b') + "\n";
    auto reader = XRFileReader::initWithFilePath(fileWith(longLine + "short\n"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->readLine(), QString::fromUtf8(longLine));
    EXPECT_EQ(reader->readLine(), QStringLiteral("short\n"));

    auto tiny = XRFileReader::initWithFilePath(fileWith("ab\ncd\n"));
    tiny->setChunkSize(1);
    EXPECT_EQ(allLines(*tiny), (QStringList{QStringLiteral("ab\n"), QStringLiteral("cd\n")}));
}

TEST_F(XRFileReaderTest, TrimmingOtherDelimitersAndStopping) {
    auto reader = XRFileReader::initWithFilePath(fileWith("  padded \r\nnext;one;two"));
    EXPECT_EQ(reader->readTrimmedLine(), QStringLiteral("padded"));
    reader->setLineDelimiter(QStringLiteral(";"));
    EXPECT_EQ(reader->readLine(), QStringLiteral("next;"));

    auto stopping = XRFileReader::initWithFilePath(fileWith("1\n2\n3\n"));
    QStringList seen;
    stopping->enumerateLinesUsingBlock([&seen](const QString& line, bool& stop) {
        seen << line;
        stop = seen.size() == 2;
    });
    EXPECT_EQ(seen, (QStringList{QStringLiteral("1\n"), QStringLiteral("2\n")}));
    EXPECT_EQ(stopping->readLine(), QStringLiteral("3\n"));
}

TEST_F(XRFileReaderTest, InvalidUtf8EndsTheReadingAndLaterAppendsAreNotSeen) {
    const QString path = fileWith("good\nbad \xff\xfe\nnever\n");
    auto reader = XRFileReader::initWithFilePath(path);
    EXPECT_EQ(allLines(*reader), QStringList{QStringLiteral("good\n")});

    auto sizedEarly = XRFileReader::initWithFilePath(fileWith("one\n"));
    QFile file(sizedEarly->filePath());
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("two\n");
    file.close();
    EXPECT_EQ(allLines(*sizedEarly), QStringList{QStringLiteral("one\n")});
}

TEST(RangeOfDataTest, FindsTheFirstMatchWithTheNeedlesLength) {
    EXPECT_EQ(rangeOfData_xr("abc\ndef\n", "\n"), (ByteRange{3, 1}));
    EXPECT_EQ(rangeOfData_xr("\n", "\n"), (ByteRange{0, 1}));
    EXPECT_EQ(rangeOfData_xr("xx\r\nyy", "\r\n"), (ByteRange{2, 2}));
    EXPECT_EQ(rangeOfData_xr("abc", "\n"), (ByteRange{ByteRange::kNotFound, 1}));
    EXPECT_EQ(rangeOfData_xr("", "\n"), (ByteRange{ByteRange::kNotFound, 1}));
    EXPECT_EQ(rangeOfData_xr("abc", ""), (ByteRange{ByteRange::kNotFound, 0}));
}

TEST(RangeOfDataTest, KeepsItsTwoShortcutsForLongerNeedles) {
    // The byte that breaks a match is not tried as the start of a new one.
    EXPECT_EQ(rangeOfData_xr("aab", "ab"), (ByteRange{ByteRange::kNotFound, 2}));
    // A match cut off by the end of the data counts as found.
    EXPECT_EQ(rangeOfData_xr("xxa", "ab"), (ByteRange{2, 2}));
}

}  // namespace
