// The entry point of a fuzz target in an ordinary build: feeds every file named on the command
// line (or found in a folder named there) to the target once, so that the seed corpus runs as a
// plain test with any compiler.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cstdio>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char* argv[]) {
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString argument = QFile::decodeName(argv[i]);
        if (QFileInfo(argument).isDir()) {
            const QDir dir(argument);
            for (const QString& name : dir.entryList(QDir::Files, QDir::Name)) {
                files.append(dir.filePath(name));
            }
        } else {
            files.append(argument);
        }
    }
    if (files.isEmpty()) {
        std::fprintf(stderr, "usage: %s FILE|FOLDER...\n", argv[0]);
        return 2;
    }
    for (const QString& path : files) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
            return 1;
        }
        const QByteArray bytes = file.readAll();
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                               static_cast<std::size_t>(bytes.size()));
    }
    std::printf("%lld inputs passed\n", static_cast<long long>(files.size()));
    return 0;
}
