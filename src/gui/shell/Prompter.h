#pragma once

#include <QString>
#include <QStringList>

class QWidget;

// Every modal question the windows ask the user. Controllers never run a dialog themselves, so
// that tests can answer in their place.
class Prompter {
public:
    struct OpenPanel {
        QString message;
        QStringList allowedTypes;    // extensions without the dot; empty: any file
        QString startFolder;         // empty: the platform's choice
        bool chooseFolders = false;  // folders only instead of files only
        bool multipleSelection = false;
        bool canCreateFolders = false;
    };

    struct SavePanel {
        QString message;
        QString allowedType;  // extension without the dot
        QString defaultName;
        QString startFolder;
        bool canCreateFolders = true;
    };

    Prompter() = default;
    Prompter(const Prompter&) = delete;
    Prompter& operator=(const Prompter&) = delete;
    virtual ~Prompter() = default;

    // Something to read, not a problem: one "OK" button.
    virtual void inform(QWidget* parent, const QString& message,
                        const QString& informativeText) = 0;
    // One "OK" button.
    virtual void alert(QWidget* parent, const QString& message, const QString& informativeText) = 0;
    // Buttons "No" (the default) then "Yes"; true for "Yes".
    [[nodiscard]] virtual bool ask(QWidget* parent, const QString& message,
                                   const QString& informativeText) = 0;
    // The chosen paths; empty when cancelled.
    [[nodiscard]] virtual QStringList open(QWidget* parent, const OpenPanel& panel) = 0;
    // The chosen path; empty when cancelled.
    [[nodiscard]] virtual QString save(QWidget* parent, const SavePanel& panel) = 0;
};
