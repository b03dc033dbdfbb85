#include "LogRecorder.h"

#include <QLoggingCategory>

namespace {
LogRecorder* g_active = nullptr;
}

LogRecorder::LogRecorder(QString category) : m_category(std::move(category)) {
    // Make sure the category's messages are produced at all.
    QLoggingCategory::setFilterRules(m_category + QStringLiteral(".debug=true"));
    g_active = this;
    m_previous = qInstallMessageHandler(&LogRecorder::handler);
}

LogRecorder::~LogRecorder() {
    qInstallMessageHandler(m_previous);
    g_active = nullptr;
}

void LogRecorder::handler(QtMsgType type, const QMessageLogContext& context,
                          const QString& message) {
    if (g_active != nullptr && context.category != nullptr &&
        g_active->m_category == QLatin1StringView(context.category)) {
        g_active->m_lines.append(message);
        return;
    }
    if (g_active != nullptr && g_active->m_previous != nullptr) {
        g_active->m_previous(type, context, message);
    }
}
