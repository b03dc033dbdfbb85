#pragma once

#include <QFileDevice>
#include <QString>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

#include "crypto/toolkit/TVXStream.h"

class AtomicFile;
class QFile;
class QIODevice;

// A stream over a file. A writing stream puts its bytes in a temporary file beside the target that
// takes the target's name only on commit() (see AtomicFile); closing without commit() leaves
// nothing behind, so a failed operation never leaves a partial file under the target name.
class ComTruvexIO_FileStream final : public TVXStream {
public:
    ~ComTruvexIO_FileStream() override;

    // Bytes read so far and the file's size.
    using ReadProgress = std::function<void(qint64 done, qint64 total)>;

    // Texts of the reading stream's failures.
    static const QString kInputChanged;
    static const QString kInputGone;
    static const QString kInputUnreadable;
    static const QString kStopped;

    // Both throw a TVXException (TVXStreamOperationException) when the file cannot be opened.
    // A reading stream tells `progress` (when given) how far it has read: at the start, about
    // every MiB and at the end. Once `cancelled` (when given) turns true, its next read fails.
    [[nodiscard]] static std::unique_ptr<ComTruvexIO_FileStream> initForReading(
        const QString& path, ReadProgress progress = {},
        const std::atomic<bool>* cancelled = nullptr);
    // The file gets `permissions` when given, else the usual ones for new files.
    [[nodiscard]] static std::unique_ptr<ComTruvexIO_FileStream> initForWriting(
        const QString& path, std::optional<QFileDevice::Permissions> permissions = std::nullopt);

    // Reading: throws when the reading was cancelled, or the file is gone or is no longer the
    // one opened (another file, size or modification time). Called after the last byte, and
    // after a failure, whose cause it may be.
    void ensureIntact() const;
    // Writing: why a write into the file failed (a full disk, say); "" while none did.
    [[nodiscard]] QString writeFailure() const;
    // Makes the written file appear under its name, replacing any file there; throws when that
    // fails. With `nextName` it never replaces a file: a name found taken makes way for the next
    // one it gives, and path() says where the file went.
    void commit(const std::function<QString(const QString& taken)>& nextName = {});
    // Instead of commit(): hands the written file, read from its start, to `take`, which sends
    // it on and answers "" or its failure; the file then goes, never having had a name. Throws
    // `take`'s failure, or that of reading the file back.
    void handOver(const std::function<QString(QIODevice& written)>& take);
    [[nodiscard]] const QString& path() const noexcept { return m_path; }

    void close() override;
    [[nodiscard]] bio_st* bio() override;
    [[nodiscard]] QByteArray readAll() override;

private:
    class WatchedFile;
    ComTruvexIO_FileStream(QString path, std::unique_ptr<WatchedFile> input,
                           std::unique_ptr<AtomicFile> output);

    QString m_path;
    std::unique_ptr<WatchedFile> m_input;   // reading
    std::unique_ptr<AtomicFile> m_output;   // writing
    bool m_committed = false;
    struct Bio;
    std::unique_ptr<Bio> m_bio;
};
