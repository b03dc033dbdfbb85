#include "NivoCli.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QTemporaryFile>
#include <QThreadPool>
#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "CliPipe.h"
#include "account/AccountServer.h"
#include "account/SignIn.h"
#include "account/SignUp.h"
#include "contacts/ContactDB.h"
#include "contacts/RecipientChoice.h"
#include "crypto/CertificateTrust.h"
#include "crypto/CmsArmour.h"
#include "crypto/CmsOutline.h"
#include "log/LogQuery.h"
#include "log/VisibleText.h"
#include "processing/FileListModel.h"
#include "processing/ProcessController.h"
#include "storage/NivoGXUtil.h"
#include "storage/UserDataExport.h"

using namespace Qt::Literals::StringLiterals;

const QString NivoCli::kApplicationName = u"nivogx-cli"_s;

namespace {

// --- texts of the tool itself (the system's own texts come from the core) ---

const QString kDescription =
    u"Protects files for named recipients and opens files sent to you, "
    u"on the same data as the desktop app."_s;
const QString kServerOption = u"server"_s;
const QString kServerHelp =
    u"Account server base URL (else $NIVOGX_SERVER, else the built-in one)."_s;
const QString kServerValue = u"url"_s;
const QString kCommandArgument = u"command"_s;
const QString kCommandHelp = u"The command to run; 'COMMAND --help' explains one."_s;
const QString kCommandsHeading = u"Commands:"_s;
const QString kUnknownCommand = u"Unknown command: %1"_s;
const QString kMissingCommand = u"No command given."_s;
const QString kHelpCommand = u"help"_s;
// Where the parser's usage line goes on from the program's name.
const QString kUsageOptions = u" [options]"_s;
const QString kHelpCommandHelp = u"Explains a command."_s;

const QString kJsonOption = u"json"_s;
const QString kJsonHelp = u"One JSON object per line, for scripts."_s;
const QString kPasswordStdinOption = u"password-stdin"_s;
const QString kPasswordStdinHelp = u"Read the password from the first line of standard input."_s;
const QString kRunPasswordStdinHelp =
    u"When no password is stored, read it from the first line of standard input."_s;
const QString kProfileFileOption = u"profile-file"_s;
const QString kProfileFileHelp = u"Sign in offline from an exported profile file."_s;
const QString kFileValue = u"file"_s;
const QString kRecipientOption = u"r"_s;
const QString kRecipientLongOption = u"recipient"_s;
const QString kRecipientHelp = u"Encrypt for this NIVO ID as well (repeatable)."_s;
const QString kRecipientValue = u"nivoid"_s;
const QString kLastUsedOption = u"last-used"_s;
const QString kRequireVerifiedOption = u"require-verified"_s;
const QString kRequireVerifiedHelp =
    u"Fail, leaving no output, when the sender's certificate was not issued by the account "
    "service (or was not valid when the file was signed)."_s;
const QString kLastUsedHelp = u"Encrypt for the recipients chosen last time as well."_s;
const QString kOutputOption = u"o"_s;
const QString kOutputLongOption = u"output"_s;
const QString kOutputHelp = u"Folder for the results (remembered for next time)."_s;
const QString kFolderValue = u"dir"_s;
const QString kStdoutOption = u"stdout"_s;
const QString kStdoutHelp =
    u"Write the result to standard output (as an input of - does); one file only."_s;
const QString kStdinName = u"-"_s;
const QString kArmorOption = u"armor"_s;
const QString kArmorHelp =
    u"Write PEM text (-----BEGIN CMS-----) instead of binary, for mail and chat."_s;
const QString kRecursiveOption = u"R"_s;
const QString kRecursiveLongOption = u"recursive"_s;
const QString kRecursiveHelp =
    u"Take the files under each folder given, at any depth, leaving out hidden files and "
    "symbolic links; outputs keep their places below the folder's name."_s;
const QString kFolderWithoutRecursive = u"%1 is a folder; -R takes the files under it."_s;
const QString kNoFilesInFolders = u"No files in the folders given."_s;
const QString kOneFileToStdout = u"Standard input and output take a single file."_s;
const QString kNoJsonToStdout = u"--json cannot share standard output with the result."_s;
const QString kPasswordAndStdin =
    u"--password-stdin cannot share standard input with the file."_s;
const QString kStdoutIsTerminal =
    u"Standard output is a terminal; redirect it to a file or a program, or leave out --stdout."_s;

const QString kNameArgument = u"name"_s;
const QString kNameHelp = u"Your NIVO username."_s;
const QString kFilesArgument = u"files"_s;
const QString kFilesHelp = u"Files to process; with -R, folders too."_s;
const QString kFilesSyntax = u"FILE..."_s;
const QString kFileSyntax = u"FILE"_s;
const QString kNameSyntax = u"NAME"_s;
const QString kActionSyntax = u"ACTION [ARG]"_s;
const QString kCommandSyntax = u"COMMAND [ARGS...]"_s;
const QString kActionArgument = u"action"_s;
const QString kContactsActionHelp =
    u"list | show NIVOID | add NIVOID | remove NIVOID | export FILE | import FILE"_s;
const QString kProfileActionHelp = u"export FILE"_s;

const QString kSignupHelp = u"Create an account on the account server."_s;
const QString kSigninHelp = u"Sign in, online or from a profile file."_s;
const QString kSignoutHelp = u"Sign out: forget the password and the key files."_s;
const QString kWhoamiHelp = u"Print the signed-in username."_s;
const QString kEncryptHelp = u"Protect files for contacts (and yourself)."_s;
const QString kDecryptHelp = u"Open protected files sent to you."_s;
const QString kContactsHelp = u"List, show, add, remove, export or import contacts."_s;
const QString kProfileHelp = u"Export your profile for offline sign-in."_s;

const QString kPasswordPrompt = u"Password: "_s;
const QString kRetypePrompt = u"Re-type Password: "_s;
const QString kNoTerminal =
    u"No terminal to read the password from; pass it on standard input with --password-stdin."_s;
const QString kAccountCreated = u"Account %1 created."_s;
const QString kSignedInAs = u"Signed in as %1."_s;
const QString kSignedOut = u"Signed out."_s;
const QString kOfflineHint = u"Sign in from an exported profile with --profile-file FILE."_s;
const QString kNotSignedIn = u"Nobody is signed in; run 'nivogx-cli signin NAME' first."_s;
const QString kNoSuchFolder = u"No such folder: %1"_s;
const QString kNoFiles = u"No files given."_s;
const QString kSucceededLine = u"%1 -> %2"_s;
const QString kFromSender = u" (from %1)"_s;
const QString kFromUnverifiedSender = u" (from %1; NOT VERIFIED: %2)"_s;
const QString kFailedLine = u"%1: %2"_s;
const QString kContactAdded = u"Added %1."_s;
const QString kContactKnown = u"%1 is already a contact."_s;
const QString kContactRemoved = u"Removed %1."_s;
const QString kNoSuchContact = u"No contact %1."_s;
const QString kExportedTo = u"Exported to %1"_s;
const QString kImported = u"Imported contacts from %1"_s;
const QString kListAction = u"list"_s;
const QString kAddAction = u"add"_s;
const QString kShowAction = u"show"_s;
const QString kUnverifiedContact = u"%1  (certificate not verified: %2)"_s;
const QString kUnverifiedRecipient =
    u"Warning: the certificate of %1 is not verified (%2); protecting for it anyway."_s;
const QString kShownNivoId = u"NIVO ID:  %1"_s;
const QString kShownName = u"Name:     %1"_s;
const QString kShownSubject = u"Subject:  %1"_s;
const QString kShownIssuer = u"Issuer:   %1"_s;
const QString kShownValidity = u"Valid:    %1 to %2"_s;
const QString kShownFingerprint = u"SHA-256:  %1"_s;
const QString kShownVerified = u"Verified: yes, issued by the account service"_s;
const QString kShownNotVerified = u"Verified: NO (%1)"_s;
const QString kUnreadableCertificate = u"Certificate: unreadable"_s;
const QString kVerboseOption = u"verbose"_s;
const QString kVerboseHelp = u"Also show the fingerprint of your certificate."_s;
const QString kRemoveAction = u"remove"_s;
const QString kExportAction = u"export"_s;
const QString kImportAction = u"import"_s;
const QString kUnknownAction = u"Unknown action: %1"_s;
const QString kWrongArgumentCount = u"Wrong number of arguments."_s;
const QString kLogHelp = u"List, export or clear your activity log."_s;
const QString kLogActionHelp = u"[export FILE | clear]"_s;
const QString kTypeOption = u"type"_s;
const QString kTypeHelp = u"Only this operation: encrypt or decrypt."_s;
const QString kTypeValue = u"type"_s;
const QString kTypeEncrypt = u"encrypt"_s;
const QString kTypeDecrypt = u"decrypt"_s;
const QString kColumnOption = u"column"_s;
const QString kColumnHelp = u"Column to search: Date, Time, File, Recipient or Status."_s;
const QString kSearchOption = u"search"_s;
const QString kSearchHelp = u"Only entries whose column contains this text (any case)."_s;
const QString kSortOption = u"sort"_s;
const QString kSortHelp = u"Sort by Date, Time, Type, File, Recipient or Status."_s;
const QString kColumnValue = u"column"_s;
const QString kTextValue = u"text"_s;
const QString kDescOption = u"desc"_s;
const QString kDescHelp = u"Sort in descending order."_s;
const QString kClearAction = u"clear"_s;
const QString kLogCleared = u"Log cleared."_s;
const QString kUnknownType = u"Unknown type: %1"_s;
const QString kUnknownColumn = u"Unknown column: %1"_s;
const QString kLogFieldSeparator = u" | "_s;
const QString kJsonDate = u"date"_s;
const QString kJsonTime = u"time"_s;
const QString kJsonType = u"type"_s;
const QString kJsonFile = u"file"_s;
const QString kJsonRecipients = u"recipients"_s;
const QString kJsonStatus = u"status"_s;
const QString kInspectHelp =
    u"Show the layers, algorithms and recipients of a protected file without opening it."_s;
const QString kFileArgument = u"file"_s;
const QString kFileHelp = u"A protected file."_s;
const QString kLayerLine = u"Layer: %1"_s;
const QString kEncryptionLine = u"Content encryption: %1"_s;
const QString kInnerLine = u"Content: %1 (a signed layer, hidden until the file is opened)"_s;
const QString kRecipientsLine = u"Recipients: %1"_s;
const QString kRecipientLine = u"  %1  %2, %3"_s;
const QString kUnknownRecipient = u"(unknown)"_s;
const QString kIssuerSerial = u", issuer %1, serial %2"_s;
const QString kKeyId = u", key identifier %1"_s;
const QString kJsonLayer = u"layer"_s;
const QString kJsonContentEncryption = u"contentEncryption"_s;
const QString kJsonContent = u"content"_s;
const QString kJsonRecipientList = u"recipients"_s;
const QString kJsonKind = u"kind"_s;
const QString kJsonKeyAlgorithm = u"keyAlgorithm"_s;
const QString kJsonIssuer = u"issuer"_s;
const QString kJsonSerial = u"serial"_s;
const QString kJsonKeyIdentifier = u"keyIdentifier"_s;
const QString kJsonInput = u"input"_s;
const QString kJsonOutput = u"output"_s;
const QString kJsonOutcome = u"outcome"_s;
const QString kJsonSender = u"sender"_s;
const QString kJsonVerified = u"verified"_s;
const QString kJsonTrust = u"trust"_s;
const QString kJsonNivoId = u"nivoId"_s;
const QString kJsonDisplayName = u"displayName"_s;
const QString kJsonError = u"error"_s;
const QString kJsonDetail = u"detail"_s;
// What every message on standard error starts with.
const QString kMessagePrefix = u"nivogx-cli: "_s;

// Files worked on at once in a batch: a small file's signature, sync and log line take most of
// its time, and two of them keep both cores busy. A file of kRunsAloneFrom bytes or more runs
// alone.
constexpr size_t kFilesInFlight = 2;
constexpr qint64 kRunsAloneFrom = qint64{1} << 20;

QString jsonLine(const QJsonObject& object) {
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

}  // namespace

struct NivoCli::Command {
    QString name;
    QString description;
    int (NivoCli::*handler)(const QStringList&);
};

const QList<NivoCli::Command>& NivoCli::commands() {
    static const QList<Command> list{
        {u"signup"_s, kSignupHelp, &NivoCli::signup},
        {u"signin"_s, kSigninHelp, &NivoCli::signin},
        {u"signout"_s, kSignoutHelp, &NivoCli::signout},
        {u"whoami"_s, kWhoamiHelp, &NivoCli::whoami},
        {u"encrypt"_s, kEncryptHelp, &NivoCli::encrypt},
        {u"decrypt"_s, kDecryptHelp, &NivoCli::decrypt},
        {u"contacts"_s, kContactsHelp, &NivoCli::contacts},
        {u"profile"_s, kProfileHelp, &NivoCli::profile},
        {u"log"_s, kLogHelp, &NivoCli::log},
        {u"inspect"_s, kInspectHelp, &NivoCli::inspect},
    };
    return list;
}

const NivoCli::Command* NivoCli::findCommand(const QString& name) {
    const auto& list = commands();
    const auto it = std::find_if(list.begin(), list.end(),
                                 [&name](const Command& c) { return c.name == name; });
    return it == list.end() ? nullptr : &*it;
}

int NivoCli::run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(kDescription);
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const QCommandLineOption serverOption(kServerOption, kServerHelp, kServerValue);
    parser.addOption(serverOption);
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption versionOption = parser.addVersionOption();
    parser.addPositionalArgument(kCommandArgument, kCommandHelp);

    if (!parser.parse(arguments)) {
        return usageError(parser.errorText(), globalHelp());
    }
    if (parser.isSet(versionOption)) {
        m_console.out() << kApplicationName << u' ' << QCoreApplication::applicationVersion()
                        << Qt::endl;
        return Success;
    }
    QStringList rest = parser.positionalArguments();
    if (parser.isSet(helpOption) ||
        (!rest.isEmpty() && rest.constFirst() == kHelpCommand && rest.size() == 1)) {
        m_console.out() << globalHelp() << Qt::flush;
        return Success;
    }
    if (rest.isEmpty()) {
        return usageError(kMissingCommand, globalHelp());
    }
    if (rest.constFirst() == kHelpCommand) {
        // "help COMMAND" answers like "COMMAND --help".
        rest = {rest.at(1), u"--help"_s};
    }
    const Command* command = findCommand(rest.constFirst());
    if (command == nullptr) {
        return usageError(kUnknownCommand.arg(VisibleText::of(rest.constFirst())), globalHelp());
    }
    if (parser.isSet(serverOption)) {
        AccountServer::setBaseUrl(parser.value(serverOption));
    }
    // The folder tree, as the app makes it at start, cleared of what a killed run left.
    (void)NivoGXUtil::generateRequiredDirectory();
    NivoGXUtil::removeStaleTemporaries();
    m_command = command;
    return (this->*command->handler)(rest);
}

QString NivoCli::globalHelp() {
    QCommandLineParser parser;
    parser.setApplicationDescription(kDescription);
    parser.addOption(QCommandLineOption(kServerOption, kServerHelp, kServerValue));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(kCommandArgument, kCommandHelp, kCommandSyntax);
    QString text = parser.helpText();
    text += u'\n' + kCommandsHeading + u'\n';
    for (const Command& command : commands()) {
        text += u"  %1 %2\n"_s.arg(command.name, -10).arg(command.description);
    }
    text += u"  %1 %2\n"_s.arg(kHelpCommand, -10).arg(kHelpCommandHelp);
    return text;
}

std::optional<int> NivoCli::parse(QCommandLineParser& parser, const QStringList& arguments,
                                  std::optional<qsizetype> positionalCount) {
    parser.setApplicationDescription(m_command->description);
    const QCommandLineOption helpOption = parser.addHelpOption();
    if (!parser.parse(arguments)) {
        return usageError(parser.errorText(), helpText(parser));
    }
    m_json = parser.optionNames().contains(kJsonOption);
    if (parser.isSet(helpOption)) {
        m_console.out() << helpText(parser) << Qt::flush;
        return Success;
    }
    if (positionalCount && parser.positionalArguments().size() != *positionalCount) {
        return usageError(kWrongArgumentCount, helpText(parser));
    }
    return std::nullopt;
}

QString NivoCli::helpText(const QCommandLineParser& parser) const {
    // The parser knows only the program; its usage line needs the command after it.
    QString text = parser.helpText();
    const qsizetype at = text.indexOf(kUsageOptions);
    if (at >= 0) {
        text.insert(at, u' ' + m_command->name);
    }
    return text;
}

int NivoCli::usageError(const QString& message, const QString& usage) {
    m_console.err() << kMessagePrefix << message << Qt::endl;
    if (!usage.isEmpty()) {
        m_console.err() << usage << Qt::flush;
    }
    return UsageError;
}

void NivoCli::say(const QString& message) {
    printAlert(message, QString());
}

void NivoCli::warn(const QString& message) {
    for (const QString& line : message.split(u'\n', Qt::SkipEmptyParts)) {
        m_console.err() << kMessagePrefix << line << Qt::endl;
    }
}

void NivoCli::printAlert(const QString& message, const QString& informativeText) {
    if (m_json) {
        QJsonObject failure{{kJsonError, message}};
        if (!informativeText.isEmpty()) {
            failure.insert(kJsonDetail, informativeText);
        }
        m_console.out() << jsonLine(failure) << Qt::endl;
        return;
    }
    warn(message);
    warn(informativeText);
}

bool NivoCli::readPassword(bool fromStdin, bool confirm, QString& password, QString& retyped) {
    if (fromStdin) {
        password = m_console.readLine().value_or(QString());
        retyped = password;
        return true;
    }
    const auto first = m_console.readSecret(kPasswordPrompt);
    if (!first) {
        say(kNoTerminal);
        return false;
    }
    password = *first;
    retyped = confirm ? m_console.readSecret(kRetypePrompt).value_or(QString()) : password;
    return true;
}

// --- account ---

int NivoCli::signup(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kPasswordStdinOption, kPasswordStdinHelp));
    parser.addPositionalArgument(kNameArgument, kNameHelp, kNameSyntax);
    if (const auto done = parse(parser, arguments, 1)) {
        return *done;
    }
    QString password;
    QString retyped;
    if (!readPassword(parser.isSet(kPasswordStdinOption), true, password, retyped)) {
        return Failure;
    }
    const QString loginName = SignIn::trimmed(parser.positionalArguments().constFirst());
    password = SignIn::trimmed(password);
    retyped = SignIn::trimmed(retyped);
    if (const auto alert = SignUp::checkFields(loginName, password, retyped)) {
        printAlert(alert->message, alert->informativeText);
        return Failure;
    }
    const QString failure = SignUp::createAccount(loginName, password);
    if (!failure.isEmpty()) {
        printAlert(SignUp::registrationFailed(), failure);
        return Failure;
    }
    m_console.out() << kAccountCreated.arg(loginName) << Qt::endl;
    return Success;
}

int NivoCli::signin(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kPasswordStdinOption, kPasswordStdinHelp));
    parser.addOption(QCommandLineOption(kProfileFileOption, kProfileFileHelp, kFileValue));
    parser.addPositionalArgument(kNameArgument, kNameHelp, kNameSyntax);
    if (const auto done = parse(parser, arguments, 1)) {
        return *done;
    }
    QString password;
    QString unused;
    if (!readPassword(parser.isSet(kPasswordStdinOption), false, password, unused)) {
        return Failure;
    }
    const QString loginName = SignIn::trimmed(parser.positionalArguments().constFirst());
    password = SignIn::trimmed(password);
    if (const auto alert = SignIn::checkFields(loginName, password)) {
        printAlert(alert->message, alert->informativeText);
        return Failure;
    }

    if (parser.isSet(kProfileFileOption)) {
        const QString path = parser.value(kProfileFileOption);
        const NivoProfile profile = SignIn::readProfileFile(path, loginName, password);
        if (!profile.StatusText.isEmpty()) {
            printAlert(SignIn::signInFailed(), profile.StatusText);
            return Failure;
        }
        QString skipped;
        if (const auto alert =
                SignIn::keepFromProfileFile(path, loginName, password, profile, &skipped)) {
            printAlert(alert->message, alert->informativeText);
            return Failure;
        }
        if (!skipped.isEmpty()) {
            say(skipped);
        }
    } else {
        const NivoProfile profile = SignIn::requestProfile(loginName, password);
        if (!SignIn::succeeded(profile)) {
            if (SignIn::offersProfileFile(profile)) {
                printAlert(SignIn::unableToConnect(), profile.StatusText + u'\n' + kOfflineHint);
            } else {
                printAlert(SignIn::signInFailed(), profile.StatusText);
            }
            return Failure;
        }
        if (const auto alert = SignIn::keep(loginName, password, profile)) {
            printAlert(alert->message, alert->informativeText);
            return Failure;
        }
    }
    m_console.out() << kSignedInAs.arg(loginName) << Qt::endl;
    return Success;
}

int NivoCli::signout(const QStringList& arguments) {
    QCommandLineParser parser;
    if (const auto done = parse(parser, arguments, 0)) {
        return *done;
    }
    NivoGXUtil::logout();
    m_console.out() << kSignedOut << Qt::endl;
    return Success;
}

int NivoCli::whoami(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kVerboseOption, kVerboseHelp));
    if (const auto done = parse(parser, arguments, 0)) {
        return *done;
    }
    if (!NivoGXUtil::hasRequiredCredentials()) {
        say(kNotSignedIn);
        return Failure;
    }
    m_console.out() << NivoGXUtil::getNivoUsername() << Qt::endl;
    if (parser.isSet(kVerboseOption)) {
        const auto profile = NivoGXUtil::getNivoProfile();
        printCertificate(profile ? profile->Cer : QByteArray());
    }
    return Success;
}

void NivoCli::printCertificate(const QByteArray& der) {
    const auto details = CertificateTrust::describe(der);
    if (!details) {
        m_console.out() << kUnreadableCertificate << Qt::endl;
        return;
    }
    const auto when = [](const QDateTime& time) {
        return time.toUTC().toString(u"yyyy-MM-dd HH:mm:ss 'UTC'"_s);
    };
    m_console.out() << kShownSubject.arg(VisibleText::of(details->subject)) << Qt::endl
                    << kShownIssuer.arg(VisibleText::of(details->issuer)) << Qt::endl
                    << kShownValidity.arg(when(details->notBefore), when(details->notAfter))
                    << Qt::endl
                    << kShownFingerprint.arg(details->sha256) << Qt::endl;
}

bool NivoCli::requireSignIn() {
    if (!NivoGXUtil::generateRequiredDirectory()) {
        say(kNotSignedIn);
        return false;
    }
    NivoGXUtil::generateUserContactDB(NivoGXUtil::getNivoUsername());
    return true;
}

bool NivoCli::prepareRun(bool passwordFromStdin, QString& password) {
    if (NivoGXUtil::generateRequiredDirectory()) {
        password = NivoGXUtil::getNivoPassword();
    } else if (NivoGXUtil::hasKeyFiles()) {
        QString unused;
        if (!readPassword(passwordFromStdin, false, password, unused)) {
            return false;
        }
        password = SignIn::trimmed(password);
        if (const auto alert = SignIn::checkFields(NivoGXUtil::getNivoUsername(), password)) {
            printAlert(alert->message, alert->informativeText);
            return false;
        }
        NivoGXUtil::setNivoProfile();
    } else {
        say(kNotSignedIn);
        return false;
    }
    NivoGXUtil::generateUserContactDB(NivoGXUtil::getNivoUsername());
    return true;
}

bool NivoCli::findRecipient(const QString& typed, Contact& contact, bool& added) {
    const QString name = RecipientChoice::normalized(typed);
    added = false;
    if (RecipientChoice::isSelf(name)) {
        printAlert(RecipientChoice::unableToAddSelf(), QString());
        return false;
    }
    const QList<Contact> contacts = NivoGXUtil::getContactList();
    if (const qsizetype at = RecipientChoice::indexOf(contacts, name); at >= 0) {
        contact = contacts.at(at);
        return true;
    }
    const NivoProfile answer = RecipientChoice::lookUp(name);
    const std::optional<Contact> looked = RecipientChoice::addLookedUp(name, answer);
    if (!looked) {
        printAlert(RecipientChoice::userDoesNotExist(), answer.StatusText);
        return false;
    }
    contact = *looked;
    added = true;
    return true;
}

// --- files ---

int NivoCli::encrypt(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kLastUsedOption, kLastUsedHelp));
    parser.addOption(QCommandLineOption(kArmorOption, kArmorHelp));
    parser.addOption(QCommandLineOption({kRecipientOption, kRecipientLongOption}, kRecipientHelp,
                                        kRecipientValue));
    QStringList files;
    QStringList subFolders;
    QString password;
    if (const auto done = parseFileRun(parser, arguments, files, subFolders, password)) {
        return *done;
    }
    QList<Contact> recipients;
    if (parser.isSet(kLastUsedOption)) {
        recipients = RecipientChoice::lastChoice(NivoGXUtil::getContactList());
    }
    for (const QString& nivoId : parser.values(kRecipientOption)) {
        Contact found;
        bool added = false;
        if (!findRecipient(nivoId, found, added)) {
            return Failure;
        }
        if (RecipientChoice::indexOf(recipients, found.NivoID) < 0) {
            recipients.append(found);
        }
    }
    QStringList names = files;
    m_armor = parser.isSet(kArmorOption);
    const QString folder = m_toStdout ? preparePipe(files, names)
                                      : runFolder(parser, NivoGXUtil::getLastOutputEncryptFolder());
    if (folder.isEmpty()) {
        return Failure;
    }
    // Remembered before the run, so that the next start clears what a killed run left there.
    const QString previous = NivoGXUtil::getLastOutputEncryptFolder();
    if (!m_toStdout) {
        NivoGXUtil::saveSettings(QString(), QString(), QString(), folder, QString());
    }
    RecipientChoice::rememberChoice(recipients);
    for (const Contact& recipient : recipients) {
        if (const QString problem = ContactDB::certificateProblem(recipient); !problem.isEmpty()) {
            warn(kUnverifiedRecipient.arg(VisibleText::of(recipient.NivoID),
                                         VisibleText::of(problem)));
        }
    }
    bool placed = false;
    const int exit = processFiles(files, names, subFolders, password, recipients, folder, true,
                                  parser.isSet(kJsonOption), placed);
    // A folder where every file failed is not offered again.
    if (!placed && exit != Success && !m_toStdout) {
        NivoGXUtil::setLastOutputFolder(true, previous);
    }
    return exit;
}

int NivoCli::decrypt(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kRequireVerifiedOption, kRequireVerifiedHelp));
    QStringList files;
    QStringList subFolders;
    QString password;
    if (const auto done = parseFileRun(parser, arguments, files, subFolders, password)) {
        return *done;
    }
    QStringList names = files;
    const QString folder = m_toStdout
                               ? preparePipe(files, names)
                               : runFolder(parser, NivoGXUtil::getLastOutputDecryptFolder());
    if (folder.isEmpty()) {
        return Failure;
    }
    const QString previous = NivoGXUtil::getLastOutputDecryptFolder();
    if (!m_toStdout) {
        NivoGXUtil::saveSettings(QString(), QString(), QString(), QString(), folder);
    }
    m_requireVerified = parser.isSet(kRequireVerifiedOption);
    bool placed = false;
    const int exit = processFiles(files, names, subFolders, password, {}, folder, false,
                                  parser.isSet(kJsonOption), placed);
    if (!placed && exit != Success && !m_toStdout) {
        NivoGXUtil::setLastOutputFolder(false, previous);
    }
    return exit;
}

std::optional<int> NivoCli::parseFileRun(QCommandLineParser& parser, const QStringList& arguments,
                                         QStringList& files, QStringList& subFolders,
                                         QString& password) {
    parser.addOption(
        QCommandLineOption({kOutputOption, kOutputLongOption}, kOutputHelp, kFolderValue));
    parser.addOption(QCommandLineOption({kRecursiveOption, kRecursiveLongOption}, kRecursiveHelp));
    parser.addOption(QCommandLineOption(kJsonOption, kJsonHelp));
    parser.addOption(QCommandLineOption(kPasswordStdinOption, kRunPasswordStdinHelp));
    parser.addOption(QCommandLineOption(kStdoutOption, kStdoutHelp));
    parser.addPositionalArgument(kFilesArgument, kFilesHelp, kFilesSyntax);
    if (const auto done = parse(parser, arguments)) {
        return done;
    }
    const QStringList given = parser.positionalArguments();
    if (given.isEmpty()) {
        return usageError(kNoFiles, helpText(parser));
    }
    const bool fromStdin = given.contains(kStdinName);
    m_toStdout = parser.isSet(kStdoutOption) || fromStdin;
    bool folderGiven = false;
    files.clear();
    subFolders.clear();
    for (const QString& path : given) {
        if (path == kStdinName || !QFileInfo(path).isDir()) {
            files.append(path);
            subFolders.append(QString());
            continue;
        }
        if (!parser.isSet(kRecursiveOption)) {
            return usageError(kFolderWithoutRecursive.arg(VisibleText::of(path)), QString());
        }
        // The desktop's Add Folder rule: the files keep their places below the folder's name.
        folderGiven = true;
        for (const QString& file : FileListModel::filesInFolder(path)) {
            files.append(file);
            subFolders.append(FileListModel::subFolderOf(path, file));
        }
    }
    if (m_toStdout) {
        if (given.size() != 1 || folderGiven) {
            return usageError(kOneFileToStdout, helpText(parser));
        }
        if (parser.isSet(kJsonOption)) {
            return usageError(kNoJsonToStdout, helpText(parser));
        }
        if (fromStdin && parser.isSet(kPasswordStdinOption)) {
            return usageError(kPasswordAndStdin, helpText(parser));
        }
        if (CliPipe::standardOutputIsTerminal()) {
            return usageError(kStdoutIsTerminal, QString());
        }
    }
    if (files.isEmpty()) {
        say(kNoFilesInFolders);
        return Failure;
    }
    if (!prepareRun(parser.isSet(kPasswordStdinOption), password)) {
        return Failure;
    }
    return std::nullopt;
}

QString NivoCli::preparePipe(QStringList& files, QStringList& names) {
    m_pipe = std::make_unique<CliPipe>(NivoGXUtil::applicationFolder());
    if (files.constFirst() == kStdinName) {
        QString failure;
        const QString path = m_pipe->takeStandardInput(failure);
        if (path.isEmpty()) {
            say(failure);
            return {};
        }
        files = {path};
        names = {CliPipe::kStandardInput};
    }
    return m_pipe->folder();
}

QString NivoCli::runFolder(const QCommandLineParser& parser, const QString& remembered) {
    const QString given = parser.value(kOutputOption);
    QString folder = given.isEmpty() ? remembered : given;
    if (folder.isEmpty() || !QFileInfo(folder).isDir()) {
        // A remembered folder that has gone away is no reason to fail.
        folder = given.isEmpty() ? QDir::currentPath() : given;
    }
    if (!QFileInfo(folder).isDir()) {
        say(kNoSuchFolder.arg(VisibleText::of(given)));
        return {};
    }
    return QFileInfo(folder).absoluteFilePath();
}

int NivoCli::processFiles(const QStringList& files, const QStringList& names,
                          const QStringList& subFolders, const QString& password,
                          const QList<Contact>& recipients, const QString& outputFolder,
                          bool toEncrypt, bool json, bool& placed) {
    placed = false;
    if (files.isEmpty()) {
        return Success;
    }
    const auto profile = NivoGXUtil::getNivoProfile();
    // Read once for the whole run: every keychain question is a round trip to its service.
    const QString userNivoId = toEncrypt ? NivoGXUtil::getNivoUsername() : QString();

    // What a file's run left for its result line, kept until the files before it are printed.
    struct Run {
        bool done = false;
        QString outcome;
        QString reservedPath;  // the name chosen at the start, kept from the other runs
        QString outputPath;
        SenderVerdict sender;
    };
    std::vector<Run> runs(static_cast<size_t>(files.size()));
    size_t started = 0;
    size_t printed = 0;
    // The outputs of the runs under way, which only appear once complete.
    QSet<QString> outputsInUse;
    bool allSucceeded = true;
    bool interrupted = false;
    QEventLoop loop;
    // A controller runs one file. One that has reported is kept until the next one reports, as it
    // is still sending its signal when it does.
    std::vector<std::unique_ptr<ProcessController>> controllers(runs.size());
    std::unique_ptr<ProcessController> retired;

    const auto printLine = [&](const QString& file, const Run& run) {
        const bool succeeded = run.outcome.isEmpty();
        allSucceeded = allSucceeded && succeeded;
        placed = placed || succeeded;
        const auto fromText = [&run] {
            return run.sender.verified()
                       ? kFromSender.arg(VisibleText::of(run.sender.name))
                       : kFromUnverifiedSender.arg(VisibleText::of(run.sender.name),
                                                   VisibleText::of(run.sender.reason()));
        };
        if (m_toStdout && succeeded) {
            // Standard output carries the result; the sender is told beside it.
            if (!toEncrypt) {
                warn(kSucceededLine.arg(VisibleText::of(file), CliPipe::kStandardOutput) +
                     fromText());
            }
            return;
        }
        if (json) {
            QJsonObject line{{kJsonInput, file},
                             {kJsonOutput, succeeded ? QJsonValue(run.outputPath)
                                                     : QJsonValue(QJsonValue::Null)},
                             {kJsonOutcome, run.outcome}};
            if (!succeeded) {
                line.insert(kJsonError, run.outcome);
            }
            if (!toEncrypt) {
                line.insert(kJsonSender, run.sender.name);
                line.insert(kJsonVerified, succeeded && run.sender.verified());
                line.insert(kJsonTrust, succeeded ? run.sender.reason() : QString());
            }
            m_console.out() << jsonLine(line) << Qt::endl;
        } else if (succeeded) {
            // Names come from outside: none may steer the terminal.
            QString text =
                kSucceededLine.arg(VisibleText::of(file), VisibleText::of(run.outputPath));
            if (!toEncrypt) {
                text += fromText();
            }
            m_console.out() << text << Qt::endl;
        } else {
            say(kFailedLine.arg(VisibleText::of(file), VisibleText::of(run.outcome)));
        }
    };

    size_t underWay = 0;
    bool largeUnderWay = false;
    std::function<void()> startMore;
    const auto start = [&](bool large) {
        const size_t index = started++;
        ++underWay;
        largeUnderWay = large;
        controllers[index] = std::make_unique<ProcessController>();
        ProcessController* controller = controllers[index].get();
        if (toEncrypt) {
            controller->setUserNivoId(userNivoId);
        }
        controller->setRequireVerified(m_requireVerified);
        if (m_toStdout) {
            // Copied out within the run, whose log line then says whether it arrived.
            controller->setHandOver([armoured = m_armor](QIODevice& result) {
                return CliPipe::release(result, armoured);
            });
        } else {
            controller->setArmoured(m_armor);
        }
        if (names[static_cast<qsizetype>(index)] != files[static_cast<qsizetype>(index)]) {
            controller->setInputName(names[static_cast<qsizetype>(index)]);
        }
        controller->setOutputPathsInUse(outputsInUse);
        // Only the first file not yet printed shows its progress: the bar is that of one file.
        QObject::connect(controller, &ProcessController::progress, &loop,
                         [this, index, &printed](qint64 done, qint64 total) {
                             if (index == printed) {
                                 m_console.showProgress(done, total);
                             }
                         });
        QObject::connect(
            controller, &ProcessController::processingCompleted, &loop,
            [&, controller, index](const QString& result) {
                Run& run = runs[index];
                if (run.done) {
                    return;
                }
                run.done = true;
                run.outcome = result;
                run.outputPath = controller->outputPath();
                run.sender = controller->senderVerdict();
                outputsInUse.remove(run.reservedPath);
                retired = std::move(controllers[index]);
                --underWay;
                largeUnderWay = false;
                if (index == printed) {
                    m_console.endProgress();
                }
                for (; printed < runs.size() && runs[printed].done; ++printed) {
                    printLine(names[static_cast<qsizetype>(printed)], runs[printed]);
                }
                startMore();
                if (printed == runs.size() || (interrupted && underWay == 0)) {
                    loop.quit();
                }
            });
        const QString subFolder = subFolders.value(static_cast<qsizetype>(index));
        controller->processFile(QFileInfo(files[static_cast<qsizetype>(index)]).absoluteFilePath(),
                                profile.value_or(NivoProfile()), password, recipients,
                                subFolder.isEmpty()
                                    ? outputFolder
                                    : FileListModel::makeSubFolders(outputFolder, subFolder),
                                toEncrypt);
        // A run always reports from the event loop, so its output is known before it ends.
        runs[index].reservedPath = controller->outputPath();
        if (!controller->outputPath().isEmpty()) {
            outputsInUse.insert(controller->outputPath());
        }
    };
    // A large file runs alone: it keeps both cores busy by itself, and two of them would hold
    // two sets of blocks in flight.
    startMore = [&] {
        while (!interrupted && started < runs.size() && underWay < kFilesInFlight) {
            const bool large =
                QFileInfo(files[static_cast<qsizetype>(started)]).size() >= kRunsAloneFrom;
            if (underWay > 0 && (large || largeUnderWay)) {
                break;
            }
            start(large);
        }
    };
    // Ctrl-C cancels what is under way, as the Cancel button does: each such file gets its
    // "Cancelled" log line, and its stopped work leaves no output.
    m_console.catchInterrupt([&] {
        interrupted = true;
        for (std::unique_ptr<ProcessController>& controller : controllers) {
            if (controller && controller->isRunning()) {
                controller->cancel();
            }
        }
        loop.quit();
    });
    startMore();
    if (!interrupted) {
        loop.exec();
    }
    m_console.releaseInterrupt();
    if (interrupted) {
        m_console.endProgress();
        // The stopped work ends within a block; its own log line comes with its completion.
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
        return Interrupted;
    }
    return allSucceeded ? Success : Failure;
}

// --- contacts and profile ---

int NivoCli::contacts(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kJsonOption, kJsonHelp));
    parser.addPositionalArgument(kActionArgument, kContactsActionHelp, kActionSyntax);
    if (const auto done = parse(parser, arguments)) {
        return *done;
    }
    const QStringList positional = parser.positionalArguments();
    const QString action = positional.value(0, kListAction);
    const qsizetype expected = action == kListAction ? 1 : 2;
    if (action != kListAction && action != kAddAction && action != kRemoveAction &&
        action != kShowAction &&
        action != kExportAction && action != kImportAction) {
        return usageError(kUnknownAction.arg(action), helpText(parser));
    }
    if (positional.size() > expected || (expected == 2 && positional.size() != 2)) {
        return usageError(kWrongArgumentCount, helpText(parser));
    }
    if (!requireSignIn()) {
        return Failure;
    }
    const QString argument = positional.value(1);

    if (action == kListAction) {
        QList<Contact> list = NivoGXUtil::getContactList();
        std::sort(list.begin(), list.end(), [](const Contact& a, const Contact& b) {
            return a.NivoID.compare(b.NivoID, Qt::CaseInsensitive) < 0;
        });
        for (const Contact& contact : list) {
            const QString problem = ContactDB::certificateProblem(contact);
            if (parser.isSet(kJsonOption)) {
                m_console.out() << jsonLine({{kJsonNivoId, contact.NivoID},
                                             {kJsonDisplayName, contact.DisplayName},
                                             {kJsonVerified, problem.isEmpty()},
                                             {kJsonTrust, problem}})
                                << Qt::endl;
            } else if (problem.isEmpty()) {
                m_console.out() << VisibleText::of(contact.NivoID) << Qt::endl;
            } else {
                m_console.out() << kUnverifiedContact.arg(VisibleText::of(contact.NivoID),
                                                          VisibleText::of(problem))
                                << Qt::endl;
            }
        }
        return Success;
    }
    if (action == kShowAction) {
        const QString nivoId = RecipientChoice::normalized(argument);
        const QList<Contact> list = NivoGXUtil::getContactList();
        const qsizetype at = RecipientChoice::indexOf(list, nivoId);
        if (at < 0) {
            say(kNoSuchContact.arg(nivoId));
            return Failure;
        }
        const Contact& contact = list.at(at);
        m_console.out() << kShownNivoId.arg(VisibleText::of(contact.NivoID)) << Qt::endl
                        << kShownName.arg(VisibleText::of(contact.DisplayName)) << Qt::endl;
        printCertificate(contact.CertData);
        const QString problem = ContactDB::certificateProblem(contact);
        m_console.out() << (problem.isEmpty() ? kShownVerified
                                              : kShownNotVerified.arg(VisibleText::of(problem)))
                        << Qt::endl;
        return Success;
    }
    if (action == kAddAction) {
        Contact found;
        bool added = false;
        if (!findRecipient(argument, found, added)) {
            return Failure;
        }
        m_console.out() << (added ? kContactAdded : kContactKnown).arg(VisibleText::of(found.NivoID))
                        << Qt::endl;
        return Success;
    }
    if (action == kRemoveAction) {
        const QString nivoId = RecipientChoice::normalized(argument);
        const QList<Contact> list = NivoGXUtil::getContactList();
        const auto it = std::find_if(list.begin(), list.end(),
                                     [&nivoId](const Contact& c) { return c.NivoID == nivoId; });
        if (it == list.end()) {
            say(kNoSuchContact.arg(nivoId));
            return Failure;
        }
        NivoGXUtil::deleteContact(it->ID);
        m_console.out() << kContactRemoved.arg(nivoId) << Qt::endl;
        return Success;
    }
    if (action == kExportAction) {
        const UserDataExport::Result result = UserDataExport::exportContacts(argument);
        if (!result.failure.isEmpty()) {
            printAlert(result.failure, QString());
            return Failure;
        }
        m_console.out() << kExportedTo.arg(result.path) << Qt::endl;
        return Success;
    }
    QStringList skipped;
    const QString message = NivoGXUtil::importContacts(argument, &skipped);
    if (!message.isEmpty()) {
        printAlert(message, QString());
        return Failure;
    }
    if (!skipped.isEmpty()) {
        warn(ContactDB::notImportedMessage(skipped));
    }
    m_console.out() << kImported.arg(argument) << Qt::endl;
    return Success;
}

int NivoCli::profile(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addPositionalArgument(kActionArgument, kProfileActionHelp, kProfileActionHelp);
    if (const auto done = parse(parser, arguments)) {
        return *done;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.value(0) != kExportAction) {
        return usageError(kUnknownAction.arg(positional.value(0)), helpText(parser));
    }
    if (positional.size() != 2) {
        return usageError(kWrongArgumentCount, helpText(parser));
    }
    if (!requireSignIn()) {
        return Failure;
    }
    const UserDataExport::Result result = UserDataExport::exportProfile(positional.at(1));
    if (!result.failure.isEmpty()) {
        printAlert(result.failure, QString());
        return Failure;
    }
    m_console.out() << kExportedTo.arg(result.path) << Qt::endl;
    return Success;
}

// --- log ---

int NivoCli::log(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kTypeOption, kTypeHelp, kTypeValue));
    parser.addOption(QCommandLineOption(kColumnOption, kColumnHelp, kColumnValue, LogQuery::kFile));
    parser.addOption(QCommandLineOption(kSearchOption, kSearchHelp, kTextValue));
    parser.addOption(QCommandLineOption(kSortOption, kSortHelp, kColumnValue));
    parser.addOption(QCommandLineOption(kDescOption, kDescHelp));
    parser.addOption(QCommandLineOption(kJsonOption, kJsonHelp));
    parser.addPositionalArgument(kActionArgument, kLogActionHelp, kLogActionHelp);
    if (const auto done = parse(parser, arguments)) {
        return *done;
    }
    const QStringList positional = parser.positionalArguments();
    const QString action = positional.value(0);
    if (!action.isEmpty() && action != kExportAction && action != kClearAction) {
        return usageError(kUnknownAction.arg(action), helpText(parser));
    }
    if (positional.size() != (action == kExportAction ? 2 : (action.isEmpty() ? 0 : 1))) {
        return usageError(kWrongArgumentCount, helpText(parser));
    }
    LogQuery::Operation operation = LogQuery::Operation::All;
    if (parser.isSet(kTypeOption)) {
        const QString type = parser.value(kTypeOption).toLower();
        if (type != kTypeEncrypt && type != kTypeDecrypt) {
            return usageError(kUnknownType.arg(parser.value(kTypeOption)), helpText(parser));
        }
        operation =
            type == kTypeEncrypt ? LogQuery::Operation::Encrypt : LogQuery::Operation::Decrypt;
    }
    std::optional<LogQuery::Column> sortColumn;
    if (parser.isSet(kSortOption)) {
        sortColumn = LogQuery::columnNamed(parser.value(kSortOption));
        if (!sortColumn) {
            return usageError(kUnknownColumn.arg(parser.value(kSortOption)), helpText(parser));
        }
    }
    if (!requireSignIn()) {
        return Failure;
    }

    if (action == kClearAction) {
        NivoGXUtil::clearLogFile();
        m_console.out() << kLogCleared << Qt::endl;
        return Success;
    }
    if (action == kExportAction) {
        const UserDataExport::Result result = UserDataExport::exportLog(positional.at(1));
        if (!result.failure.isEmpty()) {
            printAlert(result.failure, QString());
            return Failure;
        }
        m_console.out() << kExportedTo.arg(result.path) << Qt::endl;
        return Success;
    }

    QList<LogEntry> entries = LogQuery::ofOperation(NivoGXUtil::getLogEntries(), operation);
    // The viewer searches with the trimmed, lower-cased text of its field.
    entries = LogQuery::search(entries, parser.value(kColumnOption),
                               parser.value(kSearchOption).trimmed().toLower());
    if (sortColumn) {
        LogQuery::sort(entries, *sortColumn, !parser.isSet(kDescOption));
    }
    for (const LogEntry& entry : entries) {
        // The status holds the line's ending.
        const QString status = QString(entry.status).remove(u'\r').remove(u'\n');
        if (parser.isSet(kJsonOption)) {
            m_console.out() << jsonLine({{kJsonDate, entry.date},
                                         {kJsonTime, entry.time},
                                         {kJsonType, entry.operationType},
                                         {kJsonFile, entry.filePath},
                                         {kJsonRecipients, entry.recipients},
                                         {kJsonStatus, status}})
                            << Qt::endl;
        } else {
            // The log escapes what it writes; lines from older versions may still hold controls.
            m_console.out() << VisibleText::ofEscaped(
                                   QStringList{entry.date, entry.time, entry.operationType,
                                               entry.filePath, entry.recipients, status}
                                       .join(kLogFieldSeparator))
                            << Qt::endl;
        }
    }
    return Success;
}

// --- inspect ---

int NivoCli::inspect(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.addOption(QCommandLineOption(kJsonOption, kJsonHelp));
    parser.addPositionalArgument(kFileArgument, kFileHelp, kFileSyntax);
    if (const auto done = parse(parser, arguments, 1)) {
        return *done;
    }
    const QString path = parser.positionalArguments().constFirst();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        say(kFailedLine.arg(VisibleText::of(path), file.errorString()));
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
            say(kFailedLine.arg(VisibleText::of(path), unwrapped.errorString()));
            return Failure;
        }
        if (const QString failure = CmsArmour::unwrap(file, unwrapped); !failure.isEmpty()) {
            say(kFailedLine.arg(VisibleText::of(path), failure));
            return Failure;
        }
        unwrapped.seek(0);
        message = &unwrapped;
    }
    const CmsOutline inspection = CmsOutline::inspect(*message, certificates);
    if (!inspection.failure.isEmpty()) {
        say(kFailedLine.arg(VisibleText::of(path), VisibleText::of(inspection.failure)));
        return Failure;
    }
    const auto nameOf = [&names](const CmsOutline::Recipient& r) {
        return r.certificateIndex >= 0 ? names.at(r.certificateIndex) : QString();
    };

    if (parser.isSet(kJsonOption)) {
        QJsonArray recipients;
        for (const CmsOutline::Recipient& r : inspection.recipients) {
            const QString name = nameOf(r);
            recipients.append(QJsonObject{
                {kJsonNivoId, name.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(name)},
                {kJsonKind, r.kind},
                {kJsonKeyAlgorithm, r.keyAlgorithm},
                {kJsonIssuer, r.issuer},
                {kJsonSerial, r.serialNumber},
                {kJsonKeyIdentifier, r.keyIdentifier}});
        }
        m_console.out() << jsonLine({{kJsonInput, path},
                                     {kJsonLayer, inspection.layer},
                                     {kJsonContentEncryption, inspection.contentEncryption},
                                     {kJsonContent, inspection.innerContentType},
                                     {kJsonRecipientList, recipients}})
                        << Qt::endl;
        return Success;
    }
    QTextStream& out = m_console.out();
    out << kLayerLine.arg(inspection.layer) << Qt::endl
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
        out << VisibleText::of(line) << Qt::endl;
    }
    return Success;
}
