#pragma once

#include <QList>
#include <QQueue>
#include <functional>

#include "shell/Prompter.h"

// Answers the windows' questions from a script and records every prompt. Unscripted questions
// get "No", unscripted panels are cancelled.
class ScriptedPrompter final : public Prompter {
public:
    enum class Kind { Inform, Alert, Ask, Open, Save };

    struct Prompt {
        Kind kind;
        QString message;
        QString informativeText;
        OpenPanel openPanel;
        SavePanel savePanel;
    };

    void inform(QWidget* parent, const QString& message, const QString& informativeText) override;
    void alert(QWidget* parent, const QString& message, const QString& informativeText) override;
    [[nodiscard]] bool ask(QWidget* parent, const QString& message,
                           const QString& informativeText) override;
    [[nodiscard]] QStringList open(QWidget* parent, const OpenPanel& panel) override;
    [[nodiscard]] QString save(QWidget* parent, const SavePanel& panel) override;

    // Called with every alert and question, as it is asked.
    static inline std::function<void(const Prompt&)> onMessage;

    void answerAsk(bool yes) { m_asks.enqueue(yes); }
    void answerOpen(const QStringList& paths) { m_opens.enqueue(paths); }
    void answerSave(const QString& path) { m_saves.enqueue(path); }

    [[nodiscard]] const QList<Prompt>& prompts() const noexcept { return m_prompts; }
    [[nodiscard]] qsizetype count() const noexcept { return m_prompts.size(); }
    [[nodiscard]] const Prompt& last() const { return m_prompts.constLast(); }
    void clear() { m_prompts.clear(); }

private:
    QList<Prompt> m_prompts;
    QQueue<bool> m_asks;
    QQueue<QStringList> m_opens;
    QQueue<QString> m_saves;
};
