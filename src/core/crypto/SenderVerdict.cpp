#include "crypto/SenderVerdict.h"

using namespace Qt::Literals::StringLiterals;

QString SenderVerdict::reason() const {
    QString text;
    switch (trust) {
    case Trust::Verified:
        break;
    case Trust::NoCertificate:
        text = u"no signer certificate in the file"_s;
        break;
    case Trust::SelfSigned:
        text = u"self-signed certificate"_s;
        break;
    case Trust::OtherAuthority:
        text = u"issued by another authority"_s;
        break;
    case Trust::Expired:
        text = u"certificate expired at signing time"_s;
        break;
    case Trust::NotYetValid:
        text = u"certificate not yet valid at signing time"_s;
        break;
    case Trust::NotForSigning:
        text = u"certificate not meant for signing"_s;
        break;
    }
    if (!impersonatedContact.isEmpty() && !text.isEmpty()) {
        text += u"; not the certificate stored for contact %1"_s.arg(impersonatedContact);
    }
    return text;
}
