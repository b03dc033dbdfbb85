#pragma once

#include <QByteArray>
#include <QFile>
#include <QFileDevice>
#include <QString>
#include <QStringView>
#include <functional>
#include <optional>

#include "platform/TemporaryFiles.h"
#include "platform/WriteBackFile.h"

// Writes a file so that it appears under its final name only complete.
//
// The bytes go to a temporary file in the target's folder, which takes the final name only on
// commit(), which replaces what is there, or commitAsNew(), which never does. Where the system allows it, the temporary file has no name at all until then, so a
// process killed while writing leaves nothing behind. Otherwise, and for the instant of replacing
// an existing file, it is named ".<name>.nivogx-XXXXXXXX.part" and held under an advisory lock
// for as long as its writer lives; removeStaleTemporaries() clears the ones whose writer died.
class AtomicFile {
public:
    static constexpr QFileDevice::Permissions OwnerOnly =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner;

    explicit AtomicFile(QString path);
    // Discards the temporary file unless committed.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    // Starts writing. The file gets exactly `permissions` when given, else the usual ones for
    // new files. False, with errorString() set, when no temporary file can be made.
    [[nodiscard]] bool open(std::optional<QFileDevice::Permissions> permissions = std::nullopt);
    // Where to write between open() and commit().
    [[nodiscard]] QIODevice* device() { return &m_file; }
    // Flushes the bytes to disk and puts the file under its name, replacing any file there.
    // False, with nothing under the name changed, when any write or this step failed.
    [[nodiscard]] bool commit();
    // Given a path found taken, the next one to try; "" to give up.
    using NextName = std::function<QString(const QString& taken)>;
    // Like commit(), but the file takes a name only while it is free: when a file has appeared
    // under the name since it was chosen, `nextName` says where to try instead, and path()
    // becomes the name the file got. Nothing that exists is ever replaced.
    [[nodiscard]] bool commitAsNew(const NextName& nextName);
    // Drops what was written; the final name is left as it was.
    void discard();
    [[nodiscard]] QString errorString() const { return m_error; }
    // Why a write into device() failed, in the words of errorString(); "" while none did.
    [[nodiscard]] QString writeFailure() const;
    [[nodiscard]] const QString& path() const noexcept { return m_path; }
    // A path that opens the temporary file for reading back what was written, valid while this
    // object holds it ("/proc/self/fd/N" while it has no name); for content that goes elsewhere
    // than under a name, such as to a pipe, and is never committed. Flushes first; "", with
    // errorString() set, when a write failed.
    [[nodiscard]] QString readBackPath();

    // Writes `data` as the whole file. False, with `path` untouched and the reason in `error`
    // when given, when the file could not be written.
    [[nodiscard]] static bool write(const QString& path, const QByteArray& data,
                                    QString* error = nullptr,
                                    QFileDevice::Permissions permissions = OwnerOnly);
    // Copies the file at `source` to `path`, replacing any file there only when the copy is
    // complete. False, with `path` untouched and the reason in `error` when given, when the
    // source cannot be read or the copy cannot be written.
    [[nodiscard]] static bool copy(const QString& source, const QString& path,
                                   QString* error = nullptr,
                                   QFileDevice::Permissions permissions = OwnerOnly);

    // Whether `fileName` (no folder) has the form of this class's temporary files.
    [[nodiscard]] static bool isTemporaryName(QStringView fileName) {
        return TemporaryFiles::isTemporaryName(fileName);
    }
    // Removes the temporary files in `folder` whose writer is gone (see TemporaryFiles).
    static int removeStaleTemporaries(const QString& folder) {
        return TemporaryFiles::removeStale(folder);
    }

private:
    bool fail(const QString& message);
    [[nodiscard]] bool openNamed(unsigned mode);
    [[nodiscard]] bool openUnnamed(unsigned mode);
    // Syncs the bytes to disk and gives the file its final name.
    [[nodiscard]] bool putInPlace();
    // Gives the synced file a free name, starting with m_path; never replaces a file.
    [[nodiscard]] bool putInFreePlace(const NextName& nextName);
    [[nodiscard]] bool finishCommit(bool replace, const NextName& nextName);
    // The message for a failure of the system call that made, wrote or placed the file.
    [[nodiscard]] QString describe(int error, const QString& fallback) const;

    QString m_path;
    QString m_temporaryPath;  // empty while the temporary file has no name
    WriteBackFile m_file;     // the temporary file
    int m_fd = -1;
    bool m_committed = false;
    QString m_error;
};
