#include "WhoamiCommand.h"

#include "CliAccount.h"
#include "CliCertificate.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

WhoamiCommand::WhoamiCommand(CliMessages& messages, CliAccount& account)
    : CliCommand(messages, u"whoami"_s, u"Print the signed-in username."_s, 0),
      m_account(account) {}

int WhoamiCommand::run() {
    if (!NivoGXUtil::hasRequiredCredentials()) {
        m_account.reportNotSignedIn();
        return Failure;
    }
    out() << NivoGXUtil::getNivoUsername() << Qt::endl;
    if (parser().isSet(m_verbose)) {
        const auto profile = NivoGXUtil::getNivoProfile();
        CliCertificate::print(out(), profile ? profile->Cer : QByteArray());
    }
    return Success;
}
