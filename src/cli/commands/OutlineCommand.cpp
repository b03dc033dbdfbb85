#include "OutlineCommand.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QTemporaryFile>

#include "CliMessages.h"
#include "crypto/cms/CmsArmour.h"
#include "crypto/cms/CmsOutline.h"
#include "log/VisibleText.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kFailedLine = u"%1: %2"_s;
const QString kLayerLine = u"Layer: %1"_s;
const QString kEncryptionLine = u"Content encryption: %1"_s;
const QString kInnerLine = u"Content: %1 (a signed layer, hidden until the file is opened)"_s;
const QString kRecipientsLine = u"Recipients: %1"_s;
const QString kRecipientLine = u"  %1  %2, %3"_s;
const QString kUnknownRecipient = u"(unknown)"_s;
const QString kIssuerSerial = u", issuer %1, serial %2"_s;
const QString kKeyId = u", key identifier %1"_s;

}  // namespace

OutlineCommand::OutlineCommand(CliMessages& messages)
    : CliCommand(
          messages, u"inspect"_s,
          u"Show the layers, algorithms and recipients of a protected file without opening it."_s,
          1) {
    argument(u"file"_s, u"A protected file."_s, u"FILE"_s);
}

int OutlineCommand::run() {
    const QString path = positional().constFirst();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        messages().say(kFailedLine.arg(VisibleText::of(path), file.errorString()));
        return Failure;
    }

    // Recipients are named after the contacts and the user when signed in; otherwise by
    // certificate only.
    QStringList names;
    QList<QByteArray> certificates;
    if (NivoGXUtil::generateRequiredDirectory()) {
        NivoGXUtil::generateUserContactDB(NivoGXUtil::getNivoUsername());
        for (const Contact& contact : NivoGXUtil::getContactList()) {
            names << contact.NivoID;
            certificates << contact.CertData;
        }
        if (const auto own = NivoGXUtil::getNivoProfile()) {
            names << NivoGXUtil::getNivoUsername();
            certificates << own->Cer;
        }
    }
    // Armour is looked through: the message it carries is inspected.
    QTemporaryFile unwrapped;
    QIODevice* message = &file;
    if (CmsArmour::isArmoured(path)) {
        if (!unwrapped.open()) {
            messages().say(kFailedLine.arg(VisibleText::of(path), unwrapped.errorString()));
            return Failure;
        }
        if (const QString failure = CmsArmour::unwrap(file, unwrapped); !failure.isEmpty()) {
            messages().say(kFailedLine.arg(VisibleText::of(path), failure));
            return Failure;
        }
        unwrapped.seek(0);
        message = &unwrapped;
    }
    const CmsOutline inspection = CmsOutline::inspect(*message, certificates);
    if (!inspection.failure.isEmpty()) {
        messages().say(kFailedLine.arg(VisibleText::of(path), VisibleText::of(inspection.failure)));
        return Failure;
    }
    const auto nameOf = [&names](const CmsOutline::Recipient& r) {
        return r.certificateIndex >= 0 ? names.at(r.certificateIndex) : QString();
    };

    if (parser().isSet(m_json)) {
        QJsonArray recipients;
        for (const CmsOutline::Recipient& r : inspection.recipients) {
            const QString name = nameOf(r);
            recipients.append(QJsonObject{
                {u"nivoId"_s, name.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(name)},
                {u"kind"_s, r.kind},
                {u"keyAlgorithm"_s, r.keyAlgorithm},
                {u"issuer"_s, r.issuer},
                {u"serial"_s, r.serialNumber},
                {u"keyIdentifier"_s, r.keyIdentifier}});
        }
        out() << CliMessages::jsonLine({{u"input"_s, path},
                                        {u"layer"_s, inspection.layer},
                                        {u"contentEncryption"_s, inspection.contentEncryption},
                                        {u"content"_s, inspection.innerContentType},
                                        {u"recipients"_s, recipients}})
              << Qt::endl;
        return Success;
    }
    out() << kLayerLine.arg(inspection.layer) << Qt::endl
          << kEncryptionLine.arg(inspection.contentEncryption) << Qt::endl
          << kInnerLine.arg(inspection.innerContentType) << Qt::endl
          << kRecipientsLine.arg(inspection.recipients.size()) << Qt::endl;
    for (const CmsOutline::Recipient& r : inspection.recipients) {
        const QString name = nameOf(r);
        QString line =
            kRecipientLine.arg(name.isEmpty() ? kUnknownRecipient : name, r.kind, r.keyAlgorithm);
        if (name.isEmpty() && !r.issuer.isEmpty()) {
            line += kIssuerSerial.arg(r.issuer, r.serialNumber);
        } else if (name.isEmpty() && !r.keyIdentifier.isEmpty()) {
            line += kKeyId.arg(r.keyIdentifier);
        }
        out() << VisibleText::of(line) << Qt::endl;
    }
    return Success;
}
