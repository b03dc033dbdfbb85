// Seconds and peak memory (maximum resident set size) to protect and to open one large file with
// the in-memory operations. Each phase runs in a child process of its own, so that its peak
// memory is its alone. With --cancel: how long a streaming protect and open of a large sparse
// file take to stop once cancelled midway, from the cancel to the end of the call.
//
//   bench_crypto [size in MiB, default 100]
//   bench_crypto --cancel [size in GiB, default 4]

#include <sys/resource.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <cstdio>
#include <functional>

#include "crypto/NivoCryptoOperation.h"
#include "crypto/toolkit/TVXException.h"
#include "crypto/toolkit/TVXRandom.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kPassword = u"bench password"_s;

double peakMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB on Linux
}

QByteArray readAll(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        std::exit(2);
    }
    return file.readAll();
}

bool run(const QString& program, const QStringList& arguments, QByteArray* output = nullptr) {
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(-1);
    if (output != nullptr) {
        *output = process.readAllStandardOutput();
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(program),
                     process.readAllStandardError().constData());
        return false;
    }
    return true;
}

NivoProfile profile(const QString& dir) {
    NivoProfile p;
    p.LoginName = u"bench"_s;
    p.StatusText = u""_s;
    p.Pfx = readAll(dir + u"/user.pfx"_s);
    p.Cer = readAll(dir + u"/user.der"_s);
    return p;
}

// One phase in this (child) process; prints "seconds peak-MiB baseline-MiB".
int phase(const QString& which, const QString& dir) {
    const NivoProfile user = profile(dir);
    const bool encrypt = which == u"encrypt"_s;
    const QByteArray input = readAll(dir + (encrypt ? u"/input.bin"_s : u"/input.tvf"_s));
    const double baseline = peakMiB();
    QElapsedTimer timer;
    timer.start();
    try {
        QString outcome;
        if (encrypt) {
            outcome = NivoCryptoOperation::encryptData(input, user, kPassword, {},
                                                       dir + u"/input.tvf"_s);
        } else {
            QString sender;
            outcome = NivoCryptoOperation::decryptData(input, user, kPassword,
                                                       dir + u"/output.bin"_s, sender);
        }
        if (!outcome.isEmpty()) {
            std::fprintf(stderr, "%s: %s\n", qPrintable(which), qPrintable(outcome));
            return 1;
        }
    } catch (const TVXException& e) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(which), e.what());
        return 1;
    }
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    std::printf("%.3f %.1f %.1f\n", seconds, peakMiB(), baseline);
    return 0;
}

using FileOperation = std::function<RunResult(const NivoCryptoOperation::FileRun&)>;

// Runs `operation`, cancels it once `at` bytes of input were read, and prints how long it took
// from the cancel to its end, and how far it read. False when it was not stopped.
bool timeCancel(const char* name, const FileOperation& operation, qint64 at, qint64 total) {
    bool cancelled = false;
    QElapsedTimer timer;
    qint64 cancelledAt = 0;
    qint64 lastDone = 0;
    NivoCryptoOperation::FileRun run{};
    run.progress = [&](qint64 done, qint64) {
        lastDone = done;
        if (!cancelled && done >= at) {
            cancelledAt = done;
            timer.start();
            cancelled = true;
        }
        return !cancelled;
    };
    const bool stopped = operation(run).status == RunResult::Status::Cancelled;
    const double ms = timer.isValid() ? static_cast<double>(timer.nsecsElapsed()) / 1e6 : -1;
    std::printf("%-8s cancelled after %6lld MiB of %lld: stopped in %8.1f ms, %lld KiB read after "
                "the cancel, %s\n",
                name, static_cast<long long>(cancelledAt >> 20),
                static_cast<long long>(total >> 20), ms,
                static_cast<long long>((lastDone - cancelledAt) >> 10),
                stopped ? "no output" : "NOT STOPPED");
    return stopped;
}

int cancelBench(const QString& d, qint64 gib) {
    const NivoProfile user = profile(d);
    const qint64 size = gib << 30;
    const QString input = d + u"/sparse.bin"_s;
    const QString sealed = d + u"/sparse.bin.tvf"_s;
    if (QFile file(input); !file.open(QIODevice::WriteOnly) || !file.resize(size)) {
        return 1;
    }
    std::printf("cancel benchmark: %lld GiB sparse file, streaming encryptFile / decryptFile\n",
                static_cast<long long>(gib));
    std::fflush(stdout);
    const FileOperation encrypt = [&](const NivoCryptoOperation::FileRun& run) {
        return NivoCryptoOperation::encryptFile(input, user, kPassword, {}, sealed, run);
    };
    bool stopped = true;
    for (const qint64 at : {qint64{64} << 20, size / 2}) {
        stopped = timeCancel("encrypt", encrypt, at, size) && stopped;
    }
    // A whole protected file to open.
    QElapsedTimer whole;
    whole.start();
    (void)encrypt(NivoCryptoOperation::FileRun{});
    std::printf("(protecting it whole took %.1f s)\n", static_cast<double>(whole.elapsed()) / 1e3);
    const qint64 sealedSize = QFileInfo(sealed).size();
    const FileOperation decrypt = [&](const NivoCryptoOperation::FileRun& run) {
        return NivoCryptoOperation::decryptFile(sealed, user, kPassword, d + u"/opened.bin"_s, {},
                                                run);
    };
    for (const qint64 at : {qint64{64} << 20, sealedSize / 2}) {
        stopped = timeCancel("decrypt", decrypt, at, sealedSize) && stopped;
    }
    return stopped && !QFileInfo::exists(d + u"/opened.bin"_s) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() == 4 && arguments[1] == u"--phase"_s) {
        return phase(arguments[2], arguments[3]);
    }
    const bool cancel = arguments.size() > 1 && arguments[1] == u"--cancel"_s;
    const qsizetype mib = cancel ? 0 : arguments.size() > 1 ? arguments[1].toLongLong() : 100;

    QTemporaryDir dir;
    const QString d = dir.path();
    if (!run(u"openssl"_s, {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s,
                            u"-keyout"_s, d + u"/user.key"_s, u"-out"_s, d + u"/user.pem"_s,
                            u"-subj"_s, u"/CN=Bench User"_s, u"-days"_s, u"2"_s}) ||
        !run(u"openssl"_s, {u"x509"_s, u"-in"_s, d + u"/user.pem"_s, u"-outform"_s, u"DER"_s,
                            u"-out"_s, d + u"/user.der"_s}) ||
        !run(u"openssl"_s, {u"pkcs12"_s, u"-export"_s, u"-inkey"_s, d + u"/user.key"_s,
                            u"-in"_s, d + u"/user.pem"_s, u"-passout"_s,
                            u"pass:"_s + kPassword, u"-out"_s, d + u"/user.pfx"_s})) {
        return 1;
    }
    if (cancel) {
        return cancelBench(d, arguments.size() > 2 ? arguments[2].toLongLong() : 4);
    }
    {
        QFile input(d + u"/input.bin"_s);
        if (!input.open(QIODevice::WriteOnly)) {
            return 1;
        }
        const QByteArray chunk = TVXRandom::randomDataWithLength(1024 * 1024);
        for (qsizetype i = 0; i < mib; ++i) {
            input.write(chunk);
        }
    }

    QTextStream out(stdout);
    out << "crypto benchmark: " << mib << " MiB, in-memory encryptData / decryptData\n";
    out << "phase     seconds   peak RSS MiB   RSS before the call MiB\n";
    for (const QString& which : {u"encrypt"_s, u"decrypt"_s}) {
        QByteArray result;
        if (!run(app.applicationFilePath(), {u"--phase"_s, which, d}, &result)) {
            return 1;
        }
        const QList<QByteArray> fields = result.trimmed().split(' ');
        out << qSetFieldWidth(10) << Qt::left << which << fields.value(0)
            << qSetFieldWidth(15) << fields.value(1) << qSetFieldWidth(0) << fields.value(2)
            << "\n";
        out.flush();
    }
    if (readAll(d + u"/output.bin"_s) != readAll(d + u"/input.bin"_s)) {
        std::fprintf(stderr, "round trip changed the content\n");
        return 1;
    }
    return 0;
}
