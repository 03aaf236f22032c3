#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing,
# Wine's 32-bit half included (scripts/ensure-wine32.sh); llvm and lld make
# Kelbrook.lib and link the host that tests it; clang-format and clang-tidy
# check the style (scripts/check-style.sh), which also parses the benchmarks
# and so needs their libraries' headers.
# As root it installs them; otherwise it prints the apt-get line to run.
#
#   scripts/ensure-packages.sh [PACKAGE...]
# With packages named, it sees to those alone (the demo names the ones its
# screenshot needs).
set -euo pipefail

default_packages=(cmake ninja-build g++ clang libclang-rt-14-dev llvm lld libgtest-dev libgmock-dev mingw-w64 wine wine64 xvfb python3
  clang-format clang-tidy libbenchmark-dev libxml2-dev libpugixml-dev)
if [ $# -gt 0 ]; then packages=("$@"); else packages=("${default_packages[@]}"); fi
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "Missing packages: ${missing[*]}" >&2
    echo "Run as root: apt-get update && apt-get install -y ${missing[*]}" >&2
    exit 1
  fi
  echo "Installing: ${missing[*]}"
  apt_log=$(mktemp)
  if ! { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"; } >"$apt_log" 2>&1; then
    cat "$apt_log" >&2
    rm -f "$apt_log"
    echo "ensure-packages.sh: installing ${missing[*]} failed" >&2
    exit 1
  fi
  rm -f "$apt_log"
fi

# Wine's 32-bit half, for the x86 DLL's tests: more than one apt-get line.
[ $# -gt 0 ] || "$(dirname "$0")/ensure-wine32.sh"
