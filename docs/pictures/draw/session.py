"""The picture of a session: what was asked, the line that was found, the decision that rests on it
and what was said around it. All of these are what the server answered; only the labels are ours."""

import json
from dataclasses import dataclass

from flow import AIR, lines_of
from svg import Picture, is_wide, width_of


class Unfit(Exception):
    """The session does not hold what the picture shows."""


@dataclass
class Layout:
    """The measures that differ between a page and a telephone."""

    width: int
    edge: int  # of the picture to what is in it
    query: int  # size of the question's characters
    said: int  # of the found line's
    usual: int  # of other sentences
    telephone: bool = False


WIDE = Layout(width=830, edge=32, query=30, said=19, usual=16)
NARROW = Layout(width=400, edge=18, query=27, said=18, usual=16, telephone=True)


# --- the session ----------------------------------------------------------------------------------


def calls_of(messages):
    """{tool: (arguments, answer)} of the messages that went to and fro, one a line."""
    asked, answered = {}, {}
    for line in filter(None, messages.split("\n")):
        message = json.loads(line)
        if message.get("method") == "tools/call":
            asked[message["id"]] = message["params"]
        elif "structuredContent" in message.get("result", {}):
            answered[message["id"]] = message["result"]["structuredContent"]
    return {call["name"]: (call["arguments"], answered[at]) for at, call in asked.items() if at in answered}


@dataclass
class Session:
    """What the picture shows of it. `hit`, `decision` and one of `said` are about the same line."""

    query: str
    hit: dict
    decision: dict
    said: list
    hits: list
    calls: dict  # the arguments by tool

    @property
    def meetings(self):
        return len({hit["meeting_id"] for hit in self.hits})


def session_of(messages):
    calls = calls_of(messages)
    try:
        asked, found = calls["search_transcripts"]
        _, notes = calls["get_meeting"]
        _, transcript = calls["get_transcript"]
    except KeyError as missing:
        raise Unfit(f"the session has no answer to {missing}") from None
    if notes["id"] != transcript["id"]:
        raise Unfit("the session reads the notes of one meeting and the lines of another")
    said = transcript["lines"]
    read = {line["line_id"] for line in said}
    hits = {hit["line_id"]: hit for hit in found["hits"] if hit["meeting_id"] == notes["id"]}
    for decision in notes["decisions"]:
        hit = hits.get(decision.get("line"))
        if hit and hit["line_id"] in read and hit["clock"] == decision["clock"]:
            arguments = {tool: asked for tool, (asked, _) in calls.items()}
            return Session(asked["query"], hit, decision, said, found["hits"], arguments)
    raise Unfit("no found line has a decision that rests on it")


# --- texts with marked words ----------------------------------------------------------------------


def marked(text, words, scripts):
    """`text` as [(piece, number of the word that it is, or None)]."""
    places = sorted((begin, end, n) for n, word in enumerate(words) for begin, end in scripts.places(word, text))
    pieces, at = [], 0
    for begin, end, n in places:
        if begin < at:
            continue
        pieces += [(text[at:begin], None), (text[begin:end], n)]
        at = end
    pieces.append((text[at:], None))
    return [(piece, n) for piece, n in pieces if piece]


# --- the picture ----------------------------------------------------------------------------------


def counted(number, noun):
    return f"{number} {noun}{'' if number == 1 else 's'}"


def both(texts):
    """What a list of scripts comes to, as words."""
    return "both scripts" if len(texts) == 2 else next(iter(texts), "")


class SessionPicture:
    """Draws from top to bottom; `y` is where the next thing begins."""

    def __init__(self, session, scripts, layout):
        self.session = session
        self.scripts = scripts
        self.layout = layout
        self.words = session.query.split()
        hit = session.hit
        self.picture = Picture(
            layout.width,
            f"{session.query}: {hit['meeting_title']}, {hit['line_id']}, {hit['clock']}",
            f"Asked for {session.query}, the search finds line {hit['line_id']} at {hit['clock']} of the meeting"
            f" {hit['meeting_title']}, where {hit['speaker']} says: {hit['text']} The decision of the notes, "
            f"{session.decision['text']}, names the same line, and the transcript shows it.",
        )
        self.left = layout.edge
        self.right = layout.width - layout.edge
        self.y = layout.edge

    def draw(self):
        self.question()
        self.found()
        self.decided()
        self.evidence()
        return self.picture.finish(self.y + self.layout.edge - 4)

    # A line of pieces, the marked ones on their colour.
    def pieces(self, x, baseline, line, size, *, bold=False, air=AIR):
        for at, (text, n) in enumerate(line):
            hans = self.scripts.name(text) == "Simplified"
            if n is None:
                narrow = at + 1 < len(line) and not all(map(is_wide, text))
                x = self.picture.text(x, baseline, text, size=size, bold=bold, hans=hans, exact=narrow)
                continue
            width = width_of(text, size) + 2 * air
            self.picture.box(x, baseline - size * 0.98, width, size * 1.26, f"mark{n % 2}", corner=size / 5)
            self.picture.text(x + air, baseline, text, f"word{n % 2}", size=size, bold=True, hans=hans)
            x += width
        return x

    def paragraph(self, x, text, size, width, *, gap, most=None, bold=False):
        """Draws `text` from the baseline `y` on; leaves `y` at the last baseline."""
        lines = lines_of(marked(text, self.words, self.scripts), size, width, most)
        for number, line in enumerate(lines):
            self.y += gap if number else 0
            self.pieces(x, self.y, line, size, bold=bold)

    def question(self):
        size, high = self.layout.query, self.layout.query * 2
        self.picture.box(self.left, self.y, self.right - self.left, high, "raised", corner=high / 2)
        middle = self.y + high / 2
        self.glass(self.left + high / 2, middle)
        x = self.left + high - 6
        for n, word in enumerate(self.words):
            x = self.pieces(x, middle + size * 0.37, [(word, n)], size, air=6) + size * 0.6
        script = self.scripts.name(self.session.query)
        if script:
            label = script if self.layout.telephone else f"asked in {script} characters"
            self.picture.text(self.right - high * 0.42, middle + 5, label, "dim", size=14, anchor="end")
        self.y += high + 22

    def glass(self, x, y):
        """A magnifying glass."""
        circle, handle = "M3.5 -2a7 7 0 1 1 -14 0a7 7 0 1 1 14 0Z", "M1.5 3l6.5 6.5"
        self.picture.path(circle + handle, "accentline", width=2.2, at=(x, y))

    def call(self, tool, *names):
        """The call of `tool`, with the arguments that tell something."""
        given = [(name, str(self.session.calls[tool][name])) for name in names]
        return " ".join([tool, *(f'{name}="{value}"' if " " in value else f"{name}={value}" for name, value in given)])

    def step(self, number, heading, call):
        """The heading of a step, with the call that it was."""
        self.y += 20
        self.picture.disc(self.left + 11, self.y - 5, 11, "bullet")
        self.picture.text(self.left + 11, self.y - 0.2, str(number), "number", size=13, bold=True, anchor="middle")
        self.picture.text(self.left + 32, self.y, heading, size=16, bold=True)
        if self.layout.telephone:
            self.y += 20
            self.picture.text(self.left + 32, self.y, call, "dim", size=11.7, mono=True)
        else:
            self.picture.text(self.right, self.y, call, "dim", size=13, mono=True, anchor="end")
        self.y += 14

    def place(self, x, item):
        """Line and clock of `item`; returns where they end."""
        for text in (item.get("line_id") or item["line"], item["clock"]):
            x = self.picture.text(x, self.y, text, "accent", size=15, bold=True, mono=True) + 14
        return x

    def card(self, top, bottom):
        self.picture.box(self.left, top, self.right - self.left, bottom - top, "raised", corner=10)

    def behind(self, draw):
        """Draws with `draw`, and below that a card around it."""
        elements, top = self.picture.elements, self.y
        self.picture.elements = []
        draw()
        above, self.picture.elements = self.picture.elements, elements
        self.card(top, self.y)
        self.picture.elements += above

    def found(self):
        hits = self.session.hits
        self.step(1, "The line that was found", self.call("search_transcripts", "query"))
        self.behind(self.hit)
        others = len(hits) - 1
        if others:
            scripts = both({self.scripts.name(self.found_words(hit)) for hit in hits} - {""})
            more, meetings = counted(others, "more line"), counted(self.session.meetings, "meeting")
            text = f"and {more} in {scripts}, {meetings} in all"
            self.y += 24
            self.picture.text(self.left + 22, self.y, text, "dim", size=13 if self.layout.telephone else 14)
        self.y += 20

    def found_words(self, hit):
        return "".join(text for text, n in marked(hit["text"], self.words, self.scripts) if n is not None)

    def hit(self):
        hit, x, end = self.session.hit, self.left + 22, self.right - 22
        self.y += 32
        self.picture.text(x, self.y, hit["meeting_title"], size=18, bold=True)
        self.picture.text(end, self.y, hit["date"], "dim", size=14, anchor="end")
        self.y += 27
        self.picture.text(self.place(x, hit), self.y, hit["speaker"], "dim", size=15)
        script = self.scripts.name(self.found_words(hit))
        if script:
            label = script if self.layout.telephone else f"found in {script} characters"
            self.picture.text(end, self.y, label, "dim", size=14, anchor="end")
        self.y += 34
        size = self.layout.said
        self.paragraph(x, hit["text"], size, end - x, gap=size * 1.65)
        self.y += 22

    def decided(self):
        self.step(2, "The decision in the notes", self.call("get_meeting", "id"))
        self.behind(self.decision)
        self.y += 20

    def decision(self):
        decision, x, end = self.session.decision, self.left + 22, self.right - 22
        self.y += 32
        self.picture.path("M0 0l5 5.5 9.5 -11", "goodline", width=2.6, at=(x, self.y - 6))
        self.paragraph(x + 26, decision["text"], self.layout.usual + 1, end - x - 26, gap=27, bold=True)
        self.y += 28
        self.picture.text(self.place(x + 26, decision), self.y, decision["owner"], "dim", size=15)
        self.y += 20

    def evidence(self):
        self.step(3, "What was really said", self.call("get_transcript", "from_sec", "to_sec"))
        self.behind(self.lines)

    def lines(self):
        size, x, end = self.layout.usual, self.left + 22, self.right - 22
        self.y += 4
        for line in self.session.said:
            self.y += 28
            after = self.place(x, line)
            self.picture.text(after, self.y, line["speaker"], "dim", size=15)
            if self.layout.telephone:
                self.y += 25
                self.paragraph(x, line["text"], size, end - x, gap=25, most=2)
                self.y += 6
            else:
                column = after + max(width_of(other["speaker"], 15) for other in self.session.said) + 18
                self.paragraph(column, line["text"], size, end - column, gap=26, most=1)
        self.y += 20 if not self.layout.telephone else 14


def draw(session, scripts, layout):
    return SessionPicture(session, scripts, layout).draw()
