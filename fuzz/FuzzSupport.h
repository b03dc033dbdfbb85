#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "model/NivoProfile.h"

// What the fuzz targets share: a quiet Qt, one scratch folder per process, the fixed key of the
// CMS targets and the checks that every decryption must pass. Every target is deterministic and
// touches nothing outside its scratch folder.
namespace FuzzSupport {

// Once per process: drops Qt's messages (failed decryptions are logged as warnings, which would
// flood the fuzzer's output) except fatal ones.
void quietQt();

// A folder of this process, removed when it ends; `name` inside it.
[[nodiscard]] const QString& scratchDir();
[[nodiscard]] QString scratchPath(const QString& name);

[[nodiscard]] QByteArray readFile(const QString& path);
// Replaces the file; false when it cannot be written.
bool writeFile(const QString& path, QByteArrayView bytes);

[[nodiscard]] inline QByteArray bytesOf(const std::uint8_t* data, std::size_t size) {
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// Stops the process with `what` on standard error; libFuzzer records the input that did it.
[[noreturn]] void fail(const QString& what);

// The signed-in user of the CMS targets: the throw-away key in fuzz/keys, whose PFX uses a single
// key-derivation iteration so that opening it costs nothing next to the message.
struct FixedUser {
    NivoProfile profile;  // LoginName "fuzz-user", Pfx and Cer
    QString password;
};
[[nodiscard]] const FixedUser& fixedUser();

// One way of decrypting a message for the fixed user: the message as bytes and, for readers that
// want a file, the same bytes at `inputPath`; the plain content goes to `outputPath`.
using Decrypt = std::function<QString(const QByteArray& message, const QString& inputPath,
                                      const QString& outputPath, QString& sender)>;

enum class MessageInput { Memory, File };

// A target for another way of decrypting is cms_decrypt.cpp with its own `decrypt` call
// (MessageInput::File when the call reads a file), its name in NIVOGX_FUZZ_TARGETS in
// CMakeLists.txt, and fuzz/corpus/<name> (a link to corpus/cms_decrypt serves).
//
// Decrypts `message` with `decrypt` and checks what every decryption promises: no exception
// with the right key, and either success with the content written, or a failure text with nothing
// written and the sender untouched. Leaves nothing behind in the scratch folder. Returns the
// outcome.
QString checkDecrypt(const QByteArray& message, MessageInput input, const Decrypt& decrypt);

}  // namespace FuzzSupport

#define FUZZ_CHECK(condition, what)                                                             \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            FuzzSupport::fail(QStringLiteral("%1 (%2)").arg(what, QStringLiteral(#condition))); \
        }                                                                                       \
    } while (false)
