#!/usr/bin/env python3
"""Fails on an include that leads upward or sideways in the row order of src/ or of the console's rooms, or on curses
outside the console's toolkit."""
import pathlib
import re
import sys

ROWS = [["crvconfd", "crvctl"], ["api", "pkcs11_module", "pg_plugin"], ["ops"], ["context"], ["messages"], ["keystore"], ["pki"], ["config"],
        ["db_sql", "pkcs11"], ["profiles"],
        ["db", "asn"], ["crypto", "net"], ["misc"]]
# The session runs the screens and they work on its profile, so these two share a row and may include each other.
CONSOLE_ROWS = [["main.cpp"], ["session", "screens"], ["engines"], ["toolkit"]]
INCLUDE = re.compile(r'^\s*#\s*include\s*["<]([^">]+)[">]', re.M)


def levels(rows):
    return {folder: level for level, row in enumerate(rows) for folder in row}


def leads_up(own, target, level, strict):
    if own not in level or target not in level or own == target:
        return False
    return level[target] < level[own] or (strict and level[target] == level[own])


def faults(source: pathlib.Path):
    outer, inner = levels(ROWS), levels(CONSOLE_ROWS)
    for path in sorted(p for p in source.rglob("*") if p.suffix in {".h", ".cpp"}):
        own = path.relative_to(source).parts
        if own[0] not in outer or (own[0] == "crvconfd" and own[1] not in inner):
            yield f"{path}: its folder stands in no row"
            continue
        for target in INCLUDE.findall(path.read_text("utf-8")):
            parts = target.split("/")
            up = len(parts) > 1 and leads_up(own[0], parts[0], outer, True)
            if up or (own[0] == parts[0] == "crvconfd" and leads_up(own[1], parts[1], inner, False)):
                yield f"{path}: includes {target}, which does not stand below it"
            if "curses" in target and not (own[:2] == ("crvconfd", "toolkit") and path.suffix == ".cpp"):
                yield f"{path}: curses belongs to the toolkit's source only"


found = list(faults(pathlib.Path(sys.argv[1])))
print("\n".join(found) or "includes lead downwards only")
sys.exit(1 if found else 0)
