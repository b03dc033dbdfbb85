// The file variants stream: round trips on files larger than every buffer, the same outcomes as
// the memory variants, nothing at the output path unless everything checked out, an input that
// changes and a progress callback that answers false stop the work, the openssl command on the
// other side, and the key file opened once per batch.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "CryptoTestKit.h"
#include "TestPki.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/toolkit/ComTruvexIO_FileStream.h"
#include "crypto/toolkit/TVXException.h"
#include "crypto/toolkit/TVXRandom.h"
#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;
using namespace CryptoTestKit;

namespace {

class StreamingCmsTest : public PeopleTest {
protected:
    QStringList filesHere() const {
        return QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }

    // encryptFile as alice for bob; returns the protected file's path.
    QString encryptFileForBob(const QByteArray& content, const QString& name) {
        const QString input = out(name);
        EXPECT_TRUE(putFile(input, content));
        const QString path = out(name + u".tvf"_s);
        EXPECT_EQ(NivoCryptoOperation::encryptFile(input, TestPki::profileFor(alice(), u"alice"_s),
                                                   TestPki::kPassword, {bob().certDer}, path),
                  u""_s);
        return path;
    }
};

TEST_F(StreamingCmsTest, RoundTripsAcrossBufferBoundariesAndBetweenVariants) {
    // Around the 4 KiB cipher pieces and the 64 KiB reading and copying pieces, and past them all.
    const QList<qsizetype> sizes{0, 1, 4095, 4096, 4097, 65535, 65536, 65537, 3 * 1024 * 1024 + 5};
    const NivoProfile aliceProfile = TestPki::profileFor(alice(), u"alice"_s);
    for (const qsizetype size : sizes) {
        SCOPED_TRACE(size);
        const QByteArray content = TVXRandom::randomDataWithLength(size);
        const QString name = u"c%1"_s.arg(size);
        const QString streamed = encryptFileForBob(content, name);

        // File to file, and file to memory.
        Decrypted opened = decryptFileAs(bob(), u"bob"_s, streamed, out(name + u".f"_s));
        EXPECT_EQ(opened.outcome, u""_s);
        EXPECT_EQ(opened.output, content);
        EXPECT_EQ(opened.sender, alice().commonName);
        opened = decryptAs(bob(), u"bob"_s, fileBytes(streamed), out(name + u".m"_s));
        EXPECT_EQ(opened.outcome, u""_s);
        EXPECT_TRUE(opened.outputWritten);  // even when empty
        EXPECT_EQ(opened.output, content);

        // Memory to file; the sender opens what he sent, named by his login name.
        const QString fromMemory = out(name + u".mem.tvf"_s);
        ASSERT_EQ(NivoCryptoOperation::encryptData(content, aliceProfile, TestPki::kPassword,
                                                   {bob().certDer}, fromMemory),
                  u""_s);
        opened = decryptFileAs(alice(), u"alice"_s, fromMemory, out(name + u".a"_s));
        EXPECT_EQ(opened.outcome, u""_s);
        EXPECT_EQ(opened.output, content);
        EXPECT_EQ(opened.sender, u"alice"_s);
    }
}

// Decryption failures of both variants are OpensslInteropTest's table.
TEST_F(StreamingCmsTest, AFailedEncryptionKeepsTheEarlierFileAndLeavesNothingElse) {
    const QString input = out(u"good"_s);
    ASSERT_TRUE(putFile(input, "content"_ba));
    const QString kept = out(u"earlier"_s);
    ASSERT_TRUE(putFile(kept, "an earlier file"_ba));
    EXPECT_THROW(
        (void)NivoCryptoOperation::encryptFile(input, TestPki::profileFor(alice(), u"alice"_s),
                                               TestPki::kPassword, {"not a certificate"_ba}, kept),
        TVXException);
    EXPECT_EQ(fileBytes(kept), "an earlier file"_ba);
    // So does a missing input, which leaves no output at all.
    EXPECT_THROW((void)NivoCryptoOperation::encryptFile(
                     out(u"missing"_s), TestPki::profileFor(alice(), u"alice"_s),
                     TestPki::kPassword, {}, out(u"missing.tvf"_s)),
                 TVXException);
    EXPECT_FALSE(QFile::exists(out(u"missing.tvf"_s)));
    EXPECT_EQ(filesHere(), (QStringList{u"earlier"_s, u"good"_s}));
}

TEST_F(StreamingCmsTest, AWriteThatFailsAnywhereFailsBothDirectionsCleanly) {
    // Files may grow only so far: the writes fail as on a full disk, on whichever thread writes
    // the output. The last bytes reach the file only when the encoders are finished: a failure
    // there must fail the run as surely as one in the middle.
    const QByteArray content = TVXRandom::randomDataWithLength(2 * 1024 * 1024 + 17);
    const QString input = out(u"plain"_s);
    const QString sealed = encryptFileForBob(content, u"plain"_s);
    const qint64 size = QFileInfo(sealed).size();
    const NivoProfile aliceProfile = TestPki::profileFor(alice(), u"alice"_s);

    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    const auto within = [&](qint64 limit, const std::function<void()>& work) {
        rlimit small = saved;
        small.rlim_cur = static_cast<rlim_t>(limit);
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        work();
        setrlimit(RLIMIT_FSIZE, &saved);
    };
    const auto encryptWithin = [&](qint64 limit, const QString& output) {
        bool failed = false;
        within(limit, [&] {
            try {
                (void)NivoCryptoOperation::encryptFile(input, aliceProfile, TestPki::kPassword,
                                                       {bob().certDer}, output);
            } catch (const TVXException&) {
                failed = true;
            }
        });
        return failed;
    };
    for (const qint64 limit : {size - 1, size - 4000, size - 300 * 1024, qint64{1} << 20}) {
        SCOPED_TRACE(limit);
        ASSERT_TRUE(putFile(out(u"earlier"_s), "an earlier file"_ba));
        EXPECT_TRUE(encryptWithin(limit, out(u"earlier"_s)));
        EXPECT_EQ(fileBytes(out(u"earlier"_s)), "an earlier file"_ba);
    }
    QString sender = kSenderUntouched;
    QString outcome;
    within(qint64{1} << 20, [&] {
        outcome = NivoCryptoOperation::decryptFile(sealed, TestPki::profileFor(bob(), u"bob"_s),
                                                   TestPki::kPassword, out(u"earlier"_s), sender);
    });
    EXPECT_TRUE(outcome.startsWith(u"Cannot write"_s)) << outcome.toStdString();
    EXPECT_EQ(sender, kSenderUntouched);
    EXPECT_EQ(fileBytes(out(u"earlier"_s)), "an earlier file"_ba);
    // Room for every byte: the same run succeeds, so the limits above cut the very output.
    EXPECT_FALSE(encryptWithin(size, out(u"exact.tvf"_s)));
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_EQ(QFileInfo(out(u"exact.tvf"_s)).size(), size);
    EXPECT_EQ(filesHere(),
              (QStringList{u"earlier"_s, u"exact.tvf"_s, u"plain"_s, u"plain.tvf"_s}));
}

TEST_F(StreamingCmsTest, AnInputChangedWhileReadOrACancelStopsBothDirectionsWithNoOutput) {
    const QByteArray content = TVXRandom::randomDataWithLength(6 * 1024 * 1024);
    const QString sealed = encryptFileForBob(content, u"sealed"_s);
    const QByteArray sealedBytes = fileBytes(sealed);
    const NivoProfile aliceProfile = TestPki::profileFor(alice(), u"alice"_s);
    const NivoProfile bobProfile = TestPki::profileFor(bob(), u"bob"_s);
    const QStringList before = filesHere();

    struct Case {
        const char* name;
        std::function<void(const QString& input)> meanwhile;  // once the first MiB is read
        QString expected;
    };
    bool stop = false;
    const QList<Case> cases{
        {"truncated", [](const QString& input) { QFile::resize(input, 2 << 20); },
         ComTruvexIO_FileStream::kInputChanged},
        {"appended to",
         [](const QString& input) {
             QFile file(input);
             ASSERT_TRUE(file.open(QIODevice::Append));
             file.write("more");
         },
         ComTruvexIO_FileStream::kInputChanged},
        {"replaced",
         [](const QString& input) {
             const QByteArray bytes = fileBytes(input);
             QFile::remove(input);
             ASSERT_TRUE(putFile(input, bytes));
         },
         ComTruvexIO_FileStream::kInputChanged},
        {"stopped by its progress", [&stop](const QString&) { stop = true; },
         ComTruvexIO_FileStream::kStopped},
    };
    for (const Case& c : cases) {
        for (const bool toEncrypt : {true, false}) {
            SCOPED_TRACE(testing::Message() << c.name << (toEncrypt ? " encrypting" : " decrypting"));
            const QString input = out(u"changing"_s);
            ASSERT_TRUE(putFile(input, toEncrypt ? content : sealedBytes));
            stop = false;
            qint64 lastDone = 0;
            NivoCryptoOperation::FileRun run{};
            run.progress = [&](qint64 done, qint64) {
                if (lastDone == 0 && done > 0) {
                    c.meanwhile(input);
                }
                lastDone = done;
                return !stop;
            };
            const RunResult result =
                toEncrypt
                    ? NivoCryptoOperation::encryptFile(input, aliceProfile, TestPki::kPassword,
                                                       {bob().certDer}, out(u"o"_s), run)
                    : NivoCryptoOperation::decryptFile(input, bobProfile, TestPki::kPassword,
                                                       out(u"o"_s), {}, run);
            EXPECT_EQ(result.detail, c.expected);
            EXPECT_EQ(result.placedPath, u""_s);
            if (c.expected == ComTruvexIO_FileStream::kStopped) {
                EXPECT_EQ(result.status, RunResult::Status::Cancelled);
                EXPECT_LT(lastDone, 4 << 20);  // stopped where it was
            } else {
                EXPECT_EQ(result.status, RunResult::Status::Failed);
            }
            QFile::remove(input);
            EXPECT_EQ(filesHere(), before);
        }
    }
}

// openssl's own streaming output (open lengths, the content in segments) opens here; that
// openssl reads our streams is OpensslInteropTest's.
TEST_F(StreamingCmsTest, OpensslsOwnStreamsOpen) {
    const QByteArray content = TVXRandom::randomDataWithLength(1024 * 1024 + 3);
    const QByteArray streamedSigned = pki().sign(content, {&carol()}, {u"-stream"_s});
    const QString theirs = out(u"theirs.tvf"_s);
    ASSERT_TRUE(putFile(
        theirs, pki().encrypt(streamedSigned, {&bob()}, {u"-stream"_s, u"-aes-256-cbc"_s})));
    const Decrypted opened = decryptFileAs(bob(), u"bob"_s, theirs, out(u"theirs.out"_s));
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.output, content);
    EXPECT_EQ(opened.sender, carol().commonName);
}

TEST_F(StreamingCmsTest, TheKeyFileIsOpenedOncePerPasswordUntilForgotten) {
    comTruvexCrypto_Pkcs12Loader::forgetOpenedKeyFiles();
    const QString path = encryptFileForBob("first"_ba, u"batch"_s);
    const quint64 afterFirst = comTruvexCrypto_Pkcs12Loader::keyDerivations();
    for (int i = 0; i < 3; ++i) {
        (void)encryptFileForBob("again"_ba, u"batch%1"_s.arg(i));
    }
    EXPECT_EQ(comTruvexCrypto_Pkcs12Loader::keyDerivations(), afterFirst);

    // A wrong password fails every time, with the same text, although the right one is kept.
    const NivoProfile bobProfile = TestPki::profileFor(bob(), u"bob"_s);
    QStringList failures;
    for (int i = 0; i < 2; ++i) {
        QString sender;
        try {
            (void)NivoCryptoOperation::decryptFile(path, bobProfile, u"wrong"_s,
                                                   out(u"never"_s), sender);
        } catch (const TVXException& e) {
            EXPECT_EQ(e.name(), TVXWrongPasswordException);
            failures.append(e.description());
        }
    }
    ASSERT_EQ(failures.size(), 2);
    EXPECT_EQ(failures.first(), failures.last());
    EXPECT_FALSE(QFile::exists(out(u"never"_s)));

    // Once forgotten, the key file is opened again.
    const quint64 beforeForgetting = comTruvexCrypto_Pkcs12Loader::keyDerivations();
    NivoCryptoOperation::forgetOpenedKeys();
    (void)encryptFileForBob("after"_ba, u"after"_s);
    EXPECT_EQ(comTruvexCrypto_Pkcs12Loader::keyDerivations(), beforeForgetting + 1);
}

}  // namespace
