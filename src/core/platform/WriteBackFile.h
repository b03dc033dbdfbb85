#pragma once

#include <QFile>

// A file being written that, on Linux, hands its bytes to the disk every few MiB as they come, so
// that a sync at the end finds little left to write: a large file is then synced in about the
// time it took to write it, not in one long wait at the end. It also keeps the system's reason
// for a failed write.
class WriteBackFile final : public QFile {
public:
    // The system's error number of the first write that failed; 0 while none did.
    [[nodiscard]] int writeError() const noexcept { return m_writeError; }

protected:
    qint64 writeData(const char* data, qint64 length) override;

private:
    int m_writeError = 0;
    qint64 m_written = 0;
    qint64 m_handedUpTo = 0;    // bytes written at the last hand-over to the disk
    qint64 m_handedBefore = 0;  // the same at the one before
};
