#include "platform/WriteBackFile.h"

#include <cerrno>

#ifdef Q_OS_LINUX
#include <fcntl.h>
#endif

namespace {

// How many bytes the file gathers before it hands them to the disk.
constexpr qint64 kWriteBackStep = qint64{8} << 20;

}  // namespace

qint64 WriteBackFile::writeData(const char* data, qint64 length) {
    const qint64 written = QFile::writeData(data, length);
    if (written < 0 || (written == 0 && length > 0)) {
        if (m_writeError == 0) {
            m_writeError = errno != 0 ? errno : EIO;
        }
        return written;
    }
    if (written == 0) {
        return written;
    }
    m_written += written;
#ifdef Q_OS_LINUX
    if (m_written - m_handedUpTo >= kWriteBackStep) {
        // Only starts writing, and waits for nothing. It leaves the outcome of the writes to
        // the sync at the end, which therefore still sees any failure: waiting here would
        // collect it instead. A few KiB may have sat in this object's buffer at the previous
        // hand-over, so each one starts where the one before the previous one reached; pages
        // already on their way are skipped.
        (void)::sync_file_range(handle(), m_handedBefore, 0, SYNC_FILE_RANGE_WRITE);
        m_handedBefore = m_handedUpTo;
        m_handedUpTo = m_written;
    }
#endif
    return written;
}
