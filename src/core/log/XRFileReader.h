#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QFile>
#include <QString>
#include <QtGlobal>
#include <functional>
#include <memory>
#include <optional>

// Reads a text file line by line in small chunks, so that a long log never has to fit in memory
// at once. The file's length is taken when the reader is made: lines appended afterwards are not
// seen. Lines are UTF-8; an invalid one ends the reading.
class XRFileReader {
public:
    // The line and a flag the callback sets to stop the enumeration.
    using LineCallback = std::function<void(const QString& line, bool& stop)>;

    static constexpr quint64 kDefaultChunkSize = 512;

    // None when the file cannot be opened for reading.
    [[nodiscard]] static std::unique_ptr<XRFileReader> initWithFilePath(const QString& filePath);

    // The next line with its delimiter (the last line may have none); none at the end.
    [[nodiscard]] std::optional<QString> readLine();
    // The same without white space and line breaks at either end.
    [[nodiscard]] std::optional<QString> readTrimmedLine();
    void enumerateLinesUsingBlock(const LineCallback& callback);

    [[nodiscard]] const QString& filePath() const noexcept { return m_filePath; }
    [[nodiscard]] const QString& lineDelimiter() const noexcept { return m_lineDelimiter; }
    void setLineDelimiter(const QString& delimiter) {
        m_lineDelimiter = delimiter;
        m_delimiterBytes = delimiter.toUtf8();
    }
    [[nodiscard]] quint64 chunkSize() const noexcept { return m_chunkSize; }
    void setChunkSize(quint64 size) noexcept { m_chunkSize = size; }

private:
    explicit XRFileReader(const QString& filePath);

    // Up to `size` bytes of the file from `offset` on, as one read there would give; empty at
    // the end. Served from a read-ahead block, so that a line costs no system call of its own.
    [[nodiscard]] QByteArrayView chunkAt(quint64 offset, quint64 size);

    QString m_filePath;
    QFile m_file;
    quint64 m_currentOffset = 0;
    quint64 m_totalFileLength = 0;
    QString m_lineDelimiter = QStringLiteral("\n");
    quint64 m_chunkSize = kDefaultChunkSize;
    QByteArray m_delimiterBytes = QByteArrayLiteral("\n");
    // Bytes of the file from m_aheadOffset on.
    QByteArray m_ahead;
    quint64 m_aheadOffset = 0;
};
