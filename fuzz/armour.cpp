// Text armour (PEM, S/MIME) comes from mail and chat, cut, pasted and edited by hand: any text
// must unwrap to a message or fail with a text, what unwraps must survive wrapping once more, any
// bytes must survive a wrap, and PEM that lost its END line must never open as if whole.
#include <QBuffer>

#include "FuzzSupport.h"
#include "crypto/cms/CmsArmour.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// "" and the message, or the failure.
QString unwrap(const QByteArray& text, QByteArray& message) {
    QBuffer in;
    in.setData(text);
    QBuffer out(&message);
    (void)in.open(QIODevice::ReadOnly);
    (void)out.open(QIODevice::WriteOnly);
    return CmsArmour::unwrap(in, out);
}

QByteArray wrap(const QByteArray& message) {
    QBuffer in;
    in.setData(message);
    QByteArray text;
    QBuffer out(&text);
    (void)in.open(QIODevice::ReadOnly);
    (void)out.open(QIODevice::WriteOnly);
    FUZZ_CHECK(CmsArmour::wrap(in, out).isEmpty(), u"wrapping into memory failed"_s);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzSupport::quietQt();
    const QByteArray bytes = FuzzSupport::bytesOf(data, size);

    QByteArray message;
    const QString failure = unwrap(bytes, message);
    if (failure.isEmpty()) {
        FUZZ_CHECK(!message.isEmpty(), u"armour opened to nothing"_s);
        QByteArray again;
        FUZZ_CHECK(unwrap(wrap(message), again).isEmpty() && again == message,
                   u"an unwrapped message does not survive a wrap"_s);
        const qsizetype end = bytes.indexOf("\n-----END ");
        if (CmsArmour::formOf(bytes.left(1024)) == CmsArmour::Form::Pem && end >= 0) {
            QByteArray cut;
            FUZZ_CHECK(!unwrap(bytes.left(end + 1), cut).isEmpty(),
                       u"PEM without its END line opened"_s);
        }
    }

    if (!bytes.isEmpty()) {
        QByteArray back;
        const QByteArray text = wrap(bytes);
        FUZZ_CHECK(text.startsWith("-----BEGIN CMS-----\n") && text.endsWith("-----END CMS-----\n"),
                   u"wrapped text without its BEGIN and END lines"_s);
        FUZZ_CHECK(unwrap(text, back).isEmpty() && back == bytes, u"bytes do not survive a wrap"_s);
    }
    return 0;
}
