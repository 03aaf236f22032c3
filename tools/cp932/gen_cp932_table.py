#!/usr/bin/env python3
"""Generate src/text/cp932/cp932_table.inc, the decoding tables of the
code page 932 (Windows Shift JIS) to UTF-16 converter.

Input is the glibc charmap WINDOWS-31J (Debian ships it as
/usr/share/i18n/charmaps/WINDOWS-31J.gz). Every `<Uxxxx> /xNN[/xNN]` line of
its CHARMAP section is a byte sequence -> code point pair; lines marked
%IRREVERSIBLE% only mean that the code point encodes back to a different
byte sequence, so for decoding they are ordinary mappings and are kept.

The charmap leaves out four single bytes that Windows does decode; they are
added here:
    0x80 -> U+0080, 0xA0 -> U+F8F0, 0xFD -> U+F8F1, 0xFE -> U+F8F2, 0xFF -> U+F8F3

The result is cross-checked against Python's own cp932 codec and every
difference is printed; the script fails when the two disagree on anything
but an entry the codec cannot decode.

Usage (from the repository root):
    python3 tools/cp932/gen_cp932_table.py
    python3 tools/cp932/gen_cp932_table.py --charmap PATH --output PATH
"""

import argparse
import codecs
import gzip
import os
import re
import sys

DEFAULT_CHARMAP = "/usr/share/i18n/charmaps/WINDOWS-31J.gz"
REPO_ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
DEFAULT_OUTPUT = os.path.join(REPO_ROOT, "src", "platform", "cp932", "cp932_table.inc")

# Lead bytes of code page 932. Every one of them starts a two-byte sequence,
# whether or not any character is assigned under it (0x85, 0x86, 0xEB...).
LEAD_BYTES = [b for b in range(0x100) if 0x81 <= b <= 0x9F or 0xE0 <= b <= 0xFC]

# Trail bytes that can carry a character: 0x40-0x7E and 0x80-0xFC. The table
# keeps the contiguous range 0x40-0xFC per lead byte; 0x7F stays unmapped.
TRAIL_FIRST = 0x40
TRAIL_LAST = 0xFC
TRAIL_COUNT = TRAIL_LAST - TRAIL_FIRST + 1

# Single bytes Windows decodes that the charmap does not list.
WINDOWS_SINGLE_BYTES = {
    0x80: 0x0080,
    0xA0: 0xF8F0,
    0xFD: 0xF8F1,
    0xFE: 0xF8F2,
    0xFF: 0xF8F3,
}

LINE_RE = re.compile(r"^(?:%IRREVERSIBLE%)?<U([0-9A-Fa-f]{4,8})>\s+((?:/x[0-9A-Fa-f]{2}){1,2})\s")


def read_charmap(path):
    opener = gzip.open if path.endswith(".gz") else open
    with opener(path, "rt", encoding="latin-1") as handle:
        lines = handle.read().splitlines()

    single = {}
    double = {}
    in_charmap = False
    for number, line in enumerate(lines, 1):
        if line.strip() == "CHARMAP":
            in_charmap = True
            continue
        if line.strip() == "END CHARMAP":
            break
        if not in_charmap:
            continue
        match = LINE_RE.match(line + " ")
        if not match:
            if line.strip() and not line.startswith("%"):
                raise SystemExit(f"{path}:{number}: unrecognised line: {line!r}")
            continue
        code_point = int(match.group(1), 16)
        if code_point > 0xFFFF:
            raise SystemExit(f"{path}:{number}: code point outside the BMP: {line!r}")
        raw = bytes(int(h, 16) for h in match.group(2).split("/x")[1:])
        target = single if len(raw) == 1 else double
        key = raw[0] if len(raw) == 1 else (raw[0], raw[1])
        if key in target and target[key] != code_point:
            raise SystemExit(f"{path}:{number}: {raw.hex()} mapped twice")
        target[key] = code_point
    if not in_charmap:
        raise SystemExit(f"{path}: no CHARMAP section")
    return single, double


def build_tables(charmap_path):
    single, double = read_charmap(charmap_path)

    for byte in single:
        if byte in LEAD_BYTES:
            raise SystemExit(f"charmap maps lead byte {byte:#04x} on its own")
    for lead, trail in double:
        if lead not in LEAD_BYTES:
            raise SystemExit(f"charmap uses {lead:#04x} as a lead byte")
        if not (TRAIL_FIRST <= trail <= TRAIL_LAST) or trail == 0x7F:
            raise SystemExit(f"charmap uses {trail:#04x} as a trail byte")

    for byte, code_point in WINDOWS_SINGLE_BYTES.items():
        if byte in single and single[byte] != code_point:
            raise SystemExit(f"charmap maps {byte:#04x} to U+{single[byte]:04X}")
        single[byte] = code_point

    for byte in range(0x100):
        if byte not in LEAD_BYTES and byte not in single:
            raise SystemExit(f"single byte {byte:#04x} has no mapping")
    return single, double


def cross_check(single, double):
    """Compare with Python's cp932 codec; return the number of real conflicts."""
    decoder = codecs.getdecoder("cp932")

    def decode(raw):
        try:
            text = decoder(raw)[0]
        except UnicodeDecodeError:
            return None
        return ord(text) if len(text) == 1 else -1

    conflicts = 0
    only_here = []
    only_python = []
    for byte in range(0x100):
        if byte in LEAD_BYTES:
            continue
        theirs = decode(bytes([byte]))
        ours = single[byte]
        if theirs is None:
            only_here.append(f"{byte:02X}")
        elif theirs != ours:
            conflicts += 1
            print(f"  conflict: {byte:02X} table U+{ours:04X}, python cp932 U+{theirs:04X}")
    for lead in LEAD_BYTES:
        for trail in range(0x100):
            raw = bytes([lead, trail])
            theirs = decode(raw)
            ours = double.get((lead, trail))
            if ours is None and theirs is None:
                continue
            if theirs is None:
                only_here.append(raw.hex().upper())
            elif ours is None:
                only_python.append(f"{raw.hex().upper()}=U+{theirs:04X}")
            elif theirs != ours:
                conflicts += 1
                print(f"  conflict: {raw.hex().upper()} table U+{ours:04X}, python cp932 U+{theirs:04X}")
    if only_here:
        print(f"  mapped here, not decodable by python cp932 ({len(only_here)}): {' '.join(only_here)}")
    if only_python:
        print(f"  decodable by python cp932, unmapped here ({len(only_python)}): {' '.join(only_python)}")
        conflicts += len(only_python)
    return conflicts


def format_rows(values, indent="    "):
    rows = []
    for start in range(0, len(values), 16):
        chunk = values[start:start + 16]
        rows.append(indent + ", ".join(f"0x{v:04X}" for v in chunk) + ",")
    return rows


def render(single, double, charmap_path):
    lead_slot = [0] * 0x100
    for index, lead in enumerate(LEAD_BYTES, 1):
        lead_slot[lead] = index

    out = []
    out.append("// Generated file, do not edit.")
    out.append("// Produced by tools/cp932/gen_cp932_table.py from the glibc charmap")
    out.append(f"// {os.path.basename(charmap_path)}, plus the single bytes Windows decodes that the")
    out.append("// charmap leaves out (0x80, 0xA0, 0xFD-0xFF). Regenerate from the repository")
    out.append("// root with:")
    out.append("//     python3 tools/cp932/gen_cp932_table.py")
    out.append("//")
    out.append("// kSingleByte: code unit of every byte that is not a lead byte (0 for lead")
    out.append("//     bytes; byte 0x00 really is U+0000).")
    out.append("// kLeadSlot: 0 for bytes that are not lead bytes, otherwise 1 + the row of")
    out.append("//     kDoubleByte holding that lead byte's characters.")
    out.append(f"// kDoubleByte: one row per lead byte, indexed by trail byte - 0x{TRAIL_FIRST:02X}")
    out.append(f"//     (trail bytes 0x{TRAIL_FIRST:02X}-0x{TRAIL_LAST:02X}); 0 means no character is assigned.")
    out.append("")
    out.append(f"inline constexpr int kTrailFirst = 0x{TRAIL_FIRST:02X};")
    out.append(f"inline constexpr int kTrailLast = 0x{TRAIL_LAST:02X};")
    out.append(f"inline constexpr int kLeadByteCount = {len(LEAD_BYTES)};")
    out.append("")
    out.append("inline constexpr char16_t kSingleByte[256] = {")
    out.extend(format_rows([single.get(b, 0) if b not in LEAD_BYTES else 0 for b in range(0x100)]))
    out.append("};")
    out.append("")
    out.append("inline constexpr unsigned char kLeadSlot[256] = {")
    for start in range(0, 0x100, 16):
        out.append("    " + ", ".join(f"{v:2d}" for v in lead_slot[start:start + 16]) + ",")
    out.append("};")
    out.append("")
    out.append(f"inline constexpr char16_t kDoubleByte[{len(LEAD_BYTES)}][{TRAIL_COUNT}] = {{")
    for lead in LEAD_BYTES:
        row = [double.get((lead, t), 0) for t in range(TRAIL_FIRST, TRAIL_LAST + 1)]
        out.append(f"    {{ // lead 0x{lead:02X}")
        out.extend(format_rows(row, indent="        "))
        out.append("    },")
    out.append("};")
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--charmap", default=DEFAULT_CHARMAP)
    parser.add_argument("--output", default=DEFAULT_OUTPUT)
    args = parser.parse_args()

    single, double = build_tables(args.charmap)
    print(f"{args.charmap}: {len(single)} single bytes, {len(double)} double-byte characters")
    print("cross-check against python cp932:")
    conflicts = cross_check(single, double)
    if conflicts:
        print(f"{conflicts} conflicting entries; table not written")
        return 1
    print("  no conflicts")

    text = render(single, double, args.charmap)
    with open(args.output, "w", encoding="ascii", newline="\n") as handle:
        handle.write(text)
    print(f"wrote {args.output} ({len(text)} bytes)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
