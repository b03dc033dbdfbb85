#include "CliCertificate.h"

#include <QDateTime>
#include <QString>

#include "crypto/CertificateTrust.h"
#include "log/VisibleText.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kShownSubject = u"Subject:  %1"_s;
const QString kShownIssuer = u"Issuer:   %1"_s;
const QString kShownValidity = u"Valid:    %1 to %2"_s;
const QString kShownFingerprint = u"SHA-256:  %1"_s;
const QString kUnreadableCertificate = u"Certificate: unreadable"_s;

}  // namespace

void CliCertificate::print(QTextStream& out, const QByteArray& der) {
    const auto details = CertificateTrust::describe(der);
    if (!details) {
        out << kUnreadableCertificate << Qt::endl;
        return;
    }
    const auto when = [](const QDateTime& time) {
        return time.toUTC().toString(u"yyyy-MM-dd HH:mm:ss 'UTC'"_s);
    };
    out << kShownSubject.arg(VisibleText::of(details->subject)) << Qt::endl
        << kShownIssuer.arg(VisibleText::of(details->issuer)) << Qt::endl
        << kShownValidity.arg(when(details->notBefore), when(details->notAfter)) << Qt::endl
        << kShownFingerprint.arg(details->sha256) << Qt::endl;
}
