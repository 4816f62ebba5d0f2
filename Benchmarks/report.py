#!/usr/bin/env python3
"""Writes what the benchmarks measured into the blocks of a Markdown document, and draws a chart of it.

usage: report.py RESULTS DOCUMENT CHART

RESULTS is a directory with memory.json and disk.json of the program Benchmarks, bytes.txt of the program Counts, and
instructions.* of the same under callgrind. What stands in the document outside the blocks stays.
"""

import json
import pathlib
import platform
import random
import re
import statistics
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as pyplot

WHO = ["raw", "same", "wfs", "std", "boost", "poco", "glib", "apr", "qt"]
OTHERS = WHO[3:]
NAMES = {
    "std": "standard library",
    "boost": "Boost",
    "poco": "POCO",
    "glib": "GLib",
    "apr": "APR",
    "qt": "Qt",
}

# What the library is to reach: (words, operation, limits). A limit is for the ratio to somebody; "best" is the fastest of
# the other libraries, and None is a figure that is told without a limit.
TARGETS = [
    ("read 64 MiB by one call", "read_64MiB_at_once", {"same": 1.02, "raw": 1.02, "best": 1.0}),
    ("write 64 MiB by one call", "write_64MiB_at_once", {"same": 1.02, "raw": 1.02, "best": 1.0}),
    ("read 64 MiB by 4 KiB", "read_64MiB_by_4KiB", {"same": 1.02, "raw": 1.02, "best": 1.0}),
    ("write 64 MiB by 4 KiB", "write_64MiB_by_4KiB", {"same": 1.02, "raw": 1.02, "best": 1.0}),
    ("open, lock, read 4 KiB, unlock, close", "read_4KiB_locked", {"same": 1.1, "raw": 1.35, "best": 0.8, "boost": 0.8}),
    ("open, lock, read and write 64 bytes, unlock, commit", "update_64B_locked", {"same": 1.1, "raw": None, "best": None}),
    ("create, write 4 KiB, commit, delete", "create_write_4KiB_delete", {"same": 1.1, "raw": 1.3, "boost": 1.0}),
    ("combine a short path", "combine_short", {"raw": 1.5, "glib": 0.5, "qt": 0.5, "std": 0.15}),
    ("combine a path of 40 parts", "combine_40_parts", {"raw": 1.5, "glib": 0.5, "qt": 0.5, "std": 0.15}),
    ("list 1,000 entries by a pattern", "list_1000_entries", {"same": 1.15, "std": 0.6}),
    ("pipe: 64 bytes and back", "pipe_64B_and_back", {"same": 1.1, "raw": None}),
    ("pipe: 64 MiB by 64 KiB", "pipe_64MiB_by_64KiB", {"same": 1.1, "raw": None}),
]
MANY_OPEN_LIMIT = 1.3
BYTES_LIMIT = 512
LINEAR_LIMIT = 12

GROUPS = [
    ("Files", r"read_4KiB|update_64B|create_write"),
    ("Transfers", r"(read|write)_64MiB|lines_of"),
    ("Whole files", r"copy_|size|last_modified|move_twice"),
    ("Paths", r"combine_|make_absolute"),
    ("Directories", r"create_tree|delete_tree|list_"),
    ("Pipes", r"pipe_"),
    ("Many open files", r"open_"),
]


def place_of(operation):
    """Sorts operations by their group and name, numbers by their size."""
    group = next(index for index, (_, pattern) in enumerate(GROUPS) if re.match(pattern, operation))
    return group, [(int(part or 0), text) for part, text in re.findall(r"(\d*)(\D+|$)", operation)]


def quantile(values, part):
    """The value below which this part of them lies, interpolated."""
    ordered = sorted(values)
    place = part * (len(ordered) - 1)
    below = int(place)
    above = min(below + 1, len(ordered) - 1)
    return ordered[below] + (ordered[above] - ordered[below]) * (place - below)


class Series:
    """The times of one benchmark, in nanoseconds."""

    def __init__(self):
        self.times = []

    @property
    def median(self):
        return statistics.median(self.times)

    @property
    def least_disturbed(self):
        """The lower quartile, on which all ratios rest; Documentation/Performance.md says why."""
        return quantile(self.times, 0.25)

    @property
    def spread(self):
        """The distance between the quartiles, as a part of the median."""
        return (quantile(self.times, 0.75) - quantile(self.times, 0.25)) / self.median


def ratio_of(series, other):
    return series.least_disturbed / other.least_disturbed


def doubt_of(series, other):
    """How far the ratio may be off: half the range that holds 95 % of the ratios of resampled repetitions."""
    chance = random.Random(20110815)
    ratios = [
        quantile(chance.choices(series.times, k=len(series.times)), 0.25)
        / quantile(chance.choices(other.times, k=len(other.times)), 0.25)
        for _ in range(1000)
    ]
    return (quantile(ratios, 0.975) - quantile(ratios, 0.025)) / 2


class Run:
    """What one run of the program measured: series[operation][who]."""

    def __init__(self, path):
        content = json.loads(path.read_text())
        self.context = content["context"]
        self.series = {}
        for entry in content["benchmarks"]:
            if entry["run_type"] != "iteration" or entry.get("error_occurred"):
                continue
            operation, who, *suffixes = entry["run_name"].split("/")
            # What several threads do together is measured by the clock on the wall, the rest by the processor's time.
            time = entry["real_time" if "real_time" in suffixes else "cpu_time"]
            unit = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[entry["time_unit"]]
            self.series.setdefault(operation, {}).setdefault(who, Series()).times.append(time * unit)
        # They came in random order.
        self.series = dict(sorted(self.series.items(), key=lambda item: place_of(item[0])))

    def ratio(self, operation, who, to):
        """None where either is missing."""
        series = self.series.get(operation, {})
        return ratio_of(series[who], series[to]) if who in series and to in series else None

    def doubt(self, operation, who, to):
        series = self.series[operation]
        return doubt_of(series[who], series[to])

    def best_other(self, operation):
        series = self.series.get(operation, {})
        return min((who for who in OTHERS if who in series), key=lambda who: series[who].least_disturbed, default=None)


def duration(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def number(ratio):
    if ratio is None:
        return "–"
    return f"{ratio:.2f}" if ratio < 10 else f"{ratio:.0f}"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|---" + "|--:" * (len(head) - 1) + "|"]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


YES, NO, OPEN = "yes", "**no**", "open"


def judge(value, limit, doubt=0.0):
    """A cell, and whether the limit is kept, missed, or missed by less than the measurement can tell."""
    cell = number(value) + (f" ± {doubt:.2f}" if doubt else "")
    if limit is None:
        return cell, YES
    cell += f" (≤ {limit:g})"
    if round(value, 2) <= limit:
        return cell, YES
    return (f"_{cell}_", OPEN) if value - doubt <= limit else (f"**{cell}**", NO)


def worst(verdicts):
    return next((verdict for verdict in (NO, OPEN) if verdict in verdicts), YES)


def targets_block(run, bytes_of):
    rows = []
    for words, operation, limits in TARGETS:
        cells = {"same": "–", "raw": "–"}
        others = {}
        verdicts = []
        for to, limit in limits.items():
            who = run.best_other(operation) if to == "best" else to
            if who in others or run.ratio(operation, "wfs", who) is None:
                continue
            cell, verdict = judge(run.ratio(operation, "wfs", who), limit, run.doubt(operation, "wfs", who))
            verdicts.append(verdict)
            if who in cells:
                cells[who] = cell
            else:
                others[who] = f"{NAMES[who]} {cell}"
        rows.append([words, cells["same"], cells["raw"], ", ".join(others.values()) or "–", worst(verdicts)])
    few, many = (run.series.get(f"open_among_{count}", {}).get("wfs") for count in (10, 19000))
    if few and many:
        cell, verdict = judge(ratio_of(many, few), MANY_OPEN_LIMIT, doubt_of(many, few))
        rows.append(["open among 19,000 open files", "–", "–", f"among 10: {cell}", verdict])
    most = max(bytes_of.values())
    verdict = YES if most <= BYTES_LIMIT else NO
    rows.append(["memory of an open file", "–", "–", f"{most} bytes (≤ {BYTES_LIMIT})", verdict])
    return table(["wfs", "to the same calls", "to raw", "to others", "met"], rows)


def machine_block(memory, disk):
    model = "an unnamed processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    context = memory.context
    # Of the last minute.
    loads = [(run.context.get("load_avg") or [0.0])[0] for run in (memory, disk)]
    repetitions = [
        max(len(series.times) for by_who in run.series.values() for series in by_who.values()) for run in (memory, disk)
    ]
    return (
        f"{context['num_cpus']} processors ({model}), {platform.system()} {platform.release().split('-')[0]}. "
        f"In memory: {repetitions[0]} repetitions, load {loads[0]:.1f} at the beginning. "
        f"On the disk: {repetitions[1]} repetitions, load {loads[1]:.1f}. "
        f"With more load than processors, others were at work meanwhile."
    )


def all_block(run):
    parts = []
    for title, pattern in GROUPS:
        rows = []
        for operation, by_who in run.series.items():
            if not re.match(pattern, operation):
                continue
            for who in WHO:
                if who in by_who:
                    rows.append(
                        [
                            f"`{operation}/{who}`",
                            duration(by_who[who].least_disturbed),
                            duration(by_who[who].median),
                            number(run.ratio(operation, who, "raw")),
                            number(run.ratio(operation, who, "same")),
                            f"{by_who[who].spread:.0%}",
                        ]
                    )
        if rows:
            head = ["", "lower quartile", "median", "to `raw`", "to `same`", "spread"]
            parts.append(f"### {title}\n\n" + table(head, rows))
    return "\n\n".join(parts)


def disk_block(run):
    rows = []
    for operation in run.series:
        wfs = run.series[operation].get("wfs")
        if wfs is None:
            continue
        best = run.best_other(operation)
        other = "–" if best is None else f"{NAMES[best]} {number(run.ratio(operation, 'wfs', best))}"
        ratios = [number(run.ratio(operation, "wfs", to)) for to in ("same", "raw")]
        rows.append([f"`{operation}`", duration(wfs.least_disturbed), *ratios, other, f"{wfs.spread:.0%}"])
    return table(["", "`wfs`, lower quartile", "to `same`", "to `raw`", "to the best other", "spread"], rows)


def read_instructions(results):
    """The instructions by name, from callgrind's dumps, in their order."""
    counts = {}
    dumps = [path for path in results.glob("instructions.*") if path.suffix[1:].isdigit()]
    for path in sorted(dumps, key=lambda dump: int(dump.suffix[1:])):
        text = path.read_text()
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.MULTILINE)
        total = re.search(r"^totals: (\d+)$", text, re.MULTILINE)
        if name and total:
            counts[name[1]] = int(total[1])
    return counts


def instructions_block(counts):
    rows = [[f"`{name}`", f"{count:,}"] for name, count in counts.items() if not name.startswith("canonical")]
    return table(["", "instructions"], rows)


def linear_block(counts):
    rows = []
    for name, count in counts.items():
        match = re.match(r"canonical 10000 (\w+) (\w+)", name)
        if match:
            long = counts[f"canonical 100000 {match[1]} {match[2]}"]
            cell, _ = judge(long / count, LINEAR_LIMIT)
            rows.append([f"{match[1]}, {match[2]}", f"{count:,}", f"{long:,}", cell])
    return table(["", "10,000 parts", "100,000 parts", "ratio"], rows)


def bytes_block(bytes_of):
    return table(["", "bytes"], [[f"{kind} file", str(count)] for kind, count in bytes_of.items()])


def draw(run, chart):
    matplotlib.rcParams.update({"svg.hashsalt": "WFileSystem", "svg.fonttype": "none", "font.size": 8})
    operations = [
        operation
        for operation, by_who in run.series.items()
        if {"raw", "wfs"} <= by_who.keys() and not operation.startswith("pipe_")
    ]
    places = range(len(operations))
    figure, axes = pyplot.subplots(figsize=(8, 0.32 * len(operations) + 1), layout="constrained")
    axes.barh(
        [place - 0.2 for place in places],
        [run.ratio(operation, "wfs", "raw") for operation in operations],
        height=0.4, color="#1f5a99", label="wfs",
    )
    with_other = [(place, run.best_other(operations[place])) for place in places]
    with_other = [(place, who) for place, who in with_other if who]
    axes.barh(
        [place + 0.2 for place, _ in with_other],
        [run.ratio(operations[place], who, "raw") for place, who in with_other],
        height=0.4, color="#c9c9c9", label="fastest other library",
    )
    for place, who in with_other:
        axes.annotate(
            NAMES[who], (run.ratio(operations[place], who, "raw"), place + 0.2), xytext=(2, 0),
            textcoords="offset points", va="center", fontsize=6, color="#555555",
        )
    with_same = [place for place in places if "same" in run.series[operations[place]]]
    axes.scatter(
        [run.ratio(operations[place], "same", "raw") for place in with_same],
        [place - 0.2 for place in with_same],
        marker="|", s=40, color="#d9822b", label="the same calls made bare", zorder=3,
    )
    axes.axvline(1, color="black", linewidth=0.6)
    axes.set_xscale("log")
    axes.xaxis.set_major_formatter(lambda value, _: f"{value:g}")
    axes.set_yticks(list(places), operations)
    axes.invert_yaxis()
    axes.margins(y=0.01)
    axes.set_xlabel("time against raw, in memory; shorter is faster")
    axes.legend(loc="lower right")
    figure.savefig(chart, metadata={"Date": None, "Creator": None})


def replace_block(text, name, content):
    begin, end = f"<!-- Scripts/benchmark writes: {name} -->\n", "<!-- end -->"
    before, found, rest = text.partition(begin)
    _, ended, after = rest.partition(end)
    if not found or not ended:
        sys.exit(f"report.py: the document has no block '{name}'")
    return f"{before}{begin}\n{content}\n\n{end}{after}"


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    results, document, chart = map(pathlib.Path, sys.argv[1:])
    memory, disk = Run(results / "memory.json"), Run(results / "disk.json")
    bytes_of = {kind: int(count) for kind, count in map(str.split, (results / "bytes.txt").read_text().splitlines())}
    counts = read_instructions(results)
    text = document.read_text()
    for name, content in {
        "machine": machine_block(memory, disk),
        "targets": targets_block(memory, bytes_of),
        "all": all_block(memory),
        "disk": disk_block(disk),
        "instructions": instructions_block(counts),
        "linearity": linear_block(counts),
        "bytes": bytes_block(bytes_of),
    }.items():
        text = replace_block(text, name, content)
    document.write_text(text)
    draw(memory, chart)


if __name__ == "__main__":
    main()
