"""tidy.py BUILD: clang-tidy over all of our sources that BUILD/compile_commands.json names.

A source that was clean is skipped until it, one of our headers that it includes, its command or the
checks change: a stamp in BUILD/tidy holds a hash of all these.
"""
import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
STAMPS = BUILD / "tidy"
INCLUDE = re.compile(rb'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.MULTILINE)


@functools.lru_cache(None)
def our_includes(file):
    """The headers of this repository that a file includes by itself."""
    folders = [file.parent, ROOT / "include", ROOT / "src", ROOT / "tests"]
    names = [match.decode() for match in INCLUDE.findall(file.read_bytes())]
    found = [next((f / name for f in folders if (f / name).is_file()), None) for name in names]
    return [header.resolve() for header in found if header]


@functools.lru_cache(None)
def checks_of(folder):
    """The configurations that hold for a folder's sources, one after another."""
    above = checks_of(folder.parent) if folder != ROOT else b""
    own = folder / ".clang-tidy"
    return above + own.read_bytes() if own.is_file() else above


def fingerprint(source, command):
    files, left = set(), [source]
    while left:
        file = left.pop()
        if file not in files:
            files.add(file)
            left += our_includes(file)
    digest = hashlib.sha256(checks_of(source.parent) + command.encode())
    for file in sorted(files):
        digest.update(file.read_bytes())
    return digest.hexdigest()


def check(source, command):
    """Whether a source is clean; what clang-tidy says is printed."""
    stamp = STAMPS / str(source.relative_to(ROOT)).replace("/", "_")
    wanted = fingerprint(source, command)
    if stamp.is_file() and stamp.read_text() == wanted:
        return True
    result = subprocess.run(["clang-tidy", "--quiet", "-p", str(BUILD), str(source)], text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    if result.returncode == 0:
        stamp.write_text(wanted)
    else:
        print(f"{source.relative_to(ROOT)}:\n{result.stdout}", flush=True)
    return result.returncode == 0


def main():
    STAMPS.mkdir(exist_ok=True)
    entries = json.loads((BUILD / "compile_commands.json").read_text())
    ours = {pathlib.Path(entry["file"]): entry["command"] for entry in entries}
    ours = {file: command for file, command in ours.items()
            if file.is_relative_to(ROOT) and not file.is_relative_to(ROOT / "build")}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        clean = list(pool.map(check, ours.keys(), ours.values()))
    print(f"clang-tidy: {len(clean)} sources, {clean.count(False)} with complaints")
    return 0 if clean and all(clean) else 1


sys.exit(main())
