"""Draws the pictures of the README and of docs/performance.md. scripts/pictures runs this.

python3 docs/pictures/draw MESSAGES [--bench FILE | --check]

MESSAGES holds the messages of a session of the demo, one a line. With --bench the figures are taken
anew from what scripts/bench wrote, else they are the committed ones.
"""

import argparse
import json
import os
import sys
import unittest

import figures
import plots
import session
from scripts import Scripts
from svg import DoesNotFit

FOLDER = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ROOT = os.path.dirname(os.path.dirname(FOLDER))
FIGURES = os.path.join(FOLDER, "figures.json")


def text_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def write(path, text):
    with open(path, "w", encoding="utf-8", newline="\n") as file:
        file.write(text)
    print(f"{os.path.relpath(path)}: {len(text.encode()):,} bytes")


def drawn(messages, told):
    """{file name: text} of all pictures; the ones for telephones are called so."""
    shown, scripts = session.session_of(messages), Scripts(ROOT)
    files = {}
    for name, page, telephone in (
        ("session", session.WIDE, session.NARROW),
        ("latency", plots.WIDE, plots.NARROW),
        ("memory", plots.WIDE, plots.NARROW),
    ):
        for suffix, layout in (("", page), ("-narrow", telephone)):
            if name == "session":
                text = session.draw(shown, scripts, layout)
            else:
                text = getattr(plots, name)(told, layout)
            files[f"{name}{suffix}.svg"] = text
    return files


def check(messages):
    """Runs the tests and says how many there were; the status of the process."""
    import test_pictures

    test_pictures.MESSAGES = messages
    tests = unittest.defaultTestLoader.loadTestsFromModule(test_pictures)
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(tests)
    # A test of several files may fail for each; it counts once.
    broken = len({getattr(test, "test_case", test).id() for test, _ in result.failures + result.errors})
    print(f"{result.testsRun - broken - len(result.skipped)} passed, {broken} failed, {len(result.skipped)} skipped")
    return 0 if result.wasSuccessful() and result.testsRun else 1


def main():
    parser = argparse.ArgumentParser(prog="scripts/pictures", description="Draws the pictures.")
    parser.add_argument("messages")
    parser.add_argument("--bench", metavar="FILE")
    parser.add_argument("--check", action="store_true")
    given = parser.parse_args()
    messages = text_of(given.messages)
    if given.check:
        return check(messages)
    if given.bench:
        told = figures.extract(json.loads(text_of(given.bench)))
    else:
        told = json.loads(text_of(FIGURES))
    files = drawn(messages, told)
    write(FIGURES, figures.written(told))
    for name, text in files.items():
        write(os.path.join(FOLDER, name), text)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (OSError, ValueError, figures.Lacking, session.Unfit, DoesNotFit) as reason:
        sys.exit(f"pictures: {reason}")
