#include "ScriptedPrompter.h"

void ScriptedPrompter::alert(QWidget*, const QString& message, const QString& informativeText) {
    m_prompts.append({Kind::Alert, message, informativeText, {}, {}});
}

bool ScriptedPrompter::ask(QWidget*, const QString& message, const QString& informativeText) {
    m_prompts.append({Kind::Ask, message, informativeText, {}, {}});
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
