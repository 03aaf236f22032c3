#!/usr/bin/env bash
# Builds the SDK a PC maker receives: build/package/Kelbrook-<version>-sdk.zip
#
#   scripts/package.sh [--test]
#
# It builds the win64 and win32 presets (nothing when they are up to date)
# and packs, for x64 and x86 each, the DLL exactly as built (the file the
# Wine suites test: stripped, its symbols in Kelbrook.dll.debug), kelcli.exe
# stripped with its symbols split off the same way, the import libraries and
# the module definition; then the header, the integrators' README, the
# licence, the third-party notices, the change log and SHA256SUMS.
# With --test it first runs both presets' tests and packs nothing if one
# fails. tests/package/check_package.py checks the result.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

run_tests=false
case "${1:-}" in
  --test) run_tests=true ;;
  "") ;;
  *)
    echo "usage: scripts/package.sh [--test]" >&2
    exit 2
    ;;
esac

die() {
  echo "package.sh: $*" >&2
  exit 1
}

for preset in win64 win32; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)" >/dev/null || die "building $preset failed"
  if $run_tests; then
    ctest --preset "$preset" -j "$(nproc)" --timeout 600 || die "the $preset tests failed: nothing packed"
  fi
done

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/win64/CMakeCache.txt)
[ -n "$version" ] || die "no project version in build/win64/CMakeCache.txt"
name=Kelbrook-$version-sdk
out=$root/build/package
stage=$out/$name
rm -rf "$stage" "$out/$name.zip"
mkdir -p "$stage/include"

# The compiler's runtime is linked into every binary; these notices say under
# which terms, with the licence texts the toolchain ships.
notices() {
  cat "$root/docs/sdk/THIRD-PARTY-NOTICES.md"
  local file
  for file in /usr/share/doc/gcc-mingw-w64-base/copyright /usr/share/doc/mingw-w64-x86-64-dev/copyright; do
    [ -f "$file" ] || die "the licence text $file is missing"
    printf '\n\n---------------------------------------------------------------------------\n'
    printf 'Full text: %s\n' "$(basename "$(dirname "$file")")"
    printf -- '---------------------------------------------------------------------------\n\n'
    cat "$file"
  done
}

# Copies `binary` into `bin`, strips the copy and leaves its symbols in
# `symbols`, linked by name and CRC.
stripped_copy() {
  local objcopy=$1 binary=$2 bin=$3 symbols=$4 file
  file=$(basename "$binary")
  "$objcopy" --only-keep-debug "$binary" "$symbols/$file.debug"
  "$objcopy" --strip-all --add-gnu-debuglink="$symbols/$file.debug" "$binary" "$bin/$file"
}

for arch in x64 x86; do
  if [ "$arch" = x64 ]; then build=build/win64 triple=x86_64-w64-mingw32; else build=build/win32 triple=i686-w64-mingw32; fi
  bin=$stage/$arch/bin lib=$stage/$arch/lib symbols=$stage/$arch/symbols
  mkdir -p "$bin" "$lib" "$symbols"
  for file in Kelbrook.dll Kelbrook.dll.debug kelcli.exe Kelbrook.lib libKelbrook.a Kelbrook.def; do
    [ -f "$build/$file" ] || die "$build/$file was not built"
  done
  cp "$build/Kelbrook.dll" "$bin/"
  cp "$build/Kelbrook.dll.debug" "$symbols/"
  stripped_copy "$triple-objcopy" "$build/kelcli.exe" "$bin" "$symbols"
  cp "$build/Kelbrook.lib" "$build/libKelbrook.a" "$build/Kelbrook.def" "$lib/"
done

cp include/Kelbrook.h "$stage/include/"
cp docs/integrators.md "$stage/README.md"
cp LICENSE CHANGELOG.md "$stage/"
notices >"$stage/THIRD-PARTY-NOTICES"
(cd "$stage" && find . -type f ! -name SHA256SUMS | sed 's|^\./||' | LC_ALL=C sort | xargs sha256sum >SHA256SUMS)

# Python's zipfile, so no zip program is needed; entries in a fixed order.
python3 - "$out" "$name" <<'EOF'
import os, sys, zipfile
out, name = sys.argv[1], sys.argv[2]
paths = []
for folder, _, files in os.walk(os.path.join(out, name)):
    paths += [os.path.join(folder, f) for f in files]
with zipfile.ZipFile(os.path.join(out, name + ".zip"), "w", zipfile.ZIP_DEFLATED) as archive:
    for path in sorted(paths):
        archive.write(path, os.path.relpath(path, out))
EOF
echo "package.sh: $out/$name.zip"
