#include "SignoutCommand.h"

#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

SignoutCommand::SignoutCommand(CliMessages& messages)
    : CliCommand(messages, u"signout"_s, u"Sign out: forget the password and the key files."_s, 0) {
}

int SignoutCommand::run() {
    NivoGXUtil::logout();
    out() << u"Signed out."_s << Qt::endl;
    return Success;
}
