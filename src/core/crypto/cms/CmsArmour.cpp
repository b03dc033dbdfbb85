#include "crypto/cms/CmsArmour.h"

#include <QFile>

using namespace Qt::Literals::StringLiterals;

const QByteArray CmsArmour::kPemLabel = "CMS";
const QByteArray CmsArmour::kPkcs7PemLabel = "PKCS7";
const QString CmsArmour::kBadArmour =
    u"The text holds no readable protected file (bad PEM or S/MIME armour)."_s;
const QString CmsArmour::kEndMismatch =
    u"The PEM text ends with \"%1\" instead of the END line of its BEGIN line "
    "(bad PEM armour): it may be two texts pasted together."_s;
const QString CmsArmour::kNoEnd =
    u"The PEM text has no END line (bad PEM armour): it was cut short."_s;

namespace {

constexpr qint64 kBlockBytes = 48 * 1024;  // a whole number of base64 lines of 64 characters
constexpr int kColumns = 64;
constexpr qint64 kLongestLine = 4096;
constexpr qint64 kHeadBytes = 1024;
// How much of a wrong END line a message quotes.
constexpr qsizetype kQuotedEnd = 80;

const QByteArray kPemBegin = "-----BEGIN ";
const QByteArray kPemEnd = "-----END ";
const QByteArray kDashes = "-----";
const QByteArray kPkcs7Mime = "application/pkcs7-mime";
const QByteArray kOldPkcs7Mime = "application/x-pkcs7-mime";
const QByteArray kContentType = "content-type:";
const QByteArray kTransferEncoding = "content-transfer-encoding:";

QByteArray beginLine(const QByteArray& label) {
    return kPemBegin + label + kDashes;
}

bool isBase64Char(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           c == '+' || c == '/' || c == '=';
}

// Collects base64 text and writes what it decodes to, in whole groups of four characters.
class Base64Sink {
public:
    explicit Base64Sink(QIODevice& out) : m_out(out) {}

    // False when the line holds anything but base64 and blanks.
    bool add(const QByteArray& line) {
        for (const char c : line) {
            if (isBase64Char(c)) {
                m_pending += c;
            } else if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
                return false;
            }
        }
        return m_pending.size() < kBlockBytes || flush(false);
    }
    // Decodes the rest; false on a decoding or write failure.
    bool finish() { return flush(true); }
    [[nodiscard]] bool wroteAny() const { return m_wrote; }

private:
    bool flush(bool all) {
        const qsizetype take = all ? m_pending.size() : m_pending.size() / 4 * 4;
        if (take == 0) {
            return true;
        }
        const auto decoded = QByteArray::fromBase64Encoding(
            m_pending.left(take), QByteArray::AbortOnBase64DecodingErrors);
        m_pending.remove(0, take);
        if (!decoded || (decoded.decoded.isEmpty() && take > 0)) {
            return false;
        }
        m_wrote = true;
        return m_out.write(decoded.decoded) == decoded.decoded.size();
    }

    QIODevice& m_out;
    QByteArray m_pending;
    bool m_wrote = false;
};

}  // namespace

CmsArmour::Form CmsArmour::formOf(const QByteArray& head) {
    const QByteArray text = head.trimmed();
    if (text.startsWith(beginLine(kPemLabel)) || text.startsWith(beginLine(kPkcs7PemLabel))) {
        return Form::Pem;
    }
    // A MIME entity: header lines first, one of them naming the type.
    const QByteArray lower = text.toLower();
    const qsizetype headersEnd = lower.indexOf("\n\n") >= 0 ? lower.indexOf("\n\n")
                                                             : lower.indexOf("\r\n\r\n");
    const QByteArray headers = headersEnd >= 0 ? lower.left(headersEnd) : lower;
    if ((lower.startsWith("mime-version:") || lower.startsWith(kContentType)) &&
        (headers.contains(kPkcs7Mime) || headers.contains(kOldPkcs7Mime))) {
        return Form::Smime;
    }
    return Form::Binary;
}

bool CmsArmour::isArmoured(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && formOf(file.read(kHeadBytes)) != Form::Binary;
}

QString CmsArmour::wrap(QIODevice& in, QIODevice& out) {
    if (out.write(beginLine(kPemLabel) + '\n') < 0) {
        return out.errorString();
    }
    for (;;) {
        const QByteArray block = in.read(kBlockBytes);
        if (block.isEmpty()) {
            break;
        }
        const QByteArray text = block.toBase64();
        for (qsizetype at = 0; at < text.size(); at += kColumns) {
            if (out.write(text.mid(at, kColumns) + '\n') < 0) {
                return out.errorString();
            }
        }
    }
    if (out.write(kPemEnd + kPemLabel + kDashes + '\n') < 0) {
        return out.errorString();
    }
    return {};
}

QString CmsArmour::unwrap(QIODevice& in, QIODevice& out) {
    Base64Sink sink(out);
    bool inBody = false;
    bool pem = false;
    bool ended = false;
    bool firstLine = true;
    bool base64Body = false;
    QByteArray label;
    while (!in.atEnd()) {
        QByteArray line = in.readLine(kLongestLine);
        if (line.size() >= kLongestLine - 1 && !line.endsWith('\n')) {
            return kBadArmour;  // no armour has lines this long
        }
        const QByteArray trimmed = line.trimmed();
        if (firstLine && trimmed.isEmpty()) {
            continue;
        }
        if (firstLine) {
            firstLine = false;
            pem = trimmed.startsWith(kPemBegin);
            if (pem) {
                if (trimmed != beginLine(kPemLabel) && trimmed != beginLine(kPkcs7PemLabel)) {
                    return kBadArmour;
                }
                label = trimmed.mid(kPemBegin.size(),
                                    trimmed.size() - kPemBegin.size() - kDashes.size());
                inBody = true;
                continue;
            }
        }
        if (pem) {
            if (trimmed.startsWith(kPemEnd)) {
                if (trimmed != kPemEnd + label + kDashes) {
                    return kEndMismatch.arg(QString::fromLatin1(trimmed.left(kQuotedEnd)));
                }
                ended = true;
                break;
            }
            if (!sink.add(trimmed)) {
                return kBadArmour;
            }
            continue;
        }
        // S/MIME: headers up to the first blank line, then the base64 body up to the next one.
        if (!inBody) {
            const QByteArray lower = trimmed.toLower();
            if (lower.startsWith(kTransferEncoding)) {
                base64Body = lower.mid(kTransferEncoding.size()).trimmed() == "base64";
            }
            if (trimmed.isEmpty()) {
                if (!base64Body) {
                    return kBadArmour;
                }
                inBody = true;
            }
            continue;
        }
        if (trimmed.isEmpty()) {
            ended = true;
            break;
        }
        if (!sink.add(trimmed)) {
            return kBadArmour;
        }
    }
    if (pem && !ended) {
        return kNoEnd;
    }
    if (!inBody || !sink.finish() || !sink.wroteAny()) {
        return kBadArmour;
    }
    return {};
}
