#pragma once

#include <QFileDevice>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

#include "crypto/TVXStream.h"

class AtomicFile;
class QFile;

// A stream over a file. A writing stream puts its bytes in a temporary file beside the target that
// takes the target's name only on commit() (see AtomicFile); closing without commit() leaves
// nothing behind, so a failed operation never leaves a partial file under the target name.
class ComTruvexIO_FileStream final : public TVXStream {
public:
    ~ComTruvexIO_FileStream() override;

    // Bytes read so far and the file's size.
    using ReadProgress = std::function<void(qint64 done, qint64 total)>;

    // Both throw a TVXException (TVXStreamOperationException) when the file cannot be opened.
    // A reading stream tells `progress` (when given) how far it has read: at the start, about
    // every MiB and at the end.
    [[nodiscard]] static std::unique_ptr<ComTruvexIO_FileStream> initForReading(
        const QString& path, ReadProgress progress = {});
    // The file gets `permissions` when given, else the usual ones for new files.
    [[nodiscard]] static std::unique_ptr<ComTruvexIO_FileStream> initForWriting(
        const QString& path, std::optional<QFileDevice::Permissions> permissions = std::nullopt);

    // Makes the written file appear under its name; throws when that fails.
    void commit();

    void close() override;
    [[nodiscard]] bio_st* bio() override;
    [[nodiscard]] QByteArray readAll() override;

private:
    ComTruvexIO_FileStream(QString path, std::unique_ptr<QFile> input,
                           std::unique_ptr<AtomicFile> output);

    QString m_path;
    std::unique_ptr<QFile> m_input;         // reading
    std::unique_ptr<AtomicFile> m_output;   // writing
    bool m_committed = false;
    struct Bio;
    std::unique_ptr<Bio> m_bio;
};
