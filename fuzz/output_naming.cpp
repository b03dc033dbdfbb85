// Output names for input files of any name, in both directions. Whatever the name, the output
// must be a new file directly inside the chosen folder; a protected file ends in ".tvf".
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "FuzzSupport.h"
#include "platform/PathText.h"
#include "processing/ProcessController.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Taken names tried in a row: enough to step through "(1)", "(2)" and a carried number.
constexpr int kCollisions = 3;

void checkPlace(const QString& folder, const QString& path, bool toEncrypt) {
    const QString name = PathText::lastComponent(path);
    FUZZ_CHECK(PathText::withoutLastComponent(path) == folder,
               u"the output leaves the folder: "_s + path);
    FUZZ_CHECK(!name.isEmpty() && name != u"."_s && name != u".."_s && !name.contains(u'/'),
               u"the output has no name of its own: "_s + path);
    FUZZ_CHECK(!QFileInfo::exists(path), u"the output is taken already: "_s + path);
    if (toEncrypt) {
        FUZZ_CHECK(name.endsWith(u".tvf"_s), u"a protected file without .tvf: "_s + path);
    }
}

void checkDirection(const QString& folder, const QString& fileName, bool toEncrypt) {
    QString path = ProcessController::generateOutputFilePath(folder, fileName, toEncrypt);
    checkPlace(folder, path, toEncrypt);
    // A name that needs no change and is free is used as it stands.
    const bool keepsName = toEncrypt ? PathText::extension(fileName) == u"tvf"_s
                                     : PathText::extension(fileName) != u"tvf"_s;
    const QString asItStands = PathText::join(folder, fileName);
    if (keepsName && !QFileInfo::exists(asItStands)) {
        FUZZ_CHECK(path == asItStands, u"a free name was changed: "_s + path);
    }

    QStringList taken;
    for (int i = 0; i < kCollisions; ++i) {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly)) {
            break;  // a name the file system does not take (too long, for instance)
        }
        file.close();
        taken.append(path);
        const QString next = ProcessController::generateOutputFilePath(folder, fileName, toEncrypt);
        checkPlace(folder, next, toEncrypt);
        // A name ending in a dot has an empty extension; its numbered names drop the dot.
        const QString extension = PathText::extension(path);
        FUZZ_CHECK(extension.isEmpty() || PathText::extension(next) == extension,
                   u"a numbered name lost its extension: "_s + next);
        path = next;
    }
    for (const QString& file : taken) {
        QFile::remove(file);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzSupport::quietQt();
    static const QString folder = [] {
        const QString made = FuzzSupport::scratchPath(u"out"_s);
        QDir().mkpath(made);
        return made;
    }();
    // The name of an input file as the file list holds it: the last component of its path.
    const QString inputPath = QString::fromUtf8(FuzzSupport::bytesOf(data, size));
    const QString fileName = PathText::lastComponent(inputPath);
    if (fileName.isEmpty() || fileName.contains(QChar(0)) || fileName == u"/"_s) {
        return 0;  // no file on disk has such a name
    }
    checkDirection(folder, fileName, true);
    checkDirection(folder, fileName, false);
    return 0;
}
