// The chunked line reader and its byte search.
#include <gtest/gtest.h>

#include <QFile>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <random>

#include "TestFiles.h"
#include "log/ByteRange.h"
#include "log/XRFileReader.h"

namespace {

class XRFileReaderTest : public ::testing::Test {
protected:
    QString fileWith(const QByteArray& data) {
        const QString path = dir.filePath(QStringLiteral("lines.log"));
        EXPECT_TRUE(putFile(path, data));
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

// The lines as reading the file chunk by chunk from each line's start gives them: every chunk
// searched for the delimiter on its own, the line decoded, an invalid one ending the reading.
QStringList chunkByChunk(const QByteArray& data, const QByteArray& delimiter, qsizetype chunk) {
    QStringList lines;
    qsizetype offset = 0;
    while (offset < data.size()) {
        QByteArray line;
        bool found = false;
        while (!found && offset < data.size()) {
            QByteArray piece = data.mid(offset, chunk);
            const ByteRange range = rangeOfData_xr(piece, delimiter);
            if (range.location != ByteRange::kNotFound) {
                piece.truncate(range.location + range.length);
                found = true;
            }
            line += piece;
            offset += piece.size();
        }
        QStringDecoder decoder(QStringDecoder::Utf8);
        const QString text = decoder.decode(line);
        if (decoder.hasError()) {
            break;
        }
        lines << text;
    }
    return lines;
}

TEST_F(XRFileReaderTest, LinesOfAnyLengthComeOutAsChunkByChunkReadingGivesThem) {
    // Short and empty lines, lines far longer than a chunk or the reader's read-ahead, two-byte
    // characters everywhere, a "\r\n" ending, a partial "\r" at the very end.
    std::mt19937 random(11);
    QByteArray data;
    for (int i = 0; i < 900; ++i) {
        const int length = i % 97 == 0 ? 70000 + int(random() % 1000) : int(random() % 300);
        for (int j = 0; j < length; ++j) {
            data += random() % 13 == 0 ? QByteArray("\xc3\xa9") : QByteArray(1, char('a' + j % 26));
        }
        data += i % 5 == 0 ? "\r\n" : "\n";
    }
    data += "end\r";
    const QString path = fileWith(data);
    for (const qsizetype chunk : {1, 7, 512, 4096, 65536, 70001}) {
        for (const QByteArray& delimiter : {QByteArray("\n"), QByteArray("\r\n")}) {
            auto reader = XRFileReader::initWithFilePath(path);
            ASSERT_TRUE(reader);
            reader->setChunkSize(static_cast<quint64>(chunk));
            reader->setLineDelimiter(QString::fromUtf8(delimiter));
            EXPECT_EQ(allLines(*reader), chunkByChunk(data, delimiter, chunk))
                << "chunk " << chunk << ", delimiter of " << delimiter.size();
        }
    }
    // The same with an invalid line in the middle.
    const QByteArray broken = data.left(100000) + "\xff\n" + data.mid(100000);
    auto reader = XRFileReader::initWithFilePath(fileWith(broken));
    EXPECT_EQ(allLines(*reader), chunkByChunk(broken, "\n", 512));
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
