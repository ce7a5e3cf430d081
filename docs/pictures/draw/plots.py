"""The plots of docs/performance.md: latency and memory over the number of meetings."""

import math
from dataclasses import dataclass

from figures import JSON_FILES, LANGUAGES, OURS, RARITIES, RIPGREP, SQLITE
from flow import lines_of
from svg import Picture, width_of

SHAPES = {"ours": "disc", "first": "square", "second": "diamond", "third": "square"}


@dataclass
class Layout:
    """The measures that differ between a page and a telephone."""

    width: int
    edge: int  # of the picture to what is in it
    title: int
    label: float
    telephone: bool = False


WIDE = Layout(width=830, edge=32, title=21, label=13)
NARROW = Layout(width=400, edge=18, title=20, label=12, telephone=True)


# --- how figures are said -------------------------------------------------------------------------


def two_digits(value):
    """With two significant digits, whole numbers with all of theirs."""
    if value >= 99.5:
        return f"{value:.0f}"
    rounded = float(f"{value:.1e}")
    return f"{rounded:.{max(0, 1 - math.floor(math.log10(rounded)))}f}"


def said_time(ms):
    return f"{two_digits(ms / 1000)} s" if ms >= 999.5 else f"{two_digits(ms)} ms"


def said_size(mb):
    if mb >= 999.5:
        return f"{mb / 1000:.2f} GB"
    return f"{mb:.2f} MB" if mb < 10 else f"{mb:.0f} MB"


def said_tick(value):
    """Milliseconds of an axis, which are powers of ten."""
    return f"{value / 1000:g} s" if value >= 1000 else f"{value:g} ms"


def said_size_tick(mb):
    if mb == 0:
        return "0"
    return f"{mb / 1000:g} GB" if mb >= 1000 else f"{mb:g} MB"


def said_range(values):
    """The least and the greatest, the unit once where it is the same."""
    least, greatest = said_time(min(values)), said_time(max(values))
    if least == greatest:
        return least
    if least.split()[1] == greatest.split()[1]:
        least = least.split()[0]
    return f"{least} to {greatest}"


def thousands(number, short=False):
    return f"{number // 1000}k" if short and number % 1000 == 0 else f"{number:,}"


def series_of(name):
    """The colour of a tool, which is that of its shape too: ours, the others, the files."""
    if name == OURS:
        return "ours"
    if name == JSON_FILES:
        return "third"
    return "second" if name.startswith(SQLITE) else "first"


def run_of(figures):
    run = figures["run"]
    changed = " with changes" if run["changed_files"] else ""
    processor = run["processor"].replace("(R)", "").replace("(TM)", "")
    return f"{run['cores']} cores, {processor}; {run['date']}, commit {run['commit']}{changed}; {run['command']}"


# --- scales and marks -----------------------------------------------------------------------------


class Scale:
    """Values onto pixels, linear or logarithmic."""

    def __init__(self, least, greatest, begin, end, *, log=False):
        self.bent = math.log10 if log else float
        self.least, self.greatest = self.bent(least), self.bent(greatest)
        self.begin, self.end = begin, end

    def __call__(self, value):
        share = (self.bent(value) - self.least) / (self.greatest - self.least)
        return self.begin + share * (self.end - self.begin)


def spread(wanted, distance, top, bottom):
    """Places near the `wanted` ones (which ascend), at least `distance` apart, between the edges."""
    places = [min(max(place, top), bottom) for place in wanted]
    for _ in range(100):
        for i in range(len(places) - 1):
            lacking = distance - (places[i + 1] - places[i])
            if lacking > 0.01:
                places[i] -= lacking / 2
                places[i + 1] += lacking / 2
        if places[0] < top:
            places[0] = top
        if places[-1] > bottom:
            places[-1] = bottom
    return places


@dataclass
class Panel:
    """One pair of axes: where it lies and what its axes mean."""

    picture: Picture
    left: float
    top: float
    right: float
    bottom: float
    x: Scale
    y: Scale
    label: float

    def grid(self, ticks, say, named):
        """A line at each tick, with what it means beside it when `named`."""
        for tick in ticks:
            at = self.y(tick)
            self.picture.line([(self.left, at), (self.right, at)], "rule")
            if named:
                self.picture.text(
                    self.left - 10, at + self.label * 0.35, say(tick), "dim", size=self.label, anchor="end"
                )

    def below(self, sizes, *, short, unit):
        """The axis with the numbers of meetings; `unit` says that it is these."""
        self.picture.line([(self.left, self.bottom), (self.right, self.bottom)], "axis")
        for size in sizes:
            at = self.x(size)
            self.picture.line([(at, self.bottom), (at, self.bottom + 4)], "axis")
            self.picture.text(
                at, self.bottom + 19, thousands(size, short), "dim", size=self.label - 0.5, anchor="middle"
            )
        if unit:
            self.picture.text(self.right + 20, self.bottom + 19, "meetings", "dim", size=self.label - 0.5)

    def series(self, sizes, rows, say, named):
        """A line for each of `rows`, said at its end: the last value, and the name below."""
        ends = sorted(rows, key=lambda name: -rows[name][-1])
        places = spread([self.y(rows[name][-1]) for name in ends], self.label * 2.55, self.top + 8, self.bottom - 18)
        for name, place in zip(ends, places):
            look = series_of(name)
            points = [(self.x(size), self.y(value)) for size, value in zip(sizes, rows[name])]
            self.picture.line(points, f"{look}line", width=2.6 if name == OURS else 1.8)
            for point in points:
                mark(self.picture, *point, look)
            at = self.right + 10
            self.picture.text(at, place, say(rows[name][-1]), look, size=self.label, bold=True)
            self.picture.text(at, place + self.label * 1.2, named.get(name, name), look, size=self.label - 0.5)


def mark(picture, x, y, look):
    if SHAPES[look] == "disc":
        picture.disc(x, y, 4, look)
    elif SHAPES[look] == "square":
        picture.box(x - 3.3, y - 3.3, 6.6, 6.6, look)
    else:
        picture.shape([(x, y - 4.6), (x + 4.6, y), (x, y + 4.6), (x - 4.6, y)], look)


class Plot:
    """What both plots have: a title that says what was found, and at the end how it was measured."""

    def __init__(self, figures, layout, title, subtitle, description):
        self.figures = figures
        self.layout = layout
        self.picture = Picture(layout.width, title, description)
        self.left, self.right = layout.edge, layout.width - layout.edge
        self.y = layout.edge + 16
        self.paragraph(title, layout.title, 27, bold=True)
        self.y += 4
        self.paragraph(subtitle, 14.5, 21, look="dim")

    def paragraph(self, text, size, gap, *, bold=False, look="ink"):
        for line in lines_of([(text, None)], size, self.right - self.left, bold=bold):
            self.picture.text(self.left, self.y, line[0][0], look, size=size, bold=bold)
            self.y += gap

    def finish(self, *notes):
        self.y += 14
        for note in (*notes, run_of(self.figures)):
            self.paragraph(note, 12.5, 18, look="dim")
            self.y += 5
        return self.picture.finish(self.y - 23 + max(24, self.layout.edge))


# --- latency --------------------------------------------------------------------------------------


def all_searches(figures):
    """(tool, milliseconds by size) of everything that is drawn."""
    for by_rarity in figures["search_ms"].values():
        for rows in by_rarity.values():
            yield from rows.items()


def last_of(figures, tool):
    return [times[-1] for name, times in all_searches(figures) if name.startswith(tool)]


def latency(figures, layout):
    largest, slowest = thousands(figures["meetings"][-1]), figures["slowest_ms"]
    title = f"Looking for a word in {largest} meetings takes at most {said_time(slowest['one_word'])}"
    subtitle = (
        f"ripgrep takes {said_range(last_of(figures, RIPGREP))}, a SQLite table of trigrams"
        f" {said_range(last_of(figures, SQLITE))}. Both axes are logarithmic."
    )
    plot = Plot(figures, layout, title, subtitle, f"{title}; {subtitle}")
    grid_of_panels(plot)
    common = " and ".join(
        f"{said_time(ms[OURS])} ({language}; SQLite {said_time(ms[SQLITE])})"
        for language, ms in slowest["two_words_that_never_meet"].items()
    )
    return plot.finish(
        f"The slowest search, two common words that never meet, takes {common}.",
        "Medians. velta-mcp: the time of the server, Chinese in the slower of both scripts. ripgrep: a whole process"
        " that counts the lines. SQLite: the newest 20 lines; LIKE where a word has two characters.",
    )


def article(language):
    return f"An {language}" if language[0] in "AEIOU" else f"A {language}"


def grid_of_panels(plot):
    """A panel for each language and each rarity of the word; on a telephone with the two swapped."""
    figures, layout = plot.figures, plot.layout
    times = [ms for _, row in all_searches(figures) for ms in row]
    low, high = (10.0 ** math.floor(math.log10(min(times))), 10.0 ** math.ceil(math.log10(max(times))))
    if layout.telephone:
        groups, columns, axis, labels, height = list(RARITIES), list(LANGUAGES), 58, 73, 160
    else:
        groups, columns, axis, labels, height = list(LANGUAGES), list(RARITIES), 64, 104, 180
    names = {name: SQLITE for name, _ in all_searches(figures) if name.startswith(SQLITE)} if layout.telephone else {}
    slot = (plot.right - plot.left - axis) / len(columns)
    for group in groups:
        plot.y += 14
        heading = f"A word {group}" if layout.telephone else f"{article(group)} word"
        plot.picture.text(plot.left, plot.y, heading, size=15, bold=True)
        plot.y += 22
        top = plot.y + 12
        for number, column in enumerate(columns):
            left = plot.left + axis + number * slot
            language, rarity = (column, group) if layout.telephone else (group, column)
            sizes = figures["meetings"]
            panel = Panel(
                plot.picture, left, top, left + slot - labels, top + height,
                Scale(sizes[0], sizes[-1], left + 6, left + slot - labels - 6, log=True),
                Scale(low, high, top + height, top, log=True), layout.label,
            )  # fmt: skip
            plot.picture.text(left, plot.y - 2, column, "dim", size=layout.label + 0.5)
            panel.grid(ticks_between(low, high), said_tick, number == 0)
            panel.below(sizes, short=True, unit=number == len(columns) - 1)
            panel.series(sizes, figures["search_ms"][language][rarity], said_time, names)
        plot.y = top + height + 38


def ticks_between(low, high):
    """Every second power of ten, from the lowest."""
    exponents = range(round(math.log10(low)), round(math.log10(high)) + 1, 2)
    return [10.0**exponent for exponent in exponents]


# --- memory ---------------------------------------------------------------------------------------


def memory(figures, layout):
    rows = figures["memory_mb"]
    share = rows[OURS][-1] / rows[JSON_FILES][-1]
    largest = thousands(figures["meetings"][-1])
    title = f"{largest} meetings take {said_size(rows[OURS][-1])} of memory, {share:.2f} of their JSON"
    subtitle = "Resident when everything is read, beside what others take on disk."
    plot = Plot(figures, layout, title, subtitle, f"{title}. {subtitle}")
    begin, height = plot.y, 250
    curves_right = plot.right if layout.telephone else plot.left + 490
    curves(plot, curves_right, height)
    if layout.telephone:
        plot.y += 22
        bars(plot, plot.left, plot.right)
        plot.y += 10
    else:
        plot.y, after = begin, plot.y
        bars(plot, plot.left + 536, plot.right)
        plot.y = max(after, plot.y)
    return plot.finish()


def curves(plot, right, height):
    """What grows with the number of meetings."""
    figures, layout = plot.figures, plot.layout
    rows, sizes = figures["memory_mb"], figures["meetings"]
    greatest = max(values[-1] for values in rows.values())
    step = 10.0 ** math.floor(math.log10(greatest))
    step = next(s for s in (step / 5, step / 2, step, 2 * step) if greatest / s <= 4)
    top, left = plot.y + 10, plot.left + 64
    bottom, end = top + height, right - 148
    panel = Panel(
        plot.picture, left, top, end, bottom,
        Scale(0, sizes[-1], left, end - 6), Scale(0, math.ceil(greatest / step) * step, bottom, top), layout.label,
    )  # fmt: skip
    ticks = [step * n for n in range(math.ceil(greatest / step) + 1)]
    panel.grid(ticks, said_size_tick, True)
    panel.below(sizes, short=False, unit=True)
    names = {OURS: "velta-mcp in memory", JSON_FILES: "JSON on disk", f"{SQLITE} FTS5": "SQLite FTS5 on disk"}
    panel.series(sizes, rows, said_size, names)
    plot.y = bottom + 40


def bars(plot, left, right):
    """What a server takes that has nothing to read."""
    plot.y += 18
    plot.picture.text(left, plot.y, "Without any meeting", size=15, bold=True)
    plot.y += 10
    empty = plot.figures["empty_home"]
    for heading, rows, say in (
        ("memory", empty["memory_mb"], said_size),
        ("start to the first answer", empty["first_answer_ms"], said_time),
    ):
        plot.y += 24
        plot.picture.text(left, plot.y, heading, "dim", size=plot.layout.label + 0.5)
        for name, value in rows.items():
            plot.y += 26
            look = series_of(name)
            end = plot.picture.text(left, plot.y, say(value), look, size=plot.layout.label, bold=True)
            plot.picture.text(end + 8, plot.y, name, look, size=plot.layout.label)
            plot.y += 8
            plot.picture.box(left, plot.y, max(3, (right - left) * value / max(rows.values())), 8, look, corner=1.5)
            plot.y += 9
        plot.y += 8
