#pragma once

#include <QCoreApplication>
#include <memory>

#include "shell/Prompter.h"

class QMessageBox;

// The prompter of the running application: message boxes and file dialogs, each modal.
class DialogPrompter final : public Prompter {
    Q_DECLARE_TR_FUNCTIONS(DialogPrompter)

public:
    // The boxes that alert() and ask() run, built but not shown.
    [[nodiscard]] static std::unique_ptr<QMessageBox> alertBox(QWidget* parent,
                                                               const QString& message,
                                                               const QString& informativeText);
    [[nodiscard]] static std::unique_ptr<QMessageBox> questionBox(QWidget* parent,
                                                                  const QString& message,
                                                                  const QString& informativeText);

    void inform(QWidget* parent, const QString& message, const QString& informativeText) override;
    void alert(QWidget* parent, const QString& message, const QString& informativeText) override;
    [[nodiscard]] bool ask(QWidget* parent, const QString& message,
                           const QString& informativeText) override;
    [[nodiscard]] QStringList open(QWidget* parent, const OpenPanel& panel) override;
    [[nodiscard]] QString save(QWidget* parent, const SavePanel& panel) override;
};
