"""The figures that the plots show, as an extract of what scripts/bench wrote."""

import json
import re

OURS, RIPGREP, SQLITE, JSON_FILES = "velta-mcp", "ripgrep", "SQLite", "JSON files"
MILLISECOND, MEGABYTE = 1e6, 1e6

# How the plots name the words that were searched for, and how the benchmark does.
RARITIES = {"in 5 % of the lines": "5 %", "in 3 lines": "3 lines", "in no line": "absent"}
LANGUAGES = {"Chinese": ("traditional", "simplified"), "English": ("ascii",)}
SCRIPTS = [script for scripts in LANGUAGES.values() for script in scripts]
NEVER = "two words that never meet", "two words of 5 % that never meet"


class Lacking(Exception):
    """The benchmark's file has not what the plots show."""


class Rows:
    """The rows of a benchmark's file."""

    def __init__(self, told):
        self.rows = {(row["section"], row["name"], row["meetings"]): row for row in told["rows"]}

    def row(self, section, name, meetings=None):
        try:
            return self.rows[section, name, meetings]
        except KeyError:
            size = f" with {meetings} meetings" if meetings else ""
            raise Lacking(f"no figure '{name}' of '{section}'{size}") from None

    def value(self, section, name, meetings=None):
        return self.row(section, name, meetings)["value"]

    def milliseconds(self, section, name, meetings=None):
        return rounded(self.value(section, name, meetings) / MILLISECOND)


def rounded(value):
    """`value` with six significant digits, more than any plot shows."""
    return float(f"{value:.6g}")


def search_ms(rows, rarity, scripts, sizes):
    """{tool: milliseconds by size} of searching for one word; ours in the slower of its scripts, the
    others, who are given all its forms at once, under the first."""
    names = [f"{RARITIES[rarity]}, {script}" for script in scripts]
    return {
        OURS: [max(rows.milliseconds("search", name, size) for name in names) for size in sizes],
        RIPGREP: [rows.milliseconds("ripgrep", names[0], size) for size in sizes],
        way(rows, names[0], sizes): [rows.milliseconds("sqlite", names[0], size) for size in sizes],
    }


def way(rows, name, sizes):
    """How SQLite looked for it: its table matches three characters and more, LIKE the rest."""
    note = rows.row("sqlite", name, sizes[-1])["note"]
    return f"{SQLITE} LIKE" if note.startswith("LIKE") else f"{SQLITE} FTS5"


def table_bytes(rows, size):
    """The size of SQLite's table, which stands in a note."""
    note = rows.row("sqlite", "building the table", size)["note"]
    found = re.search(r"([0-9.]+) MB on disk", note)
    if not found:
        raise Lacking(f"no size of SQLite's table in '{note}'")
    return float(found.group(1)) * MEGABYTE


def slowest_ms(told, rows, size):
    """The slowest search for one word, and for two: those that never meet, beside SQLite's."""
    searches = [row for row in told["rows"] if row["section"] == "search" and row["meetings"] == size]
    times = {row["name"]: row["value"] for row in searches if row["unit"] == "ns"}
    never, ours = NEVER
    for name, value in times.items():
        if value > max(times[f"{ours}, {script}"] for script in SCRIPTS):
            raise Lacking(f"'{name}' was slower than '{ours}', which the plot names as the slowest")
    return {
        "one_word": rounded(max(times[name] for name in times if not name.startswith("two words")) / MILLISECOND),
        "two_words_that_never_meet": {
            language: {
                OURS: rounded(max(times[f"{ours}, {script}"] for script in scripts) / MILLISECOND),
                SQLITE: rows.milliseconds("sqlite", f"{never}, {scripts[0]}", size),
            }
            for language, scripts in LANGUAGES.items()
        },
    }


def command_of(told):
    """How to measure the same again: without the name of the file."""
    return re.sub(r" --out[ =]\S+", "", " ".join(told["command"]))


def extract(told):
    """What the plots show of a benchmark's file."""
    if told["wrong"]:
        raise Lacking(f"the run had wrong answers: {told['wrong']}")
    rows = Rows(told)
    sizes = sorted({row["meetings"] for row in told["rows"] if row["section"] == "search"})
    if len(sizes) < 2:
        raise Lacking("the run has fewer than two numbers of meetings to search")
    resident = [rows.value("memory", "resident after the build", size) for size in sizes]
    share = [rows.value("memory", "resident against the JSON", size) for size in sizes]
    empty = rows.row("start", "later start, no meetings")
    return {
        "run": {
            "date": told["date"][:10],
            "command": command_of(told),
            "processor": told["machine"]["processor"],
            "cores": told["machine"]["cores"],
            "commit": told["machine"]["commit"],
            "changed_files": told["machine"]["changed_files"],
        },
        "meetings": sizes,
        "search_ms": {
            language: {rarity: search_ms(rows, rarity, scripts, sizes) for rarity in RARITIES}
            for language, scripts in LANGUAGES.items()
        },
        "slowest_ms": slowest_ms(told, rows, sizes[-1]),
        "memory_mb": {
            OURS: [rounded(value / MEGABYTE) for value in resident],
            JSON_FILES: [rounded(value / part / MEGABYTE) for value, part in zip(resident, share)],
            f"{SQLITE} FTS5": [rounded(table_bytes(rows, size) / MEGABYTE) for size in sizes],
        },
        "empty_home": {
            "memory_mb": {
                OURS: rounded(empty["memory"]["VmRSS"] / MEGABYTE),
                "a server in Node": rounded(rows.value("node", "memory of server-memory") / MEGABYTE),
            },
            "first_answer_ms": {
                OURS: rounded(empty["value"] / MILLISECOND),
                "a server in Node": rows.milliseconds("node", "start to first answer of server-memory"),
            },
        },
    }


def written(figures):
    """As it is committed: lists of numbers on one line."""
    text = json.dumps(figures, ensure_ascii=False, indent=1)
    return re.sub(r"\[\s+([^\[\]{}]*?)\s+\]", lambda m: "[" + re.sub(r"\s+", " ", m.group(1)) + "]", text) + "\n"
