#pragma once

#include <QCoreApplication>

#include "shell/Prompter.h"

// The prompter of the running application: message boxes and file dialogs, each modal.
class DialogPrompter final : public Prompter {
    Q_DECLARE_TR_FUNCTIONS(DialogPrompter)

public:
    void alert(QWidget* parent, const QString& message, const QString& informativeText) override;
    [[nodiscard]] bool ask(QWidget* parent, const QString& message,
                           const QString& informativeText) override;
    [[nodiscard]] QStringList open(QWidget* parent, const OpenPanel& panel) override;
    [[nodiscard]] QString save(QWidget* parent, const SavePanel& panel) override;
};
