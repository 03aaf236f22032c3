#!/usr/bin/env python3
"""Checks a built or packaged Windows binary and its split-off symbols.

    check_dll_hardening.py --objdump OBJDUMP --bits 32|64 BINARY SYMBOLS

- BINARY is stripped: no symbol table and no DWARF sections;
- its PE flags ask for address space layout randomisation (DYNAMIC_BASE,
  and HIGH_ENTROPY_VA on x64) and data execution prevention (NX_COMPAT), and
  it keeps its base relocations, without which the first flag is void;
- its .gnu_debuglink section names SYMBOLS' file and carries SYMBOLS' CRC-32,
  so a debugger given the folder finds exactly these symbols;
- SYMBOLS holds the DWARF and the symbol table, the stack protector's
  runtime among them (so the code was built with it and it is linked in).

Prints one line per failed check and exits 1 if any; prints OK otherwise.
"""

import argparse
import os
import re
import subprocess
import sys
import zlib


def objdump(tool, *arguments):
    result = subprocess.run([tool, *arguments], capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"{tool} {' '.join(arguments)} failed: {result.stderr.strip()}")
    return result.stdout


def section_names(tool, path):
    return set(re.findall(r"^\s*\d+\s+(\S+)\s", objdump(tool, "-h", path), re.M))


def debuglink(tool, path):
    """The file name and CRC-32 recorded in the .gnu_debuglink section."""
    if ".gnu_debuglink" not in section_names(tool, path):
        return None, None
    dump = objdump(tool, "-s", "-j", ".gnu_debuglink", path)
    content = bytearray()
    for line in dump.splitlines():
        match = re.match(r"^ [0-9a-f]+ ((?:[0-9a-f]{2,8} ?){1,4})", line)
        if match:
            content += bytes.fromhex(match.group(1).replace(" ", ""))
    if b"\0" not in content:
        return None, None
    name = content[:content.index(b"\0")].decode()
    crc_at = (len(name) + 1 + 3) // 4 * 4
    if len(content) < crc_at + 4:
        return None, None
    return name, int.from_bytes(content[crc_at:crc_at + 4], "little")


def check(tool, bits, binary, symbols):
    problems = []
    headers = objdump(tool, "-p", binary)
    flags = ["DYNAMIC_BASE", "NX_COMPAT"] + (["HIGH_ENTROPY_VA"] if bits == 64 else [])
    for flag in flags:
        if not re.search(rf"^\s+{flag}\s*$", headers, re.M):
            problems.append(f"{binary}: PE flag {flag} is not set")
    names = section_names(tool, binary)
    if ".reloc" not in names:
        problems.append(f"{binary}: no .reloc section, so it cannot be moved despite DYNAMIC_BASE")
    debug_sections = sorted(n for n in names if n.startswith(".debug"))
    if debug_sections:
        problems.append(f"{binary}: not stripped, it still has {', '.join(debug_sections)}")
    if "no symbols" not in objdump(tool, "-t", binary):
        problems.append(f"{binary}: not stripped, it still has a symbol table")

    name, crc = debuglink(tool, binary)
    if name is None:
        problems.append(f"{binary}: no .gnu_debuglink section")
    else:
        if name != os.path.basename(symbols):
            problems.append(f"{binary}: .gnu_debuglink names {name}, not {os.path.basename(symbols)}")
        with open(symbols, "rb") as f:
            actual = zlib.crc32(f.read()) & 0xFFFFFFFF
        if crc != actual:
            problems.append(f"{binary}: .gnu_debuglink CRC {crc:08x} does not match {symbols} ({actual:08x})")

    if ".debug_info" not in section_names(tool, symbols):
        problems.append(f"{symbols}: no DWARF (.debug_info)")
    symbol_table = objdump(tool, "-t", symbols)
    for needed in ["__stack_chk_fail", "__stack_chk_guard"]:
        if not re.search(rf"\b_?{needed}\b", symbol_table):
            problems.append(f"{symbols}: no {needed}: the stack protector is not built in")
    return problems


def report(problems, success):
    """Prints a FAIL line for each problem, or `success` when there is none;
    gives the exit code. The package check reports the same way."""
    for problem in problems:
        print("FAIL " + problem)
    if problems:
        return 1
    print(success)
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--objdump", required=True)
    parser.add_argument("--bits", type=int, choices=[32, 64], required=True)
    parser.add_argument("binary")
    parser.add_argument("symbols")
    arguments = parser.parse_args()
    problems = check(arguments.objdump, arguments.bits, arguments.binary, arguments.symbols)
    symbols = os.path.basename(arguments.symbols)
    return report(problems, f"OK {arguments.binary}: stripped, hardened, symbols in {symbols}")


if __name__ == "__main__":
    sys.exit(main())
