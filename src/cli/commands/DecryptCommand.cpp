#include "DecryptCommand.h"

using namespace Qt::Literals::StringLiterals;

DecryptCommand::DecryptCommand(CliMessages& messages, CliAccount& account)
    : FileRunCommand(messages, account, u"decrypt"_s, u"Open protected files sent to you."_s,
                     false) {}

int DecryptCommand::run() {
    if (const auto done = takeFiles()) {
        return *done;
    }
    const QString folder = takeOutputFolder();
    if (folder.isEmpty()) {
        return Failure;
    }
    return runFiles(folder, {}, false, parser().isSet(m_requireVerified));
}
