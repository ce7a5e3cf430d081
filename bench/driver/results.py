"""What was measured: rows with a figure, what it is compared with, and the goal that it has."""

import sys
import unicodedata

OK, MISSED, OPEN = "ok", "MISSED", ""


class Goal:
    """A goal: `text` says it, `holds(value)` decides. With `meetings` it is about a home of that
    size: what already misses it on a smaller home misses it, what meets it there is left open."""

    def __init__(self, text, holds, meetings=None):
        self.text = text
        self.holds = holds
        self.meetings = meetings

    def verdict(self, value, meetings):
        if not self.holds(value):
            return MISSED
        if self.meetings and meetings and meetings < self.meetings:
            return OPEN
        return OK


def at_most(limit, text, meetings=None):
    return Goal(text, lambda value: value <= limit, meetings)


def at_least(limit, text, meetings=None):
    return Goal(text, lambda value: value >= limit, meetings)


def shown_time(ns):
    if ns >= 1e9:
        return f"{ns / 1e9:.2f} s"
    if ns >= 1e7:
        return f"{ns / 1e6:.0f} ms"
    return f"{ns / 1e6:.3f} ms"


def shown_size(count):
    if count >= 1e6:
        return f"{count / 1e6:.2f} MB"
    return f"{count / 1e3:.1f} KB" if count >= 1e4 else f"{count:.0f} B"


SHOWN = {
    "ns": shown_time,
    "bytes": shown_size,
    "x": lambda value: f"{value:.2f} x",
    "B/s": lambda value: f"{value / 1e6:.0f} MB/s",
    "": str,
}


class Results:
    """The rows, in the order in which they were added; each is said as soon as it is there."""

    def __init__(self):
        self.rows = []
        self.skipped = []
        self.faults = []

    def add(self, section, name, value, unit, meetings=None, goal=None, note="", **more):
        """`value` is what counts; `more` is kept for the file. Returns the row."""
        row = {"section": section, "name": name, "meetings": meetings, "value": value, "unit": unit}
        row.update(more)
        if note:
            row["note"] = note
        if goal:
            row["goal"] = goal.text
            row["verdict"] = goal.verdict(value, meetings)
        self.rows.append(row)
        progress("    " + " ".join(str(cell) for cell in cells(row) if cell))
        return row

    def skip(self, what, reason):
        self.skipped.append({"what": what, "reason": reason})
        progress(f"    skipped: {what}: {reason}")

    def fault(self, text):
        """A measured answer was not the true one."""
        self.faults.append(text)
        progress(f"    WRONG: {text}")


def progress(text):
    print(text, file=sys.stderr, flush=True)


def cells(row):
    return [
        f"{row['section']}: {row['name']}",
        f"{row['meetings']:,}" if row["meetings"] else "",
        SHOWN[row["unit"]](row["value"]),
        row.get("note", ""),
        row.get("goal", ""),
        row.get("verdict", "") or ("at that size" if row.get("goal") else ""),
    ]


HEADINGS = ["measured", "meetings", "figure", "beside it", "goal", "verdict"]


def width(text):
    """Columns of a terminal: Chinese characters take two."""
    return sum(2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


def table(rows):
    lines = [HEADINGS] + [cells(row) for row in rows]
    widths = [max(width(line[i]) for line in lines) for i in range(len(HEADINGS))]
    right = {1, 2}
    text = []
    for number, line in enumerate(lines):
        parts = []
        for i, cell in enumerate(line):
            blanks = " " * (widths[i] - width(cell))
            parts.append(blanks + cell if i in right else cell + blanks)
        text.append("  ".join(parts).rstrip())
        if number == 0:
            text.append("  ".join("-" * w for w in widths))
    return "\n".join(text)
