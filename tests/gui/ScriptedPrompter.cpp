#include "ScriptedPrompter.h"

void ScriptedPrompter::inform(QWidget*, const QString& message, const QString& informativeText) {
    m_prompts.append({Kind::Inform, message, informativeText, {}, {}});
    if (onMessage) {
        onMessage(m_prompts.constLast());
    }
}

void ScriptedPrompter::alert(QWidget*, const QString& message, const QString& informativeText) {
    m_prompts.append({Kind::Alert, message, informativeText, {}, {}});
    if (onMessage) {
        onMessage(m_prompts.constLast());
    }
}

bool ScriptedPrompter::ask(QWidget*, const QString& message, const QString& informativeText) {
    m_prompts.append({Kind::Ask, message, informativeText, {}, {}});
    if (onMessage) {
        onMessage(m_prompts.constLast());
    }
    return !m_asks.isEmpty() && m_asks.dequeue();
}

QStringList ScriptedPrompter::open(QWidget*, const OpenPanel& panel) {
    m_prompts.append({Kind::Open, panel.message, {}, panel, {}});
    return m_opens.isEmpty() ? QStringList() : m_opens.dequeue();
}

QString ScriptedPrompter::save(QWidget*, const SavePanel& panel) {
    m_prompts.append({Kind::Save, panel.message, {}, {}, panel});
    return m_saves.isEmpty() ? QString() : m_saves.dequeue();
}
