"""usage: check_security.py <source folder>: every test that docs/security.md names is there, so the page promises nothing untested."""
import pathlib
import re
import sys

source = pathlib.Path(sys.argv[1])
named = set(re.findall(r"`(\w+)`", (source / "docs/security.md").read_text("utf-8")))
tests = "".join(file.read_text("utf-8") for kind in ("*.cpp", "*.py") for file in (source / "tests").rglob(kind))
there = set(re.findall(r"^TEST(?:_F|_P)?\(\w+, *(\w+)\)|def (test_\w+)", tests, re.M))
missing = sorted(named - {name for pair in there for name in pair})
if missing or not named:
    sys.exit("docs/security.md names tests that are not there: " + ", ".join(missing))
