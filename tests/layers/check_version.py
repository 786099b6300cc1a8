"""usage: check_version.py <source folder>: wherever a version is written, it is that of the project."""
import pathlib
import re
import sys

source = pathlib.Path(sys.argv[1])
version = re.search(r"project\(corvane VERSION (\S+)", (source / "CMakeLists.txt").read_text("utf-8"))[1]
header = dict(re.findall(r'define CRV_VERSION_(\w+) "?([\d.]+)', (source / "include/corvane/crvtypes.h").read_text("utf-8")))
said = {"crvtypes.h": header["TEXT"], "its numbers": ".".join(header[part] for part in ("MAJOR", "MINOR", "PATCH"))}
for name, pattern in (("debian/changelog", r"corvane \((.+?)-\d+\)"), ("CHANGELOG.md", r"^## (\S+)")):
    said[name] = re.search(pattern, (source / name).read_text("utf-8"), re.M)[1]
for page in (source / "docs/man").rglob("*.[1-9]"):
    for found in re.findall(r'^\.TH .*"Corvane ([\d.]+)"', page.read_text("utf-8"), re.M):
        said[str(page)] = found
if wrong := {name: text for name, text in said.items() if text != version}:
    sys.exit(f"not {version}: {wrong}")
