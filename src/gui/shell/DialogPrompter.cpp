#include "shell/DialogPrompter.h"

#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

using namespace Qt::Literals::StringLiterals;

namespace {

// Without a remembered folder a panel starts at home, not wherever the process was started.
QString startIn(const QString& folder) {
    return folder.isEmpty() ? QDir::homePath() : folder;
}

const char* const kOk = QT_TRANSLATE_NOOP("DialogPrompter", "OK");
const char* const kNo = QT_TRANSLATE_NOOP("DialogPrompter", "No");
const char* const kYes = QT_TRANSLATE_NOOP("DialogPrompter", "Yes");
const char* const kFilesOfType = QT_TRANSLATE_NOOP("DialogPrompter", "%1 files (%2)");

QString nameFilter(const QStringList& types) {
    QStringList patterns;
    for (const QString& type : types) {
        patterns << u"*."_s + type;
    }
    return DialogPrompter::tr(kFilesOfType).arg(types.join(u", "_s).toUpper(), patterns.join(u' '));
}

// The message reads as a heading over its explanation, and a short explanation stays on one line
// instead of wrapping in a narrow box.
void style(QMessageBox& box) {
    box.setStyleSheet(
        u"QLabel#qt_msgbox_label { font-weight: bold; min-width: 280px; }"
        u"QLabel#qt_msgbox_informativelabel { min-width: 280px; }"_s);
}

}  // namespace

void DialogPrompter::alert(QWidget* parent, const QString& message,
                           const QString& informativeText) {
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Warning);
    style(box);
    box.setText(message);
    box.setInformativeText(informativeText);
    box.setDefaultButton(box.addButton(tr(kOk), QMessageBox::AcceptRole));
    box.exec();
}

bool DialogPrompter::ask(QWidget* parent, const QString& message, const QString& informativeText) {
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Question);
    style(box);
    box.setText(message);
    box.setInformativeText(informativeText);
    // Action roles keep the buttons in the order added, whatever the desktop's usual layout.
    QPushButton* no = box.addButton(tr(kNo), QMessageBox::ActionRole);
    QPushButton* yes = box.addButton(tr(kYes), QMessageBox::ActionRole);
    box.setDefaultButton(no);
    box.setEscapeButton(no);
    box.exec();
    return box.clickedButton() == yes;
}

QStringList DialogPrompter::open(QWidget* parent, const OpenPanel& panel) {
    QFileDialog dialog(parent, panel.message, startIn(panel.startFolder));
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (panel.chooseFolders) {
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly);
    } else {
        dialog.setFileMode(panel.multipleSelection ? QFileDialog::ExistingFiles
                                                   : QFileDialog::ExistingFile);
        if (!panel.allowedTypes.isEmpty()) {
            dialog.setNameFilter(nameFilter(panel.allowedTypes));
        }
    }
    dialog.setOption(QFileDialog::ReadOnly, !panel.canCreateFolders);
    if (dialog.exec() != QDialog::Accepted) {
        return {};
    }
    return dialog.selectedFiles();
}

QString DialogPrompter::save(QWidget* parent, const SavePanel& panel) {
    QFileDialog dialog(parent, panel.message, startIn(panel.startFolder));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    if (!panel.allowedType.isEmpty()) {
        dialog.setNameFilter(nameFilter({panel.allowedType}));
    }
    dialog.setOption(QFileDialog::ReadOnly, !panel.canCreateFolders);
    dialog.selectFile(panel.defaultName);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return {};
    }
    return dialog.selectedFiles().constFirst();
}
