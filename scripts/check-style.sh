#!/usr/bin/env bash
# Fails on any formatting difference (.clang-format) or clang-tidy finding
# (.clang-tidy) in the C and C++ files of src/, include/, tests/, tools/ and
# bench/.
#
#   scripts/check-style.sh [format|tidy|all]    (all by default)
#
# Formatting covers every tracked file. clang-tidy parses each translation
# unit with the flags its build uses, from a preset's compile_commands.json
# (the preset is configured here when it has not been): the portable code
# from `native` (its fuzz targets from `fuzz`, the benchmarks from `bench`),
# the Windows-only code (src/platform/win32, tools/kelcli, tests/wine,
# tests/header, tests/import_libraries) from `win64`, or from `win32` for the
# x86-only tests, read as mingw-w64 reads it. Headers are checked through the
# units that include them. A tracked source that no preset compiles is listed
# as formatted but not tidied (msvc_host.c, which a custom command compiles
# for the Microsoft ABI; mingw_host.c makes the same calls and is tidied).
#
#   KEL_STYLE_JOBS  parallel processes (default: the number of CPUs)
#   KEL_STYLE_LOG   a folder to keep clang-tidy's full output in
#   KEL_TIDY_ONLY   an extended regular expression: tidy only the units whose
#                   paths match it (e.g. '^src/launch/')
#   KEL_TIDY_CHECKS checks to add to (or, with a leading -, take from) the
#                   configuration's, e.g. to try a check before enabling it
#
# To apply the format: scripts/check-style.sh --print-files | xargs clang-format -i
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=${KEL_STYLE_JOBS:-$(nproc)}
what=${1:-all}

# The checked files: tracked C and C++ sources and headers.
list_files() {
  git ls-files -- src include tests tools bench | grep -E '\.(c|cc|cpp|h|hpp)$' || true
}

if [ "$what" = "--print-files" ]; then
  list_files
  exit 0
fi
case "$what" in
  format|tidy|all) ;;
  *) echo "usage: scripts/check-style.sh [format|tidy|all|--print-files]" >&2; exit 2 ;;
esac

for tool in clang-format clang-tidy; do
  command -v "$tool" >/dev/null || { echo "check-style: $tool is missing (scripts/ensure-packages.sh installs it)" >&2; exit 1; }
done

status=0

if [ "$what" != "tidy" ]; then
  echo "== style: clang-format ($(clang-format --version | grep -o 'version [0-9.]*'))"
  start=$SECONDS
  # One line per file that differs, with the count of places.
  differing=$(list_files | xargs -d '\n' -P "$jobs" -I{} sh -c '
      n=$(clang-format --dry-run "$1" 2>&1 | grep -c "warning: code should be clang-formatted")
      [ "$n" -eq 0 ] || echo "$1: $n places"
    ' sh {} | sort)
  if [ -n "$differing" ]; then
    echo "$differing"
    echo "check-style: formatting differs in $(echo "$differing" | wc -l) files (clang-format --dry-run FILE shows" \
      "where); apply it with:" >&2
    echo "  scripts/check-style.sh --print-files | xargs clang-format -i" >&2
    status=1
  fi
  echo "   $(list_files | wc -l) files, $((SECONDS - start)) s"
fi

if [ "$what" = "format" ]; then
  exit $status
fi

# Which compile database reads which files.
windows_only='^(src/platform/win32|tools/kelcli|tests/wine|tests/header|tests/import_libraries)/'
database_of() {
  case "$1" in
    tests/fuzz/*) echo fuzz ;;
    bench/*) echo bench ;;
    *) if [[ "$1" =~ $windows_only ]]; then echo windows; else echo native; fi ;;
  esac
}

# The units each database compiles, as paths relative to the root.
units_of() {
  python3 - "$root" "build/$1/compile_commands.json" <<'EOF'
import json, os, sys
root, path = sys.argv[1], sys.argv[2]
for entry in json.load(open(path)):
    name = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
    if name.startswith(root + "/"):
        print(os.path.relpath(name, root))
EOF
}

# clang reads mingw-w64's headers as the cross compiler does when told the
# target and given the cross compiler's own C++ library headers.
mingw_args() {
  local target dir args=()
  if [ "$1" = win64 ]; then target=x86_64-w64-mingw32; else target=i686-w64-mingw32; fi
  local gxx=$target-g++-posix
  args+=("--extra-arg=--target=$target")
  if [ "$2" = cxx ]; then
    args+=(--extra-arg=-nostdinc++)
    while read -r dir; do
      case "$dir" in
        */include/c++*) args+=("--extra-arg=-isystem$dir") ;;
      esac
    done < <("$gxx" -v -x c++ -E - </dev/null 2>&1 | sed -n '/<\.\.\.> search starts/,/End of/p' | sed 's/^ *//')
  fi
  printf '%s\n' "${args[@]}"
}

echo "== style: clang-tidy ($(clang-tidy --version | grep -o 'version [0-9.]*'))"
start=$SECONDS
log=${KEL_STYLE_LOG:-$(mktemp -d)}
mkdir -p "$log"
rm -f "$log"/*.txt "$log/failed"

declare -A tidied=()
for preset in native fuzz bench win64 win32; do
  if [ ! -f "build/$preset/compile_commands.json" ]; then
    cmake --preset "$preset" >/dev/null
  fi
  mapfile -t units < <(units_of "$preset" | sort -u | grep -E '\.(c|cc|cpp)$' || true)
  selected=()
  for unit in "${units[@]}"; do
    database=$(database_of "$unit")
    if [ "$database" = windows ] && [[ "$preset" == win* ]] && [ -z "${tidied[$unit]:-}" ]; then database=$preset; fi
    if [ "$database" = "$preset" ] && [[ "$unit" =~ ^(src|include|tests|tools|bench)/ ]] &&
      [[ "$unit" =~ ${KEL_TIDY_ONLY:-.} ]]; then
      selected+=("$unit")
      tidied[$unit]=1
    fi
  done
  [ ${#selected[@]} -gt 0 ] || continue
  common=(-p "build/$preset" --quiet --warnings-as-errors='*'
    "--header-filter=^$root/(src|include|tests|tools|bench)/"
    --extra-arg=-Wno-unknown-warning-option --extra-arg=-Wno-unused-command-line-argument)
  if [ -n "${KEL_TIDY_CHECKS:-}" ]; then common+=("--checks=$KEL_TIDY_CHECKS"); fi
  for language in c cxx; do
    files=()
    for unit in "${selected[@]}"; do
      if { [ $language = c ] && [[ "$unit" == *.c ]]; } || { [ $language = cxx ] && [[ "$unit" != *.c ]]; }; then
        files+=("$unit")
      fi
    done
    [ ${#files[@]} -gt 0 ] || continue
    extra=()
    if [[ "$preset" == win* ]]; then mapfile -t extra < <(mingw_args "$preset" $language); fi
    # One process per unit, each writing its own log, so output never interleaves.
    printf '%s\n' "${files[@]}" | xargs -d '\n' -P "$jobs" -I{} sh -c '
        log=$1; shift
        for unit; do :; done
        clang-tidy "$@" > "$log/$(printf %s "$unit" | tr / _).txt" 2>&1 || echo "$unit" >> "$log/failed"
      ' sh "$log" "${common[@]}" "${extra[@]}" {}
  done
done

# Every finding once, however many units include its header.
findings=$(cat "$log"/*.txt 2>/dev/null | grep -E '^/.*: (warning|error): ' | python3 -c '
import os, sys
root = sys.argv[1] + "/"
for line in sys.stdin:
    path, rest = line.split(":", 1)
    path = os.path.normpath(path)
    print((path[len(root):] if path.startswith(root) else path) + ":" + rest, end="")
' "$root" | sort -u || true)
if [ -n "$findings" ]; then
  echo "$findings"
  echo "-- findings by check:"
  echo "$findings" | grep -oE '\[[a-z0-9.,-]+\]$' | tr -d '[]' | sed 's/,-warnings-as-errors//' | sort | uniq -c | sort -rn
  status=1
elif [ -s "$log/failed" ]; then
  echo "check-style: clang-tidy failed on:" >&2
  cat "$log/failed" >&2
  status=1
fi

not_tidied=()
while read -r file; do
  if [[ "$file" =~ \.(c|cc|cpp)$ ]] && [ -z "${tidied[$file]:-}" ]; then not_tidied+=("$file"); fi
done < <(list_files)
if [ ${#not_tidied[@]} -gt 0 ] && [ -z "${KEL_TIDY_ONLY:-}" ]; then
  echo "   formatted, not tidied (no preset compiles them): ${not_tidied[*]}"
fi
echo "   ${#tidied[@]} units, $((SECONDS - start)) s"
[ -n "${KEL_STYLE_LOG:-}" ] || rm -rf "$log"
exit $status
