#pragma once

#include <QString>

// One row of the file queue: the full path of a file and the text shown beside it (empty until
// the file is marked, then a pending or working status, then the outcome of its run).
struct FileDetails {
    QString filePath;
    QString status;
    // For a file added with its folder: the folders between the output folder and the output,
    // from the added folder's name down ("photos/2024"); empty for a file added on its own.
    QString subFolder;

    // The last component of filePath.
    [[nodiscard]] QString getFilename() const;
    // filePath without its last component.
    [[nodiscard]] QString getFolder() const;

    friend bool operator==(const FileDetails&, const FileDetails&) = default;
};
