#include "contacts/RecipientSearch.h"

#include <QLoggingCategory>
#include <stdexcept>

#include "account/NivoProfileAdmin.h"
#include "contacts/ContactPreset.h"
#include "storage/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcRecipients, "nivogx.recipients")

namespace {

const char* const kUnableToAddSelf = QT_TRANSLATE_NOOP("RecipientSearch", "Unable to add self.");
const char* const kUserDoesNotExist = QT_TRANSLATE_NOOP("RecipientSearch", "User does not exists");
// Stored in the database as a preset name: never translated.
const QString kLastUsedContacts = u"Last used contacts"_s;

}  // namespace

QString RecipientSearch::unableToAddSelf() {
    return tr(kUnableToAddSelf);
}
QString RecipientSearch::userDoesNotExist() {
    return tr(kUserDoesNotExist);
}
QString RecipientSearch::lastUsedPresetName() {
    return kLastUsedContacts;
}

QString RecipientSearch::normalised(const QString& typed) {
    return typed.trimmed().toLower();
}

RecipientSearch::Result RecipientSearch::find(const QString& typedNivoId) {
    const QString nivoId = normalised(typedNivoId);
    Result result;
    if (nivoId == NivoGXUtil::getNivoUsername().toLower()) {
        result.alert = AccountAlert{unableToAddSelf(), QString()};
        return result;
    }
    for (const Contact& contact : NivoGXUtil::getContactList()) {
        if (contact.NivoID == nivoId) {
            result.contact = contact;
            return result;
        }
    }
    NivoProfile answer;
    try {
        // The searched name also goes as the requester: the server has always been asked so.
        answer = NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(nivoId, nivoId);
    } catch (const std::invalid_argument& e) {
        qCWarning(lcRecipients) << "Malformed ID answer:" << e.what();
        answer = NivoProfile::failure(NivoProfileAdmin::kServerUnableToProcess);
    }
    if (answer.Cer.isEmpty() || !answer.StatusText.isEmpty()) {
        result.alert = AccountAlert{userDoesNotExist(), answer.StatusText};
        return result;
    }
    Contact contact;
    contact.NivoID = nivoId;
    contact.DisplayName = nivoId;
    contact.CertData = answer.Cer;
    contact.ID = NivoGXUtil::addContact(contact);
    result.contact = contact;
    result.added = true;
    return result;
}

void RecipientSearch::rememberSelection(const QList<Contact>& recipients) {
    ContactPreset preset;
    preset.name = kLastUsedContacts;
    for (const Contact& contact : recipients) {
        preset.contactThreadList.append(contact.ID);
    }
    (void)NivoGXUtil::saveContactPreset(preset);
}

QList<Contact> RecipientSearch::rememberedSelection() {
    const QList<ContactPreset> presets = NivoGXUtil::GetContactPreset();
    if (presets.isEmpty()) {
        return {};
    }
    // Whatever its name: the first preset is the remembered one.
    const QList<Contact> contacts = NivoGXUtil::getContactList();
    QList<Contact> chosen;
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
