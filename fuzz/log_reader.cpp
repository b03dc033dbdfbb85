// The activity log is a plain file in the user's folder that anything may have written to: any
// bytes must read back as lines and entries, the same lines whatever the chunk size.
#include <QFile>
#include <QStringList>

#include "FuzzSupport.h"
#include "log/ActivityLog.h"
#include "log/XRFileReader.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList readLines(const QString& path, quint64 chunkSize) {
    const std::unique_ptr<XRFileReader> reader = XRFileReader::initWithFilePath(path);
    FUZZ_CHECK(reader != nullptr, u"the log cannot be opened"_s);
    reader->setChunkSize(chunkSize);
    QStringList lines;
    reader->enumerateLinesUsingBlock([&lines](const QString& line, bool&) { lines.append(line); });
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzSupport::quietQt();
    const QByteArray bytes = FuzzSupport::bytesOf(data, size);
    const QString path = FuzzSupport::scratchPath(u"fuzz-user.log"_s);
    FUZZ_CHECK(FuzzSupport::writeFile(path, bytes), u"cannot write the log"_s);

    const QList<LogEntry> entries = ActivityLog(path).getLogEntries();
    const QStringList lines = readLines(path, XRFileReader::kDefaultChunkSize);
    const quint64 smallChunk = 1 + (size > 0 ? data[0] % 16 : 0);
    FUZZ_CHECK(readLines(path, smallChunk) == lines, u"lines depend on the chunk size"_s);

    // The lines are the file from its start, cut after each "\n", up to the first line that is
    // not UTF-8. The decoder drops a byte order mark at the start of a line, as it would at the
    // start of a file saved by an editor.
    static const QByteArray kByteOrderMark("\xef\xbb\xbf");
    qsizetype offset = 0;
    qsizetype fullLines = 0;
    for (const QString& line : lines) {
        FUZZ_CHECK(!line.chopped(line.endsWith(u'\n') ? 1 : 0).contains(u'\n'),
                   u"a line holds a line break before its end"_s);
        const QByteArray text = line.toUtf8();
        const QByteArrayView rest = QByteArrayView(bytes).sliced(offset);
        if (!rest.startsWith(text) && rest.startsWith(kByteOrderMark) &&
            rest.sliced(kByteOrderMark.size()).startsWith(text)) {
            offset += kByteOrderMark.size();
        }
        FUZZ_CHECK(QByteArrayView(bytes).sliced(offset).startsWith(text),
                   u"a line is not the file's text: "_s + line);
        offset += text.size();
        fullLines += line.split(u" | "_s).size() == 6 ? 1 : 0;
    }
    FUZZ_CHECK(entries.size() == fullLines, u"entries and six-field lines differ"_s);
    for (const LogEntry& entry : entries) {
        for (const QString& field : {entry.date, entry.time, entry.operationType, entry.filePath,
                                     entry.recipients, entry.status}) {
            FUZZ_CHECK(!field.contains(u" | "_s), u"a field holds the separator"_s);
        }
    }
    QFile::remove(path);
    return 0;
}
