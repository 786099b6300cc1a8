#!/usr/bin/env python3
"""Fails on an include that leads upward or sideways in the row order of src/, or on curses outside the console's toolkit."""
import pathlib
import re
import sys

ROWS = [["crvconfd"], ["api"], ["src"], ["db_sql", "pkcs11"], ["profiles"], ["db", "asn"], ["crypto"], ["misc"]]
LEVEL = {folder: level for level, row in enumerate(ROWS) for folder in row}
INCLUDE = re.compile(r'^\s*#\s*include\s*["<]([^">]+)[">]', re.M)


def faults(source: pathlib.Path):
    for path in sorted(p for p in source.rglob("*") if p.suffix in {".h", ".cpp"}):
        own = path.relative_to(source).parts[0]
        if own not in LEVEL:
            yield f"{path}: folder {own} stands in no row"
            continue
        for target in INCLUDE.findall(path.read_text("utf-8")):
            folder = target.split("/")[0]
            if folder in LEVEL and "/" in target and folder != own and LEVEL[folder] <= LEVEL[own]:
                yield f"{path}: includes {target}, which does not stand below {own}"
            if "curses" in target and not (own == "crvconfd" and path.suffix == ".cpp" and "toolkit" in path.name):
                yield f"{path}: curses belongs to the toolkit's source only"


found = list(faults(pathlib.Path(sys.argv[1])))
print("\n".join(found) or "includes lead downwards only")
sys.exit(1 if found else 0)
