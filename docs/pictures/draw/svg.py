"""A picture as SVG: text, boxes and lines on a card of its own, in light and in dark.

A host embeds it as an image, so it brings no font, no script and no link. Texts stay texts. Their
widths are estimated, Chinese characters at one em each; what would leave the picture is an error.
"""

import unicodedata
from xml.sax.saxutils import escape

# Widths of the widest usual sans serif font (DejaVu Sans) in thousandths of an em, rounded up. The
# others leave some of the room empty.
WIDTHS = {
    **dict.fromkeys(" !',.:;|ijlI", 330), **dict.fromkeys('()[]/"*-`rtf{}', 420),
    **dict.fromkeys("ABCDEFGHKNOPQRUVXYw&+<=>~", 790), **dict.fromkeys("MW%@m…—", 1000),
}  # fmt: skip
USUAL, BOLD, MONO = 625, 1.1, 602

MOST_BYTES = 30000

# What a class looks like: its properties in light and in dark. The same names everywhere.
COLOURS = {
    "page": ("fill:#fcfcfb;stroke:#d8dde3", "fill:#12161c;stroke:#2d343e"),
    "raised": ("fill:#f1f4f7", "fill:#1b222b"),
    "ink": ("fill:#1f2328", "fill:#e8edf2"),
    "dim": ("fill:#59626d", "fill:#9aa6b3"),
    "accent": ("fill:#0a5fc2", "fill:#74b0ff"),
    "goodline": ("stroke:#17734a", "stroke:#55c893"),
    "rule": ("stroke:#dde2e8", "stroke:#2d343e"),
    "axis": ("stroke:#8c96a2", "stroke:#697482"),
    "mark0": ("fill:#cfe3ff", "fill:#153f78"),
    "mark1": ("fill:#ffe0a6", "fill:#5e3f08"),
    "word0": ("fill:#0b3a75", "fill:#d6e8ff"),
    "word1": ("fill:#573700", "fill:#ffe6b8"),
    "bullet": ("fill:#0a5fc2", "fill:#74b0ff"),
    "number": ("fill:#ffffff", "fill:#12161c"),
    "accentline": ("stroke:#0a5fc2", "stroke:#74b0ff"),
    "ours": ("fill:#0a5fc2", "fill:#74b0ff"),
    "first": ("fill:#b34700", "fill:#ff9f5c"),
    "second": ("fill:#626b76", "fill:#a7b1bd"),
    "third": ("fill:#1f2328", "fill:#e8edf2"),
    "oursline": ("stroke:#0a5fc2", "stroke:#74b0ff"),
    "firstline": ("stroke:#b34700", "stroke:#ff9f5c"),
    "secondline": ("stroke:#626b76", "stroke:#a7b1bd"),
    "thirdline": ("stroke:#1f2328", "stroke:#e8edf2"),
}
FONTS = {
    "": (
        "system-ui,-apple-system,'Segoe UI','Helvetica Neue',Arial,'PingFang TC','PingFang SC',"
        "'Noto Sans CJK TC','Noto Sans CJK SC','Microsoft JhengHei','Microsoft YaHei',sans-serif"
    ),
    "hans": (
        "system-ui,-apple-system,'Segoe UI','Helvetica Neue',Arial,'PingFang SC','Noto Sans CJK SC',"
        "'Microsoft YaHei',sans-serif"
    ),
    "mono": (
        "ui-monospace,SFMono-Regular,Menlo,Consolas,'Liberation Mono','PingFang SC','Noto Sans CJK SC',"
        "'Microsoft YaHei',monospace"
    ),
}


class DoesNotFit(Exception):
    """A text would leave the picture, or the picture is too large."""


def is_wide(character):
    """Whether it is as wide as high, as Chinese characters and their punctuation are."""
    return unicodedata.east_asian_width(character) in "WF"


def width_of(text, size, *, bold=False, mono=False):
    """Estimated pixels of `text`, rather too many than too few."""
    em = 0
    for character in text:
        if is_wide(character):
            em += 1000
        elif mono:
            em += MONO
        else:
            em += WIDTHS.get(character, USUAL) * (BOLD if bold else 1)
    return em * size / 1000


def shown(value):
    """A coordinate with at most one decimal."""
    return f"{value:.1f}".removesuffix(".0")


class Picture:
    """Elements from top to bottom; `finish` closes it at a height."""

    def __init__(self, width, title, description):
        self.width = width
        self.title = title
        self.description = description
        self.elements = []
        self.used = {"page"}

    def add(self, element, *classes):
        self.used.update(name for name in classes if name)
        self.elements.append(element)

    def text(self, x, y, text, look="ink", *, size=14, bold=False, mono=False, hans=False, anchor="start", exact=False):
        """`text` with its baseline at `y`; returns where it ends. With `exact` it ends there in every
        font, for what follows on the same line; the width is then one between those of the fonts."""
        width = width_of(text, size, bold=bold and not exact, mono=mono)
        begin = x - {"start": 0, "middle": width / 2, "end": width}[anchor]
        if begin < 0 or begin + width > self.width:
            raise DoesNotFit(f"{text!r} from {begin:.0f} to {begin + width:.0f} of {self.width}")
        classes = [look, *(name for name, on in (("b", bold), ("mono", mono), ("hans", hans)) if on)]
        moved = "" if anchor == "start" else f' text-anchor="{anchor}"'
        if exact:
            moved += f' textLength="{shown(width)}"'
        self.add(
            f'<text x="{shown(x)}" y="{shown(y)}" font-size="{shown(size)}" class="{" ".join(classes)}"{moved}>'
            f"{escape(text)}</text>",
            *classes,
        )
        return begin + width

    def box(self, x, y, width, height, look, *, corner=0):
        rounded = f' rx="{shown(corner)}"' if corner else ""
        self.add(
            f'<rect x="{shown(x)}" y="{shown(y)}" width="{shown(width)}" height="{shown(height)}"{rounded}'
            f' class="{look}"/>',
            look,
        )

    def disc(self, x, y, radius, look):
        self.add(f'<circle cx="{shown(x)}" cy="{shown(y)}" r="{shown(radius)}" class="{look}"/>', look)

    def shape(self, corners, look):
        points = " ".join(f"{shown(x)},{shown(y)}" for x, y in corners)
        self.add(f'<polygon points="{points}" class="{look}"/>', look)

    def path(self, commands, look, *, width, at=None):
        """A line in a stroke's colour, moved to `at`."""
        moved = f' transform="translate({shown(at[0])} {shown(at[1])})"' if at else ""
        self.add(
            f'<path d="{commands}"{moved} fill="none" stroke-width="{shown(width)}" stroke-linejoin="round"'
            f' stroke-linecap="round" class="{look}"/>',
            look,
        )

    def line(self, points, look, *, width=1.0):
        moves = " ".join(f"{'L' if i else 'M'}{shown(x)} {shown(y)}" for i, (x, y) in enumerate(points))
        self.path(moves, look, width=width)

    def style(self):
        rules = [f"text{{font-family:{FONTS['']}}}"]
        rules += [f".{name}{{font-family:{FONTS[name]}}}" for name in ("hans", "mono") if name in self.used]
        if "b" in self.used:
            rules.append(".b{font-weight:600}")
        names = [name for name in COLOURS if name in self.used]
        rules += [f".{name}{{{COLOURS[name][0]}}}" for name in names]
        dark = "".join(f".{name}{{{COLOURS[name][1]}}}" for name in names)
        return "\n".join([*rules, f"@media (prefers-color-scheme:dark){{{dark}}}"])

    def finish(self, height):
        """The file."""
        head = (
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.width}" height="{shown(height)}"'
            f' viewBox="0 0 {self.width} {shown(height)}" role="img" aria-labelledby="title description">\n'
            f'<title id="title">{escape(self.title)}</title>\n'
            f'<desc id="description">{escape(self.description)}</desc>\n'
            f"<style>\n{self.style()}\n</style>\n"
            f'<rect x="0.5" y="0.5" width="{shown(self.width - 1)}" height="{shown(height - 1)}" rx="12"'
            ' class="page"/>\n'
        )
        text = head + "\n".join(self.elements) + "\n</svg>\n"
        if len(text.encode()) > MOST_BYTES:
            raise DoesNotFit(f"{len(text.encode())} bytes")
        return text
