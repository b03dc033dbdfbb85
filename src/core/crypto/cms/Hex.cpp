#include "crypto/cms/Hex.h"

QString Hex::hexRepresentationWithSpaces_AS(const QByteArray& bytes, bool withSpaces) {
    static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
    QString text;
    text.reserve(bytes.size() * 2 + (withSpaces ? bytes.size() / 4 : 0));
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        text.append(QChar(kDigits[byte >> 4]));
        text.append(QChar(kDigits[byte & 0x0F]));
        if (withSpaces) {
            const qsizetype count = i + 1;
            if (count % 16 == 0) {
                text.append(u'\n');
            } else if (count % 4 == 0) {
                text.append(u' ');
            }
        }
    }
    return text;
}
