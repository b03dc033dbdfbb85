#include "shell/DialogPrompter.h"

#include <QDir>
#include <QFileDialog>
#include <QLabel>
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

// The box's texts are plain text: a file name or a server's answer is never read as markup.
void setTexts(QMessageBox& box, const QString& message, const QString& informativeText) {
    box.setTextFormat(Qt::PlainText);
    box.setText(message);
    box.setInformativeText(informativeText);
    // The message reads as a heading over its explanation. The font is set on the label itself,
    // not through a style sheet, and no width is forced on the labels, so that the box measures
    // the bold text it will draw and grows or wraps to it instead of cutting it off.
    if (auto* label = box.findChild<QLabel*>(u"qt_msgbox_label"_s)) {
        QFont bold = label->font();
        bold.setBold(true);
        label->setFont(bold);
    }
    if (auto* label = box.findChild<QLabel*>(u"qt_msgbox_informativelabel"_s)) {
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
    }
}

}  // namespace

std::unique_ptr<QMessageBox> DialogPrompter::alertBox(QWidget* parent, const QString& message,
                                                      const QString& informativeText) {
    auto box = std::make_unique<QMessageBox>(parent);
    box->setIcon(QMessageBox::Warning);
    setTexts(*box, message, informativeText);
    box->setDefaultButton(box->addButton(tr(kOk), QMessageBox::AcceptRole));
    return box;
}

std::unique_ptr<QMessageBox> DialogPrompter::questionBox(QWidget* parent, const QString& message,
                                                         const QString& informativeText) {
    auto box = std::make_unique<QMessageBox>(parent);
    box->setIcon(QMessageBox::Question);
    setTexts(*box, message, informativeText);
    // Action roles keep the buttons in the order added, whatever the desktop's usual layout.
    QPushButton* no = box->addButton(tr(kNo), QMessageBox::ActionRole);
    no->setObjectName(u"noButton"_s);
    box->addButton(tr(kYes), QMessageBox::ActionRole)->setObjectName(u"yesButton"_s);
    box->setDefaultButton(no);
    box->setEscapeButton(no);
    return box;
}

void DialogPrompter::inform(QWidget* parent, const QString& message,
                            const QString& informativeText) {
    const std::unique_ptr<QMessageBox> box = alertBox(parent, message, informativeText);
    box->setIcon(QMessageBox::Information);
    box->exec();
}

void DialogPrompter::alert(QWidget* parent, const QString& message,
                           const QString& informativeText) {
    alertBox(parent, message, informativeText)->exec();
}

bool DialogPrompter::ask(QWidget* parent, const QString& message, const QString& informativeText) {
    const std::unique_ptr<QMessageBox> box = questionBox(parent, message, informativeText);
    box->exec();
    return box->clickedButton() != nullptr && box->clickedButton()->objectName() == u"yesButton";
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
