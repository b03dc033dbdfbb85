#include "ProcessingTestKit.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QThreadPool>

#include "TestFiles.h"
#include "crypto/NivoCryptoOperation.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

ProcessingTestKit::People& ProcessingTestKit::people() {
    static People p;
    return p;
}

ProcessingTestKit::ProcessingTestKit() {
    NivoGXUtil::generateRequiredDirectory();
    NivoGXUtil::saveNivoCredentials(u"alice"_s, TestPki::kPassword);
    EXPECT_TRUE(NivoGXUtil::setNivoProfile(aliceProfile()));
    NivoGXUtil::generateUserContactDB(u"alice"_s);
}

ProcessingTestKit::~ProcessingTestKit() {
    // Nothing may still write into the sandbox once it is gone.
    drainBackgroundWork();
}

NivoProfile ProcessingTestKit::aliceProfile() {
    return TestPki::profileFor(people().alice, u"alice"_s);
}

NivoProfile ProcessingTestKit::bobProfile() {
    return TestPki::profileFor(people().bob, u"bob"_s);
}

Contact ProcessingTestKit::contact(const QString& nivoId, const TestPki::Identity& identity) {
    Contact c;
    c.NivoID = nivoId;
    c.DisplayName = identity.commonName;
    c.CertData = identity.certDer;
    return c;
}

QString ProcessingTestKit::path(const QString& relative) const {
    return m_dir.filePath(relative);
}

QString ProcessingTestKit::writeFile(const QString& relative, const QByteArray& content) const {
    const QString p = path(relative);
    QDir().mkpath(QFileInfo(p).path());
    EXPECT_TRUE(putFile(p, content)) << p.toStdString();
    return p;
}

QStringList ProcessingTestKit::files(const QString& folder) const {
    return QDir(path(folder)).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

QString ProcessingTestKit::protectedFile(const QString& relative, const QByteArray& content,
                                         const NivoProfile& signer) const {
    const QString p = path(relative);
    QDir().mkpath(QFileInfo(p).path());
    const QString outcome = NivoCryptoOperation::encryptData(content, signer, TestPki::kPassword,
                                                             {people().alice.certDer}, p);
    EXPECT_TRUE(outcome.isEmpty());
    return p;
}

QStringList ProcessingTestKit::loggedEvents() {
    QFile file(NivoGXUtil::logPath());
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QStringList events;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        events.append(line.section(u" | "_s, 2));
    }
    return events;
}

void ProcessingTestKit::drainBackgroundWork() {
    // A completion may start another run; a few rounds cover a queue that is still alive.
    for (int round = 0; round < 3; ++round) {
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}
