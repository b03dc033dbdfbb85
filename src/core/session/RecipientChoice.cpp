#include "session/RecipientChoice.h"

#include <QLoggingCategory>
#include <algorithm>
#include <stdexcept>

#include "account/NivoProfileAdmin.h"
#include "account/NivoProfileCommon.h"
#include "crypto/CertificateTrust.h"
#include "model/ContactPreset.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcRecipients, "nivogx.contacts.recipients")

const QString RecipientChoice::kLastUsedContacts = u"Last used contacts"_s;

namespace {

const char* const kUnableToAddSelf = QT_TRANSLATE_NOOP("RecipientChoice", "Unable to add self.");
const char* const kUserDoesNotExist = QT_TRANSLATE_NOOP("RecipientChoice", "User does not exists");
const char* const kUntrustedCertificate = QT_TRANSLATE_NOOP(
    "RecipientChoice", "The certificate the server gave for %1 cannot be trusted: %2.");
const char* const kProceedWithoutRecipients =
    QT_TRANSLATE_NOOP("RecipientChoice", "Do you wish to proceed without other recipients?");
const char* const kNoRecipientsSelected =
    QT_TRANSLATE_NOOP("RecipientChoice", "No recipients selected");
const char* const kSelectOutputFolder =
    QT_TRANSLATE_NOOP("RecipientChoice", "Select folder to store encrypted files");

}  // namespace

QString RecipientChoice::unableToAddSelf() {
    return tr(kUnableToAddSelf);
}

QString RecipientChoice::userDoesNotExist() {
    return tr(kUserDoesNotExist);
}

QString RecipientChoice::proceedWithoutRecipients() {
    return tr(kProceedWithoutRecipients);
}

QString RecipientChoice::noRecipientsSelected() {
    return tr(kNoRecipientsSelected);
}

QString RecipientChoice::selectOutputFolder() {
    return tr(kSelectOutputFolder);
}

QString RecipientChoice::normalized(const QString& typed) {
    return typed.trimmed().toLower();
}

bool RecipientChoice::isSelf(const QString& name) {
    return name == NivoGXUtil::getNivoUsername().toLower();
}

void RecipientChoice::sortByNivoId(QList<Contact>& contacts) {
    std::stable_sort(contacts.begin(), contacts.end(), [](const Contact& a, const Contact& b) {
        return a.NivoID.compare(b.NivoID, Qt::CaseInsensitive) < 0;
    });
}

qsizetype RecipientChoice::indexOf(const QList<Contact>& contacts, const QString& name) {
    for (qsizetype i = 0; i < contacts.size(); ++i) {
        if (contacts.at(i).NivoID == name) {
            return i;
        }
    }
    return -1;
}

NivoProfile RecipientChoice::lookUp(const QString& name) {
    try {
        NivoProfile answer = NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(name, name);
        if (!answer.Cer.isEmpty() && answer.StatusText.isEmpty()) {
            // Whoever answers (a proxy, a server that was broken into) must not hand out keys of
            // its own: only a certificate the service issued to that very name is kept.
            const QString problem = CertificateTrust::contactCertificateProblem(
                answer.Cer, name, NivoProfileCommon::getNivoRootCer());
            if (!problem.isEmpty()) {
                qCWarning(lcRecipients) << "refused the certificate given for" << name << problem;
                return NivoProfile::failure(tr(kUntrustedCertificate).arg(name, problem));
            }
        }
        return answer;
    } catch (const std::invalid_argument& e) {
        // A malformed answer is the server's fault; the user learns only that nobody was found.
        qCWarning(lcRecipients) << "unreadable answer for" << name << e.what();
        return {};
    }
}

std::optional<Contact> RecipientChoice::addLookedUp(const QString& name,
                                                    const NivoProfile& answer) {
    if (answer.Cer.isEmpty() || !answer.StatusText.isEmpty()) {
        return std::nullopt;
    }
    Contact contact;
    contact.DisplayName = name;
    contact.NivoID = name;
    contact.CertData = answer.Cer;
    contact.ID = NivoGXUtil::addContact(contact);
    return contact;
}

QList<Contact> RecipientChoice::lastChoice(const QList<Contact>& contacts) {
    const QList<ContactPreset> presets = NivoGXUtil::GetContactPreset();
    QList<Contact> chosen;
    if (presets.isEmpty()) {
        return chosen;
    }
    // Contacts deleted since are skipped.
    for (const qint64 id : presets.constFirst().contactThreadList) {
        for (const Contact& contact : contacts) {
            if (contact.ID == id) {
                chosen.append(contact);
                break;
            }
        }
    }
    return chosen;
}

void RecipientChoice::rememberChoice(const QList<Contact>& recipients) {
    ContactPreset preset;
    preset.name = kLastUsedContacts;
    for (const Contact& contact : recipients) {
        preset.contactThreadList.append(contact.ID);
    }
    NivoGXUtil::saveContactPreset(preset);
}
