#include "FuzzSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtGlobal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "crypto/toolkit/TVXException.h"

using namespace Qt::Literals::StringLiterals;

namespace FuzzSupport {

namespace {

void dropMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(message));
        std::abort();
    }
}

const QString kUntouched = u"(sender untouched)"_s;

}  // namespace

void quietQt() {
    static const bool installed = [] {
        qInstallMessageHandler(dropMessage);
        return true;
    }();
    (void)installed;
}

const QString& scratchDir() {
    // Static storage: the folder and its contents go when the process ends normally. A crashed
    // run leaves it in the temporary folder, named after the fuzzer.
    static const std::unique_ptr<QTemporaryDir> dir = [] {
        auto made = std::make_unique<QTemporaryDir>(QDir::tempPath() + u"/nivogx-fuzz-XXXXXX"_s);
        if (!made->isValid()) {
            fail(u"cannot make a scratch folder: "_s + made->errorString());
        }
        return made;
    }();
    static const QString path = dir->path();
    return path;
}

QString scratchPath(const QString& name) {
    return scratchDir() + u'/' + name;
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, QByteArrayView bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(bytes.data(), bytes.size()) == bytes.size();
}

void fail(const QString& what) {
    std::fprintf(stderr, "fuzz check failed: %s\n", qPrintable(what));
    std::fflush(stderr);
    std::abort();
}

const FixedUser& fixedUser() {
    static const FixedUser user = [] {
        const QString keys = QStringLiteral(NIVOGX_FUZZ_KEYS_DIR);
        FixedUser made;
        made.profile.LoginName = u"fuzz-user"_s;
        made.profile.StatusText = u""_s;
        made.profile.Pfx = readFile(keys + u"/fuzz-user.pfx"_s);
        made.profile.Cer = readFile(keys + u"/fuzz-user.cer"_s);
        made.password = u"fuzz"_s;
        if (made.profile.Pfx.isEmpty() || made.profile.Cer.isEmpty()) {
            fail(u"the fixed key is missing from "_s + keys + u" (run fuzz/make-corpus)"_s);
        }
        return made;
    }();
    return user;
}

QString checkDecrypt(const QByteArray& message, MessageInput input, const Decrypt& decrypt) {
    quietQt();
    const QString inputPath = scratchPath(u"message.tvf"_s);
    const QString outputPath = scratchPath(u"message"_s);
    if (input == MessageInput::File && !writeFile(inputPath, message)) {
        fail(u"cannot write "_s + inputPath);
    }
    QString sender = kUntouched;
    QString outcome;
    try {
        outcome = decrypt(message, inputPath, outputPath, sender);
    } catch (const TVXException& e) {
        // The key opens, the files can be written: nothing the message holds may end in a throw.
        fail(u"decryption threw: "_s + e.description());
    }
    const bool written = QFileInfo::exists(outputPath);
    if (outcome.isEmpty()) {
        FUZZ_CHECK(written, u"a successful decryption wrote nothing"_s);
        FUZZ_CHECK(!outcome.isNull(), u"success must be the empty text, not a null one"_s);
    } else {
        FUZZ_CHECK(!written, u"a failed decryption left output behind: "_s + outcome);
        FUZZ_CHECK(sender == kUntouched, u"a failed decryption named a sender: "_s + outcome);
    }
    QFile::remove(outputPath);
    QFile::remove(inputPath);
    return outcome;
}

}  // namespace FuzzSupport
