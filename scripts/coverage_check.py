# SPDX-License-Identifier: Apache-2.0

"""Prints how much of the sources the tests reach. Fails if that is less than the goals.

    coverage_check.py BUILD_FOLDER REASONS_FILE LINES_GOAL BRANCHES_GOAL

Reads coverage.json in the build folder, which llvm-cov makes. Adds up the counts of a template's instances, so
that a line or a branch of a template counts once, as reached if any instance reaches it. llvm-cov's own totals
are those of the best single instance.

The reasons file is Markdown. A table under the heading below must have a row for each run of unreached lines:
the file, the first line of the run, the number of lines, and the reason. Fails if a run has no row, or if a row
has no run.
"""

import collections
import json
import pathlib
import re
import sys

HEADING = "## What no test reaches"
# Greater counts stand for negative ones, which llvm-cov computes as a difference when a process ends in the
# middle of a function.
MOST = 1 << 60


def counted(number):
    return number if number < MOST else 0


class File:
    """Holds the counts of a source file's lines, and of the two sides of each condition."""

    def __init__(self, record, path):
        self.texts = [line.strip() for line in path.read_text().splitlines()]
        self.lines = {}
        self.branches = collections.defaultdict(lambda: [0, 0])
        self._read_segments(record["segments"])
        self._read_branches(record)

    def _read_segments(self, segments):
        """Sets each line's count to the highest count of the regions in the line."""
        starts = collections.defaultdict(list)
        for segment in segments:
            starts[segment[0]].append(segment)
        open_segment = None
        for line in range(segments[0][0], segments[-1][0] + 1):
            begun = [s for s in starts[line] if s[3] and s[4] and not s[5]]
            is_skipped = starts[line] and not starts[line][0][3] and starts[line][0][4]
            goes_on = open_segment is not None and open_segment[3]
            # Leaves out lines of braces, because a brace after a return has the count 0.
            is_code = any(map(str.isalnum, self.texts[line - 1]))
            if is_code and not is_skipped and (goes_on or begun):
                counts = [s[2] for s in begun] + ([open_segment[2]] if goes_on else [])
                self.lines[line] = max(map(counted, counts))
            if starts[line]:
                open_segment = starts[line][-1]

    def _read_branches(self, record):
        for branch in record["branches"]:
            sides = self.branches[branch[0], branch[1]]
            sides[0] += counted(branch[4])
            sides[1] += counted(branch[5])
        # Removes constant conditions, which are evaluated but take no side.
        at = {(s[0], s[1]): s for s in record["segments"]}
        for place, sides in list(self.branches.items()):
            if sides == [0, 0] and place in at and counted(at[place][2]) != 0:
                del self.branches[place]

    def unreached_runs(self):
        """Returns the first line's number and text, and the length, of each run of unreached lines."""
        runs = []
        goes_on = False
        for line, count in sorted(self.lines.items()):
            if count == 0 and goes_on:
                runs[-1][2] += 1
            elif count == 0:
                runs.append([line, self.texts[line - 1], 1])
            goes_on = count == 0
        return runs


def read_coverage(build):
    """Returns the files by their names in the source tree."""
    here = pathlib.Path.cwd()
    files = {}
    for record in json.loads((build / "coverage.json").read_text())["data"][0]["files"]:
        path = pathlib.Path(record["filename"]).resolve()
        if record["segments"]:
            files[str(path.relative_to(here))] = File(record, path)
    return files


def read_reasons(path):
    """Returns how many rows there are for each file, first line and length."""
    _, found, section = path.read_text().partition(HEADING + "\n")
    if not found:
        sys.exit(f"{path} lacks the heading \"{HEADING}\"")
    section = section.partition("\n## ")[0]
    row = re.compile(r"^\| `([^`]+)` \| `+ ?(.+?) ?`+ \| (\d+) \| .*\S.* \|$", re.MULTILINE)
    return collections.Counter(
        (file, text.replace("\\|", "|"), int(length)) for file, text, length in row.findall(section))


def folder_of(file):
    return "/".join(file.split("/")[:2])


def print_totals(files):
    """Prints the table of folders. Returns the percentages of all lines and of all branches."""
    sums = collections.defaultdict(lambda: [0, 0, 0, 0])
    for name, file in files.items():
        sides = [side for pair in file.branches.values() for side in pair]
        numbers = (sum(count > 0 for count in file.lines.values()), len(file.lines),
                   sum(side > 0 for side in sides), len(sides))
        for key in (folder_of(name), "total"):
            sums[key] = [a + b for a, b in zip(sums[key], numbers)]
    percent = lambda part, whole: 100 * part / whole if whole else 100.0
    print(f"{'':26}{'lines':>12}{'':9}{'branches':>12}")
    for key in sorted(sums, key=lambda name: (name == "total", name)):
        lines, all_lines, sides, all_sides = sums[key]
        print(f"{key:26}{f'{lines}/{all_lines}':>12}{percent(lines, all_lines):7.1f} %"
              f"{f'{sides}/{all_sides}':>12}{percent(sides, all_sides):7.1f} %")
    total = sums["total"]
    return percent(total[0], total[1]), percent(total[2], total[3])


def main():
    build, reasons_file = map(pathlib.Path, sys.argv[1:3])
    lines_goal, branches_goal = map(float, sys.argv[3:5])
    files = read_coverage(build)
    lines, branches = print_totals(files)
    problems = []
    if lines < lines_goal or branches < branches_goal:
        problems.append(
            f"the tests miss the goals of {lines_goal:g} % of lines and {branches_goal:g} % of branches")

    reasons = read_reasons(reasons_file)
    for name in sorted(files):
        for line, text, length in files[name].unreached_runs():
            if reasons[name, text, length] > 0:
                reasons[name, text, length] -= 1
            else:
                problems.append(f"no test reaches {name}:{line}, {length} lines: {text}")
    for name, text, length in (+reasons).elements():
        problems.append(
            f"{reasons_file} has a row, but tests reach the lines: {name}, {length} lines: {text}")

    if problems:
        sys.exit("\n".join(problems))


main()
