#include "ProfileCommand.h"

#include "CliAccount.h"
#include "session/UserDataExport.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kExportAction = u"export"_s;
const QString kActionHelp = u"export FILE"_s;

}  // namespace

ProfileCommand::ProfileCommand(CliMessages& messages, CliAccount& account)
    : CliCommand(messages, u"profile"_s, u"Export your profile for offline sign-in."_s),
      m_account(account) {
    argument(u"action"_s, kActionHelp, kActionHelp);
}

int ProfileCommand::run() {
    const QStringList given = positional();
    if (given.value(0) != kExportAction) {
        return unknownAction(given.value(0));
    }
    if (given.size() != 2) {
        return wrongArgumentCount();
    }
    if (!m_account.requireSignIn()) {
        return Failure;
    }
    const UserDataExport::Result result = UserDataExport::exportProfile(given.at(1));
    return reportExport(result.failure, result.path);
}
