"""Measures velta-mcp and what it is compared with. scripts/bench builds what this needs and runs it.

python3 bench/driver [--sizes 1000,5000] [--only NAME...] [--out FILE]
"""

import argparse
import hashlib
import json
import os
import platform
import subprocess
import sys
import time

import homes
import measure
from pipes import GivenUp
from results import MISSED, OK, Results, progress, table

SECTIONS = (
    "size", "start", "node", "json", "reader", "index", "memory", "ripgrep", "sqlite", "search", "list",
    "read", "refresh",
)  # fmt: skip
SIZES = "1000,5000,10000"


def sizes(text):
    """Ascending numbers of meetings, of a list with commas."""
    numbers = sorted({int(number) for number in text.split(",")})
    if numbers[0] < 1 or numbers[-1] > 99999:
        raise ValueError(text)
    return numbers


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures velta-mcp.")
    parser.add_argument("--sizes", type=sizes, default=SIZES, help=f"meetings of the homes (default {SIZES})")
    names = " ".join(SECTIONS)
    parser.add_argument("--only", nargs="+", choices=SECTIONS, default=SECTIONS, metavar="NAME", help=names)
    usual = os.path.join("build", "bench", "results.json")
    parser.add_argument("--out", default=usual, help=f"where the figures go as JSON (default {usual})")
    return parser.parse_args()


def output_of(*command):
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True)
    except (OSError, subprocess.CalledProcessError):
        return None
    return done.stdout.decode().strip()


def processor():
    try:
        with open("/proc/cpuinfo", encoding="ascii", errors="replace") as info:
            return next(row.split(":", 1)[1].strip() for row in info if row.startswith("model name"))
    except (OSError, StopIteration):
        return platform.processor()


def sha256(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def machine(server):
    return {
        "processor": processor(),
        "cores": os.cpu_count(),
        "system": platform.platform(),
        "python": platform.python_version(),
        "load": os.getloadavg(),
        "commit": output_of("git", "rev-parse", "--short", "HEAD"),
        "changed_files": len((output_of("git", "status", "--porcelain") or "").splitlines()),
        "server": server,
        "server_sha256": sha256(server),
    }


def measure_home(bench, home, only, smallest):
    """Everything that is measured on one home."""
    homes.warm(home)
    if smallest and "json" in only:
        measure.json_library(bench, home)
    if smallest and "reader" in only:
        measure.reader(bench, home)
    if "index" in only or "memory" in only:
        measure.index(bench, home)
    references = {}
    if "ripgrep" in only:
        references["ripgrep"] = measure.ripgrep(bench, home)
    if "sqlite" in only:
        references["SQLite"] = measure.sqlite(bench, home)
    if not {"search", "list", "read", "refresh"} & set(only):
        return
    with measure.Calls(bench, home) as calls:
        if "search" in only:
            measure.search(bench, home, calls, references)
        if "list" in only:
            measure.list_meetings(bench, home, calls)
        if "read" in only:
            measure.read(bench, home, calls)
        if "refresh" in only:
            measure.refresh(bench, home, calls)


def measure_all(bench, given):
    for section in ("size", "start", "node"):
        if section in given.only:
            getattr(measure, section)(bench)
    folder = os.path.join(bench.root, "build", "bench-homes")
    for meetings in given.sizes:
        home = homes.make_home(folder, meetings, bench.program("make-home"), os.path.join(bench.root, "bench"))
        progress(f"{meetings:,} meetings")
        measure_home(bench, home, given.only, meetings == given.sizes[0])


def write(given, results, before, began):
    told = {
        "date": time.strftime("%Y-%m-%dT%H:%M:%S%z", began),
        "command": ["scripts/bench", *sys.argv[1:]],
        "machine": before,
        "load_at_the_end": os.getloadavg(),
        "rows": results.rows,
        "skipped": results.skipped,
        "wrong": results.faults,
    }
    os.makedirs(os.path.dirname(os.path.abspath(given.out)), exist_ok=True)
    homes.write_json(given.out, told)


def summary(results):
    verdicts = [row["verdict"] for row in results.rows if "goal" in row]
    lines = [table(results.rows), ""]
    lines += [f"skipped: {skipped['what']}: {skipped['reason']}" for skipped in results.skipped]
    lines += [f"WRONG: {fault}" for fault in results.faults]
    left = len(verdicts) - verdicts.count(OK) - verdicts.count(MISSED)
    lines.append(f"goals: {verdicts.count(OK)} ok, {verdicts.count(MISSED)} missed, {left} for a larger home")
    return "\n".join(lines)


def main():
    began, given = time.localtime(), arguments()
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    server = os.path.abspath(os.environ.get("VELTA_BINARY", os.path.join(root, "build", "release", "velta-mcp")))
    before = machine(server)
    if before["load"][0] > 0.5:
        progress(f"other programs are running (load {before['load'][0]:.2f}): the figures are rough")
    results = Results()
    bench = measure.Bench(root, server, results)
    try:
        measure_all(bench, given)
    except GivenUp as reason:
        results.fault(f"given up: {reason}")
    write(given, results, before, began)
    print(summary(results))
    print(f"all figures: {os.path.relpath(given.out)}")
    return 1 if results.faults else 0


if __name__ == "__main__":
    sys.exit(main())
