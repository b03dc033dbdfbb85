#!/usr/bin/env bash
# Installs the build's server component into a scratch DESTDIR and checks it as an operator
# would meet it: the installed program refuses to start without keys of its own (never falling
# back to the development keys of the source tree), and systemd accepts the unit.
#
#   server-install-check.sh CMAKE BUILD_DIR
set -euo pipefail
cmake=$1
build=$2
dest=$(mktemp -d "${TMPDIR:-/tmp}/nivogx-server-install.XXXXXX")
trap 'rm -rf "$dest"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}

DESTDIR="$dest" "$cmake" --install "$build" --prefix /usr --component server >/dev/null
root=$dest/usr
server=$root/bin/nivogx-server
unit=$root/lib/systemd/system/nivogx-server.service
for file in "$server" "$unit" "$root/lib/sysusers.d/nivogx-server.conf" \
  "$root/share/nivogx-server/nivogx-server.conf.sample"; do
  [[ -e $file ]] || fail "${file#"$dest"} is not installed"
done

status=0
said=$("$server" --data-dir "$dest/data" 2>&1) || status=$?
[[ $status -ne 0 ]] || fail "the installed server started without keys"
[[ $said == *--dev* ]] || fail "the refusal does not say what to do: $said"
[[ ! -e $dest/data ]] || fail "the refused server made its data folder"

grep -q '^ExecStart=/usr/bin/nivogx-server ' "$unit" || fail "the unit runs another program"
if command -v systemd-analyze >/dev/null; then
  # Checked where it is, since /usr/bin holds no such program here.
  sed "s|/usr/bin/nivogx-server|$server|" "$unit" >"$dest/nivogx-server.service"
  remarks=$(systemd-analyze verify "$dest/nivogx-server.service" 2>&1) || fail "unit: $remarks"
  [[ -z $remarks ]] || fail "unit: $remarks"
fi
echo "the installed server refuses to start without keys; its unit is valid"
