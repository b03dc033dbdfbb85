#include "log/XRFileReader.h"

#include <QStringDecoder>
#include <algorithm>

#include "log/ByteRange.h"

XRFileReader::XRFileReader(const QString& filePath) : m_filePath(filePath), m_file(filePath) {}

std::unique_ptr<XRFileReader> XRFileReader::initWithFilePath(const QString& filePath) {
    std::unique_ptr<XRFileReader> reader(new XRFileReader(filePath));
    if (!reader->m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return nullptr;
    }
    reader->m_totalFileLength = static_cast<quint64>(reader->m_file.size());
    return reader;
}

namespace {

// How much the reader takes from the file at once, whatever its chunk size.
constexpr quint64 kReadAhead = 64 * 1024;

}  // namespace

QByteArrayView XRFileReader::chunkAt(quint64 offset, quint64 size) {
    const auto aheadEnd = m_aheadOffset + static_cast<quint64>(m_ahead.size());
    if (offset < m_aheadOffset || offset + size > aheadEnd) {
        m_ahead.clear();
        m_aheadOffset = offset;
        if (m_file.seek(static_cast<qint64>(offset))) {
            m_ahead = m_file.read(static_cast<qint64>(std::max(size, kReadAhead)));
        }
    }
    const quint64 start = offset - m_aheadOffset;
    const quint64 available = static_cast<quint64>(m_ahead.size()) - start;
    return QByteArrayView(m_ahead).sliced(static_cast<qsizetype>(start),
                                          static_cast<qsizetype>(std::min(size, available)));
}

std::optional<QString> XRFileReader::readLine() {
    if (m_currentOffset >= m_totalFileLength) {
        return std::nullopt;
    }
    QByteArray line;
    QByteArrayView lineBytes;
    bool found = false;
    while (!found && m_currentOffset < m_totalFileLength) {
        QByteArrayView chunk = chunkAt(m_currentOffset, m_chunkSize);
        if (chunk.isEmpty()) {
            // The file shrank under us; what is left is gone.
            m_currentOffset = m_totalFileLength;
            break;
        }
        const ByteRange range = rangeOfData_xr(chunk, m_delimiterBytes);
        if (range.location != ByteRange::kNotFound) {
            // A delimiter cut off by the chunk's end counts as found; the chunk stays whole.
            chunk.truncate(std::min(range.location + range.length, chunk.size()));
            found = true;
        }
        // A line that ends within its first chunk is decoded where it lies; a longer one is
        // gathered first (the next chunk may take the read-ahead block's place).
        if (found && line.isEmpty()) {
            lineBytes = chunk;
        } else {
            line.append(chunk);
            lineBytes = line;
        }
        m_currentOffset += static_cast<quint64>(chunk.size());
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder.decode(lineBytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

std::optional<QString> XRFileReader::readTrimmedLine() {
    std::optional<QString> line = readLine();
    if (line) {
        *line = line->trimmed();
    }
    return line;
}

void XRFileReader::enumerateLinesUsingBlock(const LineCallback& callback) {
    bool stop = false;
    while (!stop) {
        const std::optional<QString> line = readLine();
        if (!line) {
            return;
        }
        callback(*line, stop);
    }
}
