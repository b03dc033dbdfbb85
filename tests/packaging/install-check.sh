#!/usr/bin/env bash
# Installs the build's desktop component into a scratch DESTDIR and checks what a desktop reads
# from it: the program, a valid menu entry that opens files with it, the file types it claims
# (declared, and compiled by shared-mime-info into the expected patterns), a well-formed
# application icon, and the README with its pictures for Help.
#
#   install-check.sh CMAKE BUILD_DIR
set -euo pipefail
cmake=$1
build=$2
dest=$(mktemp -d "${TMPDIR:-/tmp}/nivogx-install.XXXXXX")
trap 'rm -rf "$dest"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}

DESTDIR="$dest" "$cmake" --install "$build" --prefix /usr --component desktop >/dev/null
root=$dest/usr
desktop=$root/share/applications/nivogx.desktop
mime=$root/share/mime/packages/nivogx.xml
icon=$root/share/icons/hicolor/scalable/apps/nivogx.svg
[[ -x $root/bin/nivogx ]] || fail "bin/nivogx is not installed"
for file in "$desktop" "$mime" "$icon"; do
  [[ -f $file ]] || fail "${file#"$dest"} is not installed"
done

# Hints count as failures too: the entry should pass without remarks.
remarks=$(desktop-file-validate "$desktop" 2>&1) || fail "desktop entry: $remarks"
[[ -z $remarks ]] || fail "desktop entry: $remarks"
grep -qx 'Exec=nivogx %F' "$desktop" || fail "the entry does not hand over its files"
grep -qx 'Icon=nivogx' "$desktop" || fail "the entry names another icon"
xmllint --noout "$mime" "$icon" || fail "not well-formed XML"

claimed=$(sed -n 's/^MimeType=//p' "$desktop" | tr ';' '\n' | sed '/^$/d' | sort)
declared=$(grep -o '<mime-type type="[^"]*"' "$mime" | sed 's/.*type="\([^"]*\)"/\1/' | sort)
[[ -n $claimed && $claimed == "$declared" ]] ||
  fail "the entry claims [$claimed], the package declares [$declared]"

update-mime-database "$root/share/mime" 2>/dev/null || fail "shared-mime-info rejects the package"
for pair in x-nivogx-protected:tvf x-nivogx-contacts:cbkm x-nivogx-profile:vts; do
  grep -qF "application/${pair%%:*}:*.${pair##*:}" "$root/share/mime/globs2" ||
    fail "*.${pair##*:} does not map to application/${pair%%:*}"
done
# Help opens the README, which shows pictures of the windows from beside it.
doc=$root/share/doc/nivogx
[[ -f $doc/README.md ]] || fail "the README is not installed where Help looks for it"
grep -q '^## Using the app$' "$doc/README.md" || fail "the README has no section Using the app"
pictures=$(grep -o '](docs/[^)]*\.png)' "$doc/README.md" | sed 's/^](//; s/)$//')
[[ -n $pictures ]] || fail "the README shows no pictures"
for picture in $pictures; do
  [[ -f $doc/$picture ]] || fail "the README shows $picture, which is not installed"
done
echo "installed files are in place and valid"
