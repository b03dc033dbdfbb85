#include "LogCommand.h"

#include <optional>

#include "CliAccount.h"
#include "CliMessages.h"
#include "log/LogQuery.h"
#include "log/VisibleText.h"
#include "session/NivoGXUtil.h"
#include "session/UserDataExport.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kExportAction = u"export"_s;
const QString kClearAction = u"clear"_s;
const QString kActionHelp = u"[export FILE | clear]"_s;
const QString kTypeEncrypt = u"encrypt"_s;
const QString kTypeDecrypt = u"decrypt"_s;
const QString kUnknownType = u"Unknown type: %1"_s;
const QString kUnknownColumn = u"Unknown column: %1"_s;
const QString kLogCleared = u"Log cleared."_s;
const QString kFieldSeparator = u" | "_s;

}  // namespace

LogCommand::LogCommand(CliMessages& messages, CliAccount& account)
    : CliCommand(messages, u"log"_s, u"List, export or clear your activity log."_s),
      m_account(account) {
    argument(u"action"_s, kActionHelp, kActionHelp);
}

QString LogCommand::defaultColumn() {
    return LogQuery::kFile;
}

int LogCommand::run() {
    const QStringList given = positional();
    const QString action = given.value(0);
    if (!action.isEmpty() && action != kExportAction && action != kClearAction) {
        return unknownAction(action);
    }
    if (given.size() != (action == kExportAction ? 2 : (action.isEmpty() ? 0 : 1))) {
        return wrongArgumentCount();
    }
    LogQuery::Operation operation = LogQuery::Operation::All;
    if (parser().isSet(m_type)) {
        const QString type = parser().value(m_type).toLower();
        if (type != kTypeEncrypt && type != kTypeDecrypt) {
            return usageError(kUnknownType.arg(parser().value(m_type)));
        }
        operation =
            type == kTypeEncrypt ? LogQuery::Operation::Encrypt : LogQuery::Operation::Decrypt;
    }
    std::optional<LogQuery::Column> sortColumn;
    if (parser().isSet(m_sort)) {
        sortColumn = LogQuery::columnNamed(parser().value(m_sort));
        if (!sortColumn) {
            return usageError(kUnknownColumn.arg(parser().value(m_sort)));
        }
    }
    if (!m_account.requireSignIn()) {
        return Failure;
    }

    if (action == kClearAction) {
        NivoGXUtil::clearLogFile();
        messages().done(kLogCleared, {{u"cleared"_s, true}});
        return Success;
    }
    if (action == kExportAction) {
        const UserDataExport::Result result = UserDataExport::exportLog(given.at(1));
        return reportExport(result.failure, result.path);
    }

    QList<LogEntry> entries = LogQuery::ofOperation(NivoGXUtil::getLogEntries(), operation);
    // The viewer searches with the trimmed, lower-cased text of its field.
    entries = LogQuery::search(entries, parser().value(m_column),
                               parser().value(m_search).trimmed().toLower());
    if (sortColumn) {
        LogQuery::sort(entries, *sortColumn, !parser().isSet(m_desc));
    }
    for (const LogEntry& entry : entries) {
        // The status holds the line's ending.
        const QString status = QString(entry.status).remove(u'\r').remove(u'\n');
        if (parser().isSet(m_json)) {
            out() << CliMessages::jsonLine({{u"date"_s, entry.date},
                                            {u"time"_s, entry.time},
                                            {u"type"_s, entry.operationType},
                                            {u"file"_s, entry.filePath},
                                            {u"recipients"_s, entry.recipients},
                                            {u"status"_s, status}})
                  << Qt::endl;
        } else {
            // The log escapes what it writes; lines from older versions may still hold controls.
            out() << VisibleText::ofEscaped(QStringList{entry.date, entry.time, entry.operationType,
                                                        entry.filePath, entry.recipients, status}
                                                .join(kFieldSeparator))
                  << Qt::endl;
        }
    }
    return Success;
}
