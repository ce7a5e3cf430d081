"""The committed pictures follow from the demo's session and from the committed figures, stand where
they are shown, and hold in a page. scripts/pictures --check runs this."""

import copy
import json
import os
import re
import unittest
import xml.etree.ElementTree as xml

import __main__ as program
import figures
import plots
import session
from flow import lines_of
from scripts import Scripts
from svg import MOST_BYTES, DoesNotFit, Picture, width_of

MESSAGES = ""  # of the session; set before the tests run
SVG = "{http://www.w3.org/2000/svg}"

NAMES = [f"{name}{suffix}.svg" for name in ("session", "latency", "memory") for suffix in ("", "-narrow")]
SHOWN_IN = {"session": "README.md", "latency": "docs/performance.md", "memory": "docs/performance.md"}


def committed(name):
    return program.text_of(os.path.join(program.FOLDER, name))


def committed_figures():
    return json.loads(committed("figures.json"))


def texts_of(picture):
    return [element.text for element in xml.fromstring(picture).iter(f"{SVG}text")]


class Committed(unittest.TestCase):
    maxDiff = 2000

    def test_they_are_what_the_session_and_the_figures_make(self):
        files = program.drawn(MESSAGES, committed_figures())
        self.assertEqual(sorted(files), sorted(NAMES))
        for name, text in files.items():
            with self.subTest(name):
                self.assertEqual(committed(name), text, f"{name} is out of date. Next step: run scripts/pictures")

    def test_the_figures_are_written_as_the_program_writes_them(self):
        self.assertEqual(committed("figures.json"), figures.written(committed_figures()))

    def test_they_are_well_formed_and_need_nothing_from_outside(self):
        plain = {"svg", "title", "desc", "style", "rect", "text", "circle", "path", "polygon"}
        for name in NAMES:
            with self.subTest(name):
                text = committed(name)
                tags = {element.tag.removeprefix(SVG) for element in xml.fromstring(text).iter()}
                self.assertLessEqual(tags, plain)
                self.assertNotRegex(text, r"url\(|@import|@font-face|href|<!|<\?")
                self.assertLessEqual(len(text.encode()), MOST_BYTES)

    def test_every_class_has_a_colour_in_light_and_in_dark(self):
        for name in NAMES:
            root = xml.fromstring(committed(name))
            light, dark = root.find(f"{SVG}style").text.split("@media")
            for element in root.iter():
                for look in element.get("class", "").split():
                    if look not in ("b", "mono", "hans"):
                        self.assertRegex(light, rf"\.{look}{{", name)
                        self.assertRegex(dark, rf"\.{look}{{", name)

    def test_each_is_shown_with_words_for_those_who_do_not_see_it(self):
        for name, document in SHOWN_IN.items():
            text = program.text_of(os.path.join(program.ROOT, document))
            folder = os.path.relpath("docs/pictures", os.path.dirname(document) or ".")
            shown = re.search(
                rf'<source media="\(max-width: \d+px\)" srcset="{folder}/{name}-narrow\.svg">\s*'
                rf'<img src="{folder}/{name}\.svg" alt="([^"]+)"',
                text,
            )
            self.assertIsNotNone(shown, f"{document} does not show {name}")
            self.assertGreater(len(shown.group(1)), 60)

    def test_the_words_for_the_session_are_those_of_the_session(self):
        told = session.session_of(MESSAGES)
        words = re.search(r'alt="([^"]+)"', program.text_of(os.path.join(program.ROOT, "README.md"))).group(1)
        hit = told.hit
        for said in (told.query, hit["meeting_title"], hit["line_id"], hit["clock"], hit["speaker"]):
            self.assertIn(said, words)


class Session(unittest.TestCase):
    def setUp(self):
        self.session, self.scripts = session.session_of(MESSAGES), Scripts(program.ROOT)

    def test_a_simplified_question_finds_a_traditional_line(self):
        self.assertEqual(self.scripts.name(self.session.query), "Simplified")
        self.assertEqual(self.scripts.name(self.session.hit["text"]), "Traditional")

    def test_the_found_line_is_shown_whole_with_its_meeting_line_and_clock(self):
        hit = self.session.hit
        for name in ("session.svg", "session-narrow.svg"):
            texts = texts_of(committed(name))
            self.assertIn(hit["text"].replace(" ", ""), "".join(texts).replace(" ", ""))
            for said in ("meeting_title", "line_id", "clock", "speaker", "date"):
                self.assertIn(hit[said], texts)

    def test_every_chinese_text_is_the_servers(self):
        said = "".join(json.dumps(json.loads(line), ensure_ascii=False) for line in filter(None, MESSAGES.split("\n")))
        for name in ("session.svg", "session-narrow.svg"):
            for text in texts_of(committed(name)):
                for chinese in re.findall(r"[\u3000-\u9fff\uff00-\uffef]+", text):
                    self.assertIn(chinese, said)

    def test_a_word_that_was_said_otherwise_changes_the_picture(self):
        changed = copy.deepcopy(self.session)
        changed.hit["clock"] = "1:13:16"
        before, after = (session.draw(one, self.scripts, session.WIDE) for one in (self.session, changed))
        self.assertNotEqual(before, after)

    def test_without_an_answer_there_is_no_picture(self):
        kept = [line for line in MESSAGES.split("\n") if '"hits":' not in line]
        with self.assertRaises(session.Unfit):
            session.session_of("\n".join(kept))

    def test_marked_words_stay_whole_on_narrow_lines(self):
        pieces = session.marked("甲乙丙電輔車丁", ["电辅车"], self.scripts)
        lines = lines_of(pieces, 10, 40)
        self.assertEqual(lines, [[("甲乙丙", None)], [("電輔車", 0)], [("丁", None)]])

    def test_what_is_left_out_is_three_dots_that_fit(self):
        (line,) = lines_of([("一二三四五六七八", None)], 10, 55, most=1)
        self.assertEqual(line, [("一二三四…", None)])


class Plots(unittest.TestCase):
    def setUp(self):
        self.figures = committed_figures()

    def test_every_last_figure_is_said(self):
        for name in ("latency.svg", "latency-narrow.svg"):
            texts = texts_of(committed(name))
            for by_rarity in self.figures["search_ms"].values():
                for rows in by_rarity.values():
                    for times in rows.values():
                        self.assertIn(plots.said_time(times[-1]), texts)
        for name in ("memory.svg", "memory-narrow.svg"):
            for sizes in self.figures["memory_mb"].values():
                self.assertIn(plots.said_size(sizes[-1]), texts_of(committed(name)))

    def test_the_run_is_said(self):
        for name in ("latency.svg", "memory-narrow.svg"):
            texts = " ".join(texts_of(committed(name)))
            for key in ("date", "commit", "command"):
                self.assertIn(self.figures["run"][key], texts)

    def test_the_words_for_the_latency_are_true(self):
        faster = set()
        for language, by_rarity in self.figures["search_ms"].items():
            for rarity, rows in by_rarity.items():
                ours = rows[figures.OURS]
                for own, ripgrep in zip(ours, rows[figures.RIPGREP]):
                    self.assertLess(own * 10, ripgrep, "far below ripgrep")
                faster |= {(language, rarity, name) for name, times in rows.items() if times[-1] < ours[-1]}
        self.assertEqual(faster, {("English", "in no line", "SQLite FTS5")})

    def test_the_words_for_the_memory_are_true(self):
        rows = self.figures["memory_mb"]
        self.assertTrue(0.4 < rows[figures.OURS][-1] / rows[figures.JSON_FILES][-1] < 0.6, "about half of the JSON")
        self.assertLess(rows[figures.OURS][-1] * 2, rows["SQLite FTS5"][-1], "less than half of SQLite's table")

    def test_any_changed_figure_changes_a_plot(self):
        before = self.plots(self.figures)
        for change in self.every_change():
            self.assertNotEqual(before, self.plots(change))

    def plots(self, told):
        return plots.latency(told, plots.WIDE), plots.memory(told, plots.WIDE)

    def every_change(self):
        """The figures, each time with another number half as large again."""
        def walk(value, at):
            if isinstance(value, (int, float)):
                yield at
            for key in value if isinstance(value, dict) else range(len(value)) if isinstance(value, list) else ():
                yield from walk(value[key], [*at, key])

        measured = {key: value for key, value in self.figures.items() if key != "run"}
        for *way, last in walk(measured, []):
            changed = copy.deepcopy(self.figures)
            inner = changed
            for key in way:
                inner = inner[key]
            inner[last] = int(inner[last] * 1.5) if isinstance(inner[last], int) else inner[last] * 1.5
            yield changed

    def test_ten_times_as_much_is_as_far_everywhere_on_a_logarithmic_scale(self):
        scale = plots.Scale(0.01, 100, 200, 0, log=True)
        self.assertEqual([round(scale(value), 6) for value in (0.01, 0.1, 1, 10, 100)], [200, 150, 100, 50, 0])

    def test_names_at_the_ends_of_lines_keep_their_distance(self):
        places = plots.spread([10, 12, 13, 90], 20, 0, 100)
        self.assertTrue(all(below - above >= 19.9 for above, below in zip(places, places[1:])), places)
        self.assertGreaterEqual(places[0], 0)

    def test_figures_are_said_with_two_digits(self):
        said = {0.0266: "0.027 ms", 0.0741: "0.074 ms", 0.07: "0.070 ms", 1.168: "1.2 ms", 0.996: "1.0 ms",
                88.3: "88 ms", 9.96: "10 ms", 124.2: "124 ms", 999.6: "1.0 s", 5380: "5.4 s"}  # fmt: skip
        self.assertEqual({ms: plots.said_time(ms) for ms in said}, said)


class Fitting(unittest.TestCase):
    def test_a_text_beyond_the_edge_is_an_error(self):
        with self.assertRaises(DoesNotFit):
            Picture(100, "", "").text(60, 20, "一二三四", size=14)

    def test_chinese_characters_are_as_wide_as_high(self):
        self.assertEqual(width_of("一，「", 16), 48)

    def test_a_run_without_the_figures_is_refused(self):
        with self.assertRaises(figures.Lacking):
            figures.extract({"wrong": [], "rows": [], "date": "", "command": [], "machine": {}})
