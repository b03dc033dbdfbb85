#include "platform/PathText.h"

namespace {

constexpr QChar kSeparator = u'/';
constexpr QChar kDot = u'.';

// The path without trailing separators, except that a root stays a root.
QString trimmed(const QString& path) {
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == kSeparator) {
        --end;
    }
    return path.left(end);
}

}  // namespace

namespace PathText {

QString lastComponent(const QString& path) {
    const QString p = trimmed(path);
    if (p.size() == 1 && p.at(0) == kSeparator) {
        return p;
    }
    return p.mid(p.lastIndexOf(kSeparator) + 1);
}

QString withoutLastComponent(const QString& path) {
    const QString p = trimmed(path);
    const qsizetype slash = p.lastIndexOf(kSeparator);
    if (slash < 0) {
        return {};
    }
    return slash == 0 ? p.left(1) : p.left(slash);
}

QString join(const QString& folder, const QString& name) {
    if (folder.isEmpty()) {
        return name;
    }
    return folder.endsWith(kSeparator) ? folder + name : folder + kSeparator + name;
}

QString extension(const QString& name) {
    const qsizetype dot = name.lastIndexOf(kDot);
    return dot < 0 ? QString() : name.mid(dot + 1);
}

QString withoutExtension(const QString& name) {
    const qsizetype dot = name.lastIndexOf(kDot);
    return dot < 0 ? name : name.left(dot);
}

QString withExtension(const QString& base, const QString& ext) {
    return ext.isEmpty() ? base : base + kDot + ext;
}

}  // namespace PathText
