"""The data homes that are measured: made once, kept between runs."""

import hashlib
import json
import os
import shutil
import subprocess
import time

from results import progress

SEED = 1
CLIENT = "bench"
MAKERS = ("GeneratedHome.cpp", "GeneratedHome.h", "MakeHome.cpp", "Vocabulary.cpp", "Vocabulary.h")
RARELY = 10**9  # seconds between two refreshes: none while measuring
ALWAYS = -1


class Home:
    """A home of so many meetings. `planted` says what is in it."""

    def __init__(self, path, planted):
        self.path = path
        self.planted = planted
        self.meetings = planted["meetings"]
        self.lines = os.path.join(path, ".bench", "lines")

    def configure(self, refresh_seconds):
        """Writes the server's configuration: one source, no web, one agent that may read."""
        pattern = os.path.join(glob_escape(self.path), "recordings", "*", "notes.json")
        write_json(
            os.path.join(self.path, "mcp-config.json"),
            {
                "sources": [{"type": "recordings", "glob": pattern, "visibility": "private"}],
                "cloud": {"enabled": False, "refresh_seconds": refresh_seconds},
            },
        )
        write_json(
            os.path.join(self.path, "agents.json"),
            {"agents": {CLIENT: {"tools": {"read_transcripts": True}, "scope": "all"}}},
        )

    def environment(self):
        return environment(self.path)

    def forget_calls(self):
        """Removes the log of calls, which would grow from run to run."""
        path = os.path.join(self.path, "activity.jsonl")
        if os.path.exists(path):
            os.remove(path)

    def words(self, place="in_lines"):
        """(frequency, script, query, count) of every planted word in every script."""
        for word in self.planted[place]:
            count = word.get("lines", word.get("meetings"))
            for script in ("traditional", "simplified", "ascii"):
                if script in word:
                    yield word["frequency"], script, word[script], count

    def word(self, frequency, script, place="in_lines"):
        return next(q for f, s, q, _ in self.words(place) if (f, s) == (frequency, script))

    def apart(self, script):
        """The two words that never meet."""
        return [q for f, s, q, _ in self.words() if (f, s) == ("apart", script)]


def environment(home):
    return {"HOME": home, "MEETING_NOTES_HOME": home, "PATH": os.environ["PATH"], "TZ": "UTC"}


def glob_escape(text):
    return "".join("\\" + c if c in "[]*?\\" else c for c in text)


def write_json(path, value):
    with open(path, "w", encoding="utf-8") as file:
        json.dump(value, file, ensure_ascii=False, indent=2)


def stamp(bench):
    """Changes when the invented meetings may have changed."""
    digest = hashlib.sha256(str(SEED).encode())
    for name in MAKERS:
        with open(os.path.join(bench, name), "rb") as file:
            digest.update(file.read())
    return digest.hexdigest()


def read_text(path):
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except OSError:
        return None


def make_home(folder, meetings, make_home_program, bench):
    """The home of `meetings` meetings below `folder`, made when it is not there or outdated."""
    path = os.path.join(folder, str(meetings))
    stamp_file = os.path.join(path, ".bench", "stamp")
    wanted = stamp(bench)
    if read_text(stamp_file) != wanted:
        progress(f"making a home of {meetings:,} meetings")
        shutil.rmtree(path, ignore_errors=True)
        os.makedirs(folder, exist_ok=True)
        start = time.perf_counter()
        subprocess.run([make_home_program, path, str(meetings), str(SEED)], check=True)
        with open(stamp_file, "w", encoding="ascii") as file:
            file.write(wanted)
        progress(f"    in {time.perf_counter() - start:.1f} s")
    return Home(path, json.loads(read_text(os.path.join(path, ".bench", "planted.json"))))


def warm(home):
    """Reads every file once, so that what is measured comes from the system's cache."""
    for folder, _, names in os.walk(home.path):
        for name in names:
            if name.endswith((".json", ".txt")):
                with open(os.path.join(folder, name), "rb") as file:
                    while file.read(1 << 20):
                        pass
