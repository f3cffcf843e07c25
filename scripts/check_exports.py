#!/usr/bin/env python3
"""Checks that a DLL exports every public class and free function by name.

The public API is read from the headers: every `class KELVOR_API Name` (not a
template) and every function declared `KELVOR_API ... Name(`. The export
table comes from `objdump -p`. A class counts as exported when some exported
symbol belongs to it (its mangled name appears as a nested name); a function
when an exported symbol is that function (C++ mangled or extern "C").
Exits 1 and lists what is missing.
"""
import re
import subprocess
import sys
from pathlib import Path


def public_api(include_dir):
    classes, functions = set(), set()
    for header in Path(include_dir).rglob("*.h"):
        text = header.read_text(encoding="latin-1")
        text = re.sub(r"//[^\n]*", "", text)
        for m in re.finditer(r"(template\s*<[^>]*>\s*)?class\s+KELVOR_API\s+(\w+)", text):
            if not m.group(1):
                classes.add(m.group(2))
        for m in re.finditer(r"^\s*KELVOR_API\b([^;{]*?)\b(\w+)\s*\(", text, re.M):
            if not m.group(1).strip().startswith("class"):
                functions.add(m.group(2))
        for m in re.finditer(r"\bKELVOR_API\s+(\w+)\s+(\w+)\s*;", text):
            functions.add(m.group(2))  # exported variables
    return classes, functions


def exports(dll, objdump):
    out = subprocess.run([objdump, "-p", dll], check=True, capture_output=True, text=True).stdout
    names = set()
    in_table = False
    for line in out.splitlines():
        if "[Ordinal/Name Pointer] Table" in line:
            in_table = True
            continue
        if in_table:
            m = re.match(r"\s*\[\s*\d+\]\s+(\S+)", line)
            if m:
                names.add(m.group(1))
            elif line.strip() == "":
                in_table = False
    return names


def main():
    if len(sys.argv) < 3:
        print("usage: check_exports.py DLL INCLUDE_DIR [OBJDUMP]")
        return 2
    dll, include_dir = sys.argv[1], sys.argv[2]
    objdump = sys.argv[3] if len(sys.argv) > 3 else "x86_64-w64-mingw32-objdump"
    classes, functions = public_api(include_dir)
    names = exports(dll, objdump)
    # 32-bit Windows decorates C names with a leading underscore.
    plain = {n.lstrip("_") for n in names}
    missing = []
    for c in sorted(classes):
        tag = "%d%s" % (len(c), c)
        if not any(tag in n for n in names):
            missing.append("class " + c)
    for f in sorted(functions):
        # extern "C" names as they are, C++ ones mangled at namespace scope.
        mangled = re.compile(r"_?_Z%d%s" % (len(f), f))
        if f not in names and f not in plain and not any(mangled.match(n) for n in names):
            missing.append("function " + f)
    print("%s: %d exports; public API: %d classes, %d functions" %
          (dll, len(names), len(classes), len(functions)))
    for m in missing:
        print("missing export: " + m)
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
