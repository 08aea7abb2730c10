"""windows_tests.py BUILD: runs BUILD's test programs under Wine and compares what fails with docs/differences.md.

Every failure has to be a row there, and every row has to fail: so the page says exactly how the two systems
differ. A row's first cell names the test, where "*" stands for any text, its second one the cases: words that stand in
the failure's text, with semicolons between them, or "*" for the whole test; with "(may)" in front where it passes at
times, and "(not run)" where it would only wait in vain or end the program.
"""
import concurrent.futures
import fnmatch
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
ROW = re.compile(r"^\| `([^`]+)` \| (?:\((may|not run)\) )?(.+?) \|")
MINUTES_A_PROGRAM = 2
WINE = shutil.which("wine64", path=os.environ["PATH"] + ":/usr/lib/wine")


class Row:
    def __init__(self, test, mark, case):
        self.test, self.mark, self.case, self.seen = test, mark, case, False

    def covers(self, test, text):
        is_it = any(fnmatch.fnmatchcase(name, self.test) for name in (test, test.split("/")[0]))
        return is_it and (self.case == "*" or self.case in text)


def rows():
    lines = (ROOT / "docs/differences.md").read_text().splitlines()
    found = [match.groups() for match in map(ROW.match, lines) if match]
    return [Row(test, mark, case) for test, mark, cases in found for case in cases.split("; ")]


def plain(name):
    """Suite.Test or Suite.Test/parameter, without the name of the instantiation."""
    return re.sub(r"^[^.]*/", "", name)


def run(program, table):
    """The failures of a program as (test, text), and how many of its tests ran."""
    report = BUILD / "reports" / (program.stem + ".json")
    report.parent.mkdir(exist_ok=True)
    report.unlink(missing_ok=True)
    left_out = ":".join(f"*{row.test}{end}" for row in table if row.mark == "not run" for end in ("", "/*"))
    # A name alone: to such a program a Linux path has no drive and isn't absolute.
    command = [WINE, str(program), f"--gtest_output=json:{report.name}", f"--gtest_filter=-{left_out}", "--gtest_brief=1"]
    output = report.with_suffix(".txt")
    with open(output, "wb") as out:  # no pipe: processes of Wine's would inherit it and keep it open
        try:
            code = subprocess.run(command, cwd=report.parent, stdin=subprocess.DEVNULL, stdout=out,
                                  stderr=subprocess.STDOUT, timeout=60 * MINUTES_A_PROGRAM).returncode
        except subprocess.TimeoutExpired:
            code = None
    failures, count = [], 0
    if code not in (0, 1) or not report.is_file():
        failures.append((program.stem, f"it didn't end as it should:\n{output.read_text(errors='replace')[-2000:]}"))
    if not report.is_file():
        return failures, count
    for suite in json.loads(report.read_text())["testsuites"]:
        for test in suite["testsuite"]:
            count += test["result"] == "COMPLETED"
            name = plain(f"{suite['name']}.{test['name']}")
            failures += [(name, failure["failure"]) for failure in test.get("failures", [])]
    return failures, count


def main():
    table = rows()
    programs = [pathlib.Path(line) for line in (BUILD / "test_programs.txt").read_text().split()]
    begin = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        outcomes = list(pool.map(lambda program: run(program, table), programs))
    unknown = []
    for test, text in (failure for failures, _ in outcomes for failure in failures):
        covering = [row for row in table if row.covers(test, text)]
        for row in covering:
            row.seen = True
        if not covering:
            unknown.append(f"{test}: {text}")
    stale = [f"{row.test}, {row.case}" for row in table if not row.seen and not row.mark]
    print("\n\n".join(unknown))
    for row in stale:
        print(f"docs/differences.md: this doesn't differ any more: {row}")
    print(f"{sum(count for _, count in outcomes)} tests of {len(programs)} programs in "
          f"{time.monotonic() - begin:.0f} s, {len(table)} known differences, {len(unknown)} failures beside them, "
          f"{len(stale)} rows without one")
    return 1 if unknown or stale else 0


sys.exit(main())
