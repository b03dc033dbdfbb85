#include "log/XRFileReader.h"

#include <QStringDecoder>

#include "log/ByteRange.h"

XRFileReader::XRFileReader(const QString& filePath) : m_filePath(filePath), m_file(filePath) {}

std::unique_ptr<XRFileReader> XRFileReader::initWithFilePath(const QString& filePath) {
    std::unique_ptr<XRFileReader> reader(new XRFileReader(filePath));
    if (!reader->m_file.open(QIODevice::ReadOnly)) {
        return nullptr;
    }
    reader->m_totalFileLength = static_cast<quint64>(reader->m_file.size());
    return reader;
}

std::optional<QString> XRFileReader::readLine() {
    if (m_currentOffset >= m_totalFileLength) {
        return std::nullopt;
    }
    const QByteArray delimiter = m_lineDelimiter.toUtf8();
    if (!m_file.seek(static_cast<qint64>(m_currentOffset))) {
        return std::nullopt;
    }
    QByteArray line;
    bool found = false;
    while (!found && m_currentOffset < m_totalFileLength) {
        QByteArray chunk = m_file.read(static_cast<qint64>(m_chunkSize));
        if (chunk.isEmpty()) {
            // The file shrank under us; what is left is gone.
            m_currentOffset = m_totalFileLength;
            break;
        }
        const ByteRange range = rangeOfData_xr(chunk, delimiter);
        if (range.location != ByteRange::kNotFound) {
            chunk.truncate(range.location + range.length);
            found = true;
        }
        line.append(chunk);
        m_currentOffset += static_cast<quint64>(chunk.size());
    }
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder.decode(line);
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
