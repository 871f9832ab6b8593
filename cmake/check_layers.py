#!/usr/bin/env python3
"""Fails when an include goes up the layers, or when a file outside kiv/kivplatform touches the operating system.

usage: check_layers.py [ROOT]

cmake/layers.txt names the layers and the few files that may touch the operating system. Tests, examples, benchmarks and
fuzzers stand above all layers: of them only the second rule is asked.
"""
import fnmatch
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
FOLDERS = ("kiv", "tests", "examples", "benchmarks", "fuzz")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
SYSTEM = re.compile(
    r"^(windows|winsock2?|ws2tcpip|wininet|dbghelp|psapi|shlwapi|timeapi|io|direct|process|conio"
    r"|unistd|fcntl|dlfcn|pthread|sched|signal|spawn|poll|pwd|grp|dirent|termios|pty|syslog|semaphore|mqueue|elf|link|ucontext)\.h$"
    r"|^(sys|linux|asm|curl|elfutils|arpa|netinet|net)/", re.I)
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b.*(_WIN32|_WIN64|__linux__|__unix__|__MINGW)", re.M)
PROGRAMS = ("DorRelay", "DorHandler", "DorClient", "kivtool", "kivreaders")


def table():
    rows, system = [], []
    for line in (ROOT / "cmake/layers.txt").read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        word, *patterns = line.split()
        if word == "system":
            system += patterns
        else:
            rows.append((int(word), patterns[0], patterns[1:]))
    return rows, system


def layer(stem, rows):
    for number, name, patterns in rows:
        if any(fnmatch.fnmatchcase(stem, p) for p in patterns):
            return number, name
    sys.exit("check_layers: %s is in no layer" % stem)


def check(path, rows, system):
    where = path.relative_to(ROOT)
    text = path.read_text(encoding="utf-8")
    in_platform = where.parts[:2] == ("kiv", "kivplatform")
    if in_platform:
        own = layer("KivSysText", rows)
    elif where.parts[0] != "kiv" or where.parts[1] in PROGRAMS:
        own = rows[-1][:2]
    else:
        own = layer(path.stem.split("_")[0], rows)
    may_touch = in_platform or any(fnmatch.fnmatchcase(where.as_posix(), p) for p in system)
    for quote, name in INCLUDE.findall(text):
        if SYSTEM.search(name) and not may_touch:
            yield "%s: operating-system header <%s>" % (where, name)
        base = pathlib.PurePosixPath(name).name
        if quote == '"' and base.endswith(".h") and re.match(r"I?Kiv|ISnap", base) and own != rows[-1][:2]:
            other = layer(base[:-2].split("_")[0], rows)
            if other[0] > own[0]:
                yield "%s (%s) includes %s (%s)" % (where, own[1], name, other[1])
    if CONDITION.search(text) and not may_touch:
        yield "%s: condition on the platform" % where


def main():
    rows, system = table()
    findings = []
    counts = []
    for folder in FOLDERS:
        paths = [p for p in sorted((ROOT / folder).rglob("*")) if p.suffix in (".h", ".cpp")]
        counts.append("%s %d" % (folder, len(paths)))
        if not paths:  # a folder that was renamed must not pass unseen
            findings.append("%s: no files found" % folder)
        for path in paths:
            findings += check(path, rows, system)
    for finding in findings:
        print("check_layers: " + finding)
    print("check_layers: files in %s; %d findings" % (", ".join(counts), len(findings)))
    sys.exit(1 if findings else 0)


main()
