#!/usr/bin/env python3
"""Checks the SDK zip that scripts/package.sh makes.

    check_package.py ZIP BUILD_X64 BUILD_X86

- the zip holds exactly the expected files, under one folder named for it;
- each DLL is byte for byte the one built in BUILD_X64 or BUILD_X86, the one
  the Wine suites tested;
- each DLL and kelcli.exe is stripped, hardened and linked to its symbols
  (tests/pe/check_dll_hardening.py);
- SHA256SUMS lists every other file with its digest.

Prints one line per failed check and exits 1 if any; prints OK otherwise.
"""

import hashlib
import os
import re
import subprocess
import sys
import tempfile
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
HARDENING = os.path.join(HERE, "..", "pe", "check_dll_hardening.py")
sys.path.insert(0, os.path.dirname(HARDENING))
from check_dll_hardening import report  # noqa: E402  (found through the path above)

PER_ARCH = [
    "bin/Kelbrook.dll",
    "bin/kelcli.exe",
    "lib/Kelbrook.lib",
    "lib/libKelbrook.a",
    "lib/Kelbrook.def",
    "symbols/Kelbrook.dll.debug",
    "symbols/kelcli.exe.debug",
]
TOP = ["include/Kelbrook.h", "README.md", "LICENSE", "THIRD-PARTY-NOTICES", "CHANGELOG.md", "SHA256SUMS"]
ARCHES = {"x64": ("x86_64-w64-mingw32-objdump", 64), "x86": ("i686-w64-mingw32-objdump", 32)}


def digest(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def main():
    if len(sys.argv) != 4:
        print(__doc__)
        return 2
    package, builds = sys.argv[1], {"x64": sys.argv[2], "x86": sys.argv[3]}
    problems = []
    name = os.path.basename(package)
    match = re.fullmatch(r"(Kelbrook-\d+\.\d+\.\d+\.\d+-sdk)\.zip", name)
    if not match:
        problems.append(f"{name}: not named Kelbrook-<version>-sdk.zip")
        folder = name[:-4]
    else:
        folder = match.group(1)

    expected = sorted([f"{folder}/{f}" for f in TOP] +
                      [f"{folder}/{arch}/{f}" for arch in ARCHES for f in PER_ARCH])
    with tempfile.TemporaryDirectory() as scratch:
        with zipfile.ZipFile(package) as archive:
            listed = sorted(archive.namelist())
            archive.extractall(scratch)
        for missing in sorted(set(expected) - set(listed)):
            problems.append(f"missing from the package: {missing}")
        for extra in sorted(set(listed) - set(expected)):
            problems.append(f"not expected in the package: {extra}")
        root = os.path.join(scratch, folder)

        for arch, (objdump, bits) in ARCHES.items():
            dll = os.path.join(root, arch, "bin", "Kelbrook.dll")
            if not os.path.exists(dll):
                continue
            built = os.path.join(builds[arch], "Kelbrook.dll")
            if digest(dll) != digest(built):
                problems.append(f"{arch}/bin/Kelbrook.dll is not the DLL built and tested in {builds[arch]}")
            for binary in ["Kelbrook.dll", "kelcli.exe"]:
                path = os.path.join(root, arch, "bin", binary)
                symbols = os.path.join(root, arch, "symbols", binary + ".debug")
                if not (os.path.exists(path) and os.path.exists(symbols)):
                    continue
                result = subprocess.run([sys.executable, HARDENING, "--objdump", objdump, "--bits", str(bits), path,
                                         symbols], capture_output=True, text=True)
                if result.returncode != 0:
                    problems += [f"{arch}: {line}" for line in (result.stdout + result.stderr).splitlines()]

        sums = os.path.join(root, "SHA256SUMS")
        if os.path.exists(sums):
            recorded = {}
            for line in open(sums):
                value, _, path = line.rstrip("\n").partition("  ")
                recorded[path] = value
            files = [f[len(folder) + 1:] for f in expected if not f.endswith("/SHA256SUMS")]
            for path in files:
                full = os.path.join(root, path)
                if path not in recorded:
                    problems.append(f"SHA256SUMS does not list {path}")
                elif os.path.exists(full) and recorded[path] != digest(full):
                    problems.append(f"SHA256SUMS gives {path} another digest")

    return report(problems, f"OK {name}: {len(expected)} files, DLLs as tested, stripped, hardened, symbols matched")


if __name__ == "__main__":
    sys.exit(main())
