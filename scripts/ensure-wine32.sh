#!/usr/bin/env bash
# Installs Wine's 32-bit half (wine32:i386) when it is missing, so that the
# x86 build runs under Wine as the x64 one does. Cheap when it is there.
#
# On Debian 12 this takes more than `apt-get install wine32:i386`:
#   - the i386 architecture is added to dpkg;
#   - the security suite is limited to amd64, because its i386 index cannot
#     be fetched here ("File has unexpected size"), which fails every
#     `apt-get update`;
#   - an apt preferences file prefers the main suite's versions, because
#     every i386 package must have exactly the version of its amd64 twin and
#     the security suite no longer offers i386 ones. It stays in place: a
#     later `apt-get install` without it could move the amd64 twins forward
#     again and remove wine32. A few amd64 packages (GStreamer's base
#     plugins) move back to the main suite's version for the same reason.
#
# As root it installs; otherwise it says what is missing and exits 1. When a
# package cannot be installed it exits 1 naming it.
set -euo pipefail

readonly PACKAGE=wine32:i386
readonly SOURCES=/etc/apt/sources.list.d/debian.sources
readonly PREFERENCES=/etc/apt/preferences.d/kelbrook-wine32

die() {
  echo "ensure-wine32.sh: $*" >&2
  exit 1
}

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

installed "$PACKAGE" && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "Missing package: $PACKAGE (32-bit Wine, for the x86 tests)" >&2
  echo "Run as root: $0" >&2
  exit 1
fi
installed wine64 || die "wine64 is not installed; run scripts/ensure-packages.sh first"

echo "Installing $PACKAGE (32-bit Wine; about 160 packages)"
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  dpkg --add-architecture i386 || die "dpkg --add-architecture i386 failed"
fi

# The security suite's stanza gets "Architectures: amd64" unless it names
# its architectures already.
if [ -f "$SOURCES" ]; then
  python3 - "$SOURCES" <<'EOF' || die "cannot limit the security suite in $SOURCES to amd64"
import sys
path = sys.argv[1]
text = open(path).read()
stanzas = text.rstrip("\n").split("\n\n")
changed = False
for i, stanza in enumerate(stanzas):
    lines = stanza.splitlines()
    fields = {line.split(":", 1)[0].strip().lower() for line in lines if ":" in line and not line.startswith("#")}
    suites = " ".join(line for line in lines if line.lower().startswith("suites:"))
    if "-security" in suites and "architectures" not in fields:
        lines.insert(1, "Architectures: amd64")
        stanzas[i] = "\n".join(lines)
        changed = True
if changed:
    open(path, "w").write("\n\n".join(stanzas) + "\n")
EOF
fi

cat >"$PREFERENCES" <<'EOF'
# Written by Kelbrook's scripts/ensure-wine32.sh: wine32:i386 needs every
# i386 package at exactly its amd64 twin's version, which only the main
# suite offers for both.
Package: *
Pin: release l=Debian-Security
Pin-Priority: -1

Package: *
Pin: release n=bookworm
Pin-Priority: 1001
EOF

log=$(mktemp)
trap 'rm -f "$log"' EXIT
export DEBIAN_FRONTEND=noninteractive
if ! apt-get update >"$log" 2>&1; then
  cat "$log" >&2
  die "apt-get update failed after adding the i386 architecture"
fi
if ! apt-get install -y --allow-downgrades --no-install-recommends "$PACKAGE" >"$log" 2>&1; then
  tail -n 30 "$log" >&2
  # apt names what it could not resolve: "X : Depends: Y but ..." or
  # "Unable to locate package X".
  culprit=$(grep -oE '^ ?[a-z0-9][a-z0-9.+:-]* : (Depends|PreDepends|Conflicts|Breaks)' "$log" | head -n 1 |
    sed -E 's/ : .*//; s/^ //')
  [ -n "$culprit" ] || culprit=$(grep -oE 'Unable to locate package [^ ]+' "$log" | head -n 1 | sed 's/.* //')
  die "could not install ${culprit:-$PACKAGE}${culprit:+ (needed by $PACKAGE)}"
fi
installed "$PACKAGE" || die "apt-get reported success but $PACKAGE is not installed"
[ -x /usr/lib/wine/wine ] || die "$PACKAGE is installed but /usr/lib/wine/wine, the 32-bit loader, is missing"
echo "ensure-wine32.sh: $PACKAGE installed"
