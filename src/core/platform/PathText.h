#pragma once

#include <QString>

// Path pieces as the file list and the output naming read them: plain text operations on '/'
// separated paths that never touch the disk. The extension is the text after the last dot of the
// last component, so ".profile" has the extension "profile" and "notes." an empty one.
namespace PathText {

// The last component, trailing separators ignored: "/a/b/" gives "b", "/" gives "/".
[[nodiscard]] QString lastComponent(const QString& path);
// Everything before the last component: "/a/b" gives "/a", "/a" gives "/", "b" gives "".
[[nodiscard]] QString withoutLastComponent(const QString& path);
// `folder` and `name` joined by one separator; `name` alone when `folder` is empty.
[[nodiscard]] QString join(const QString& folder, const QString& name);

[[nodiscard]] QString extension(const QString& name);
// The name without its extension and the dot before it; the name itself when it has no dot.
[[nodiscard]] QString withoutExtension(const QString& name);
// `base` and `ext` joined by a dot; `base` alone, without a trailing dot, when `ext` is empty.
[[nodiscard]] QString withExtension(const QString& base, const QString& ext);

}  // namespace PathText
