#include "log/VisibleText.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Characters that move the cursor, end a line or reorder what follows when shown.
bool isControl(char16_t c) {
    return c < 0x20 || c == 0x7f || (c >= 0x80 && c <= 0x9f) || c == 0x2028 || c == 0x2029 ||
           (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
}

QString escaped(QStringView text, bool backslashes) {
    const auto needsEscape = [backslashes](char16_t c) {
        return isControl(c) || (backslashes && c == u'\\');
    };
    qsizetype first = 0;
    while (first < text.size() && !needsEscape(text[first].unicode())) {
        ++first;
    }
    if (first == text.size()) {
        return text.toString();
    }
    QString visible = text.left(first).toString();
    for (qsizetype i = first; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (!needsEscape(c)) {
            visible += QChar(c);
        } else if (c == u'\\') {
            visible += u"\\\\"_s;
        } else if (c == u'\n') {
            visible += u"\\n"_s;
        } else if (c == u'\r') {
            visible += u"\\r"_s;
        } else if (c == u'\t') {
            visible += u"\\t"_s;
        } else if (c < 0x80) {
            visible += u"\\x%1"_s.arg(int{c}, 2, 16, QChar(u'0'));
        } else {
            visible += u"\\u%1"_s.arg(int{c}, 4, 16, QChar(u'0'));
        }
    }
    return visible;
}

}  // namespace

QString VisibleText::of(QStringView text) {
    return escaped(text, true);
}

QString VisibleText::ofEscaped(QStringView text) {
    return escaped(text, false);
}
