"""Breaking texts into lines, Chinese ones and others, with marked words that stay whole.

A text is a list of pieces: (text, number of the marked word that it is, or None).
"""

from svg import is_wide, width_of

CLOSING = set(",.;:?!)，。；：？！、）」』…")  # must not begin a line
AIR = 2  # on both sides of the colour behind a word


def unbreakable(pieces):
    """Each marked word whole, each run of narrow characters whole, else character by character."""
    for piece, n in pieces:
        if n is not None:
            yield piece, n
            continue
        run = ""
        for character in piece:
            if is_wide(character) or character == " ":
                if run:
                    yield run, None
                yield character, None
                run = ""
            else:
                run += character
        if run:
            yield run, None


def room_for(token, n, size, bold=False):
    return width_of(token, size, bold=bold) if n is None else width_of(token, size) + 2 * AIR


def lines_of(pieces, size, width, most=None, *, bold=False):
    """The pieces on lines of `width`; with `most` no more of them, and an ellipsis where it ends."""
    lines, used = [[]], 0
    for token, n in unbreakable(pieces):
        needed = room_for(token, n, size, bold)
        if used and used + needed > width and token not in CLOSING:
            if len(lines) == most:
                return lines[:-1] + [shortened(lines[-1], size, width)]
            lines, used = [*lines, []], 0
        if lines[-1] or token != " ":
            lines[-1].append((token, n))
            used += needed
    return [joined(line) for line in lines]


def shortened(line, size, width):
    """`line` with an ellipsis, without what then finds no room."""
    kept = list(line)
    while kept and (kept[-1][0] in CLOSING or sum(room_for(*one, size) for one in kept) + size > width):
        kept.pop()
    return joined([*kept, ("…", None)])


def joined(line):
    """Neighbours without a mark as one piece; without blanks at the end."""
    line, out = list(line), []
    while line and line[-1] == (" ", None):
        line.pop()
    for token, n in line:
        if out and n is None and out[-1][1] is None:
            out[-1] = (out[-1][0] + token, None)
        else:
            out.append((token, n))
    return out
