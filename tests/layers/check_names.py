#!/usr/bin/env python3
"""Fails when two sources of one folder give one name to different things in their unnamed namespaces: the release build
compiles a folder's sources together. A name of a header counts for every folder beside it."""
import collections
import pathlib
import re
import sys

STRIP = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'', re.S)
TYPE = re.compile(r'\b(?:class|struct|union|enum(?: class)?) (\w+)[^=();]*\{')
ALIAS = re.compile(r'^using (\w+) =')
VALUE = re.compile(r'(\w+)(?:\[[^\]]*\])*\s*(?:=|\{|;|$)')
FUNCTION = re.compile(r'(\w+)\(.*\)[^()]*$')


def statements(body):
    """The declarations of a namespace's body, each up to its own braces or semicolon."""
    depth, text = 0, ""
    for c in body:
        if c == "{":
            depth += 1
            if depth == 1:
                text += "{"
        elif c == "}":
            depth -= 1
            if depth < 0:
                return
            if depth == 0 and (FUNCTION.search(text.strip().rstrip("{").strip()) or text.strip().startswith("namespace")):
                yield " ".join(text.split())
                text = ""
        elif depth == 0:
            if c == ";":
                yield " ".join(text.split())
                text = ""
            else:
                text += c


def names(text):
    text = STRIP.sub('""', re.sub(r"^\s*#(?:[^\n]*\\\n)*[^\n]*", "", text, flags=re.M))
    for start in re.finditer(r"namespace \{", text):
        for line in statements(text[start.end():]):
            head = re.sub(r" = \{", "", line).split("{")[0].strip()
            if "(" not in head.split(" = ")[0]:  # else the sign is that of a default argument
                head = head.split(" = ")[0]
            if re.match(r"using [^=]*$", line):
                continue
            if match := TYPE.search(line) or ALIAS.match(line):
                yield match[1]
            elif (match := FUNCTION.search(head)) and not re.search(r"operator|static_assert", head) and not match[1].startswith("TEST"):
                yield match[1]
            elif (match := VALUE.search(head)) and match[1] != "struct":
                yield match[1]


def shared(root):
    """Constants and variables of the headers, which every source may meet."""
    for path in root.rglob("*.h"):
        text = re.sub(r"^namespace \w+ \{(?<!namespace crv \{)(?<!test \{).*?^\}  // namespace", "", path.read_text("utf-8"), flags=re.M | re.S)
        for match in re.finditer(r"^(?:inline |constexpr |inline constexpr |inline const )[^=({]*?(\w+)(?:\[\])?\s*[={]", text, re.M):
            yield match[1], path


def faults(folder, headers):
    seen = dict(headers)
    for path in sorted(folder):
        for name in set(names(path.read_text("utf-8"))):
            if name in seen:
                yield f"{path}: {name} has a namesake in {seen[name]}"
            seen[name] = path


found = []
for root in map(pathlib.Path, sys.argv[1:]):
    headers = list(shared(root))
    targets = collections.defaultdict(list)
    for path in root.rglob("*.cpp"):
        owner = path.parent
        while not (owner / "CMakeLists.txt").exists():
            owner = owner.parent
        targets[owner].append(path)
    for folder in targets.values():
        found += faults(folder, headers)
print("\n".join(found) or "each folder's names differ")
sys.exit(1 if found else 0)
