#!/usr/bin/env python3
"""Fails when an include goes up the layers, or when a file outside kiv/kivplatform touches the operating system.

usage: check_layers.py [ROOT]
"""
import fnmatch
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
SYSTEM = re.compile(r"^(windows|unistd|fcntl|dlfcn|pthread|sched|signal|spawn|wininet|dbghelp|psapi|shlwapi|io|direct|process|syslog|poll|winsock2?)\.h$|^(sys|linux|curl|elfutils|arpa|netinet)/", re.I)
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b.*(_WIN32|_WIN64|__linux__|__unix__|__MINGW)", re.M)
PROGRAMS = ("DorRelay", "DorHandler", "DorClient", "kivtool")


def table():
    rows = []
    for line in (ROOT / "cmake/layers.txt").read_text().splitlines():
        if line.strip() and not line.startswith("#"):
            number, name, *patterns = line.split()
            rows.append((int(number), name, patterns))
    return rows


def layer(stem, rows):
    for number, name, patterns in rows:
        if any(fnmatch.fnmatchcase(stem, p) for p in patterns):
            return number, name
    sys.exit("check_layers: %s is in no layer" % stem)


def main():
    rows = table()
    findings = []
    checked = 0
    for path in sorted((ROOT / "kiv").rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        checked += 1
        where = path.relative_to(ROOT)
        text = path.read_text(encoding="utf-8")
        in_platform = where.parts[1] == "kivplatform"
        if in_platform:
            own = layer("KivSysText", rows)
        elif where.parts[1] in PROGRAMS:
            own = (rows[-1][0], rows[-1][1])
        else:
            own = layer(path.stem.split("_")[0], rows)
        for quote, name in INCLUDE.findall(text):
            if SYSTEM.search(name) and not in_platform:
                findings.append("%s: operating-system header <%s>" % (where, name))
            base = pathlib.PurePosixPath(name).name
            if quote == '"' and base.endswith(".h") and re.match(r"I?Kiv|ISnap", base):
                other = layer(base[:-2].split("_")[0], rows)
                if other[0] > own[0]:
                    findings.append("%s (%s) includes %s (%s)" % (where, own[1], name, other[1]))
        if CONDITION.search(text) and not in_platform:
            findings.append("%s: condition on the platform" % where)
    for finding in findings:
        print("check_layers: " + finding)
    print("check_layers: %d files, %d findings" % (checked, len(findings)))
    if not checked:
        sys.exit(2)
    sys.exit(1 if findings else 0)


main()
