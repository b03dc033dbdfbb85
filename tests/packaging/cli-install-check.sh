#!/usr/bin/env bash
# Installs the whole build into a scratch prefix and uses the command-line tool from there as a
# person would: the installed program runs, both manual pages format without a warning, and the
# bash completion completes commands, options and contacts on partial command lines.
#
#   cli-install-check.sh CMAKE BUILD_DIR
set -euo pipefail
cmake=$1
build=$2
prefix=$(mktemp -d "${TMPDIR:-/tmp}/nivogx-prefix.XXXXXX")
trap 'rm -rf "$prefix"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}

"$cmake" --install "$build" --prefix "$prefix" >/dev/null
cli=$prefix/bin/nivogx-cli
[[ -x $cli ]] || fail "bin/nivogx-cli is not installed"
version=$("$cli" --version) || fail "the installed nivogx-cli --version failed"
[[ $version =~ ^nivogx-cli\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "--version printed '$version'"

for page in man1/nivogx-cli.1 man8/nivogx-server.8; do
  file=$prefix/share/man/$page
  [[ -f $file ]] || fail "share/man/$page is not installed"
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$file" 2>&1 >/dev/null) ||
    fail "man -l $page failed: $warnings"
  [[ -z $warnings ]] || fail "$page: $warnings"
  name=${page#*/}
  LC_ALL=C.UTF-8 MANWIDTH=80 man -l "$file" 2>/dev/null | grep -q "^NAME" ||
    fail "$page has no NAME section"
  LC_ALL=C.UTF-8 MANWIDTH=80 man -l "$file" 2>/dev/null | grep -Eq "^ +${name%.*} +- " ||
    fail "$page does not name its program"
done
[[ -f $prefix/share/zsh/site-functions/_nivogx-cli ]] || fail "the zsh completion is not installed"

completion=$prefix/share/bash-completion/completions/nivogx-cli
[[ -f $completion ]] || fail "the bash completion is not installed"
# A stand-in tool knows two contacts, one of them not verified, as `contacts list` prints them.
stub=$prefix/stub-nivogx-cli
printf '#!/bin/sh\nprintf "%%s\\n" bob "bobby  (certificate not verified: expired)"\n' >"$stub"
chmod +x "$stub"
complete_line() {
  # The words of a command line whose last word is being completed, printed one a line.
  bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
           _nivogx_cli; printf "%s\n" "${COMPREPLY[@]}"' complete "$completion" "$@"
}
expect() {
  local want=$1
  shift
  local got
  got=$(complete_line "$@" | sort | paste -sd' ')
  [[ $got == "$want" ]] || fail "completing '$*' gave [$got], not [$want]"
}
expect "encrypt" "$cli" enc
expect "decrypt" "$cli" --server https://x de
expect "--require-verified" "$cli" decrypt --req
expect "--last-used" "$cli" encrypt -r bob --last
expect "bob bobby" "$stub" encrypt -r b
expect "bobby" "$stub" contacts remove bobb
expect "export" "$cli" log exp
echo "the installed tool, its manual pages and completions work"
