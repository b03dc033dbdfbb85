#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

#include "TestPki.h"
#include "UserSandbox.h"
#include "model/Contact.h"
#include "model/NivoProfile.h"

// A signed-in user "alice" in a private sandbox, with contacts made from a real test PKI, a
// folder for input and output files, and the activity log read back as its events.
class ProcessingTestKit {
public:
    // Key generation is slow; every test of the executable shares one PKI.
    struct People {
        TestPki pki;
        TestPki::Identity alice = pki.createUser(QStringLiteral("Alice Owner"));
        TestPki::Identity bob = pki.createUser(QStringLiteral("Bob Friend"));
        TestPki::Identity carol = pki.createUser(QStringLiteral("Carol Stranger"));
    };
    static People& people();

    ProcessingTestKit();
    ~ProcessingTestKit();
    ProcessingTestKit(const ProcessingTestKit&) = delete;
    ProcessingTestKit& operator=(const ProcessingTestKit&) = delete;

    [[nodiscard]] static NivoProfile aliceProfile();
    [[nodiscard]] static NivoProfile bobProfile();
    [[nodiscard]] static Contact contact(const QString& nivoId, const TestPki::Identity& identity);

    // A path in the test's own folder; files() lists the names there, sorted.
    [[nodiscard]] QString path(const QString& relative) const;
    QString writeFile(const QString& relative, const QByteArray& content) const;
    [[nodiscard]] QStringList files(const QString& folder) const;
    // Protects `content` for alice as `signer` would, into `relative`.
    QString protectedFile(const QString& relative, const QByteArray& content,
                          const NivoProfile& signer) const;

    // The log's lines without their date and time: "Encrypt | /path | bob,alice | Success".
    [[nodiscard]] static QStringList loggedEvents();

    // Lets every background run finish and delivers its completion, without a clock.
    static void drainBackgroundWork();

private:
    UserSandbox m_sandbox;
    QTemporaryDir m_dir;
};
