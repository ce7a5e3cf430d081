"""The measurements, one function a section. Each adds rows to the results."""

import json
import os
import shutil
import subprocess
import time

import others
from homes import ALWAYS, CLIENT, RARELY, environment
from pipes import (
    INITIALIZE,
    Child,
    bare_request,
    median,
    quantile,
    request,
    time_calls,
    tool_call,
)
from results import at_least, at_most, progress, shown_size, shown_time

MS = 1e6
CALLS = 200
WARM_UP = 5
STARTS = 40
BUILDS = 5
ROUNDS = 5  # of measurements that take turns
NOISE = 1.03  # two measurements of the same may differ by so much
LARGEST = 10000  # meetings; what the goals for searching and memory are about
BUILT = 1000  # meetings; what the goals for building and refreshing are about


class Bench:
    """What all sections share."""

    def __init__(self, root, server, results):
        self.root = root
        self.server = server
        self.results = results
        self.programs = os.path.join(root, "build", "bench", "bench")
        self.scratch = os.path.join(root, "build", "bench-homes", "scratch")
        self.write_speeds = {}  # bytes a second of another library, by form, once that was measured

    def program(self, name):
        return os.path.join(self.programs, name)

    def command(self, *arguments):
        return [self.server, "--client", CLIENT, *arguments]

    def bare(self):
        return Child([self.program("bare-process")])

    def new_scratch(self):
        shutil.rmtree(self.scratch, ignore_errors=True)
        os.makedirs(self.scratch)
        return self.scratch


# --- the program itself ---------------------------------------------------------------------------


def size(bench):
    folder = bench.new_scratch()
    stripped = os.path.join(folder, "stripped")
    shutil.copy(bench.server, stripped)
    subprocess.run(["strip", stripped], check=True)
    goal = at_most(1.5e6, "< 1.5 MB")
    whole = os.path.getsize(bench.server)
    bench.results.add(
        "size", "stripped binary", os.path.getsize(stripped), "bytes", goal=goal, note=f"{shown_size(whole)} unstripped"
    )


def start(bench):
    """From the start of the process to its first answer, without reading any meeting."""
    one_byte = bare_request(INITIALIZE, 500)
    bare, _ = others.start_to_answer([bench.program("bare-process")], None, one_byte, STARTS)
    base = quantile(bare, 50)
    bench.results.add("start", "bare process", base, "ns", p99=quantile(bare, 99))
    goal = at_most(base + 3 * MS, "<= bare process + 3 ms")

    kept = bench.new_scratch()
    command = bench.command("--no-reindex")
    first = []
    for number in range(STARTS):
        home = os.path.join(kept, f"empty-{number}")
        os.makedirs(home)
        spent, _ = others.start_to_initialized(command, environment(home), 1)
        first += spent
    bench.results.add(
        "start", "first start in an empty folder", quantile(first, 50), "ns", goal=goal, p99=quantile(first, 99),
        note="writes mcp-config.json",
    )
    home = os.path.join(kept, "empty-0")
    spent, memory = others.start_to_initialized(command, environment(home), STARTS)
    bench.results.add(
        "start", "later start, no meetings", quantile(spent, 50), "ns", goal=goal, p99=quantile(spent, 99),
        note=f"{(quantile(spent, 50) - base) / MS:+.2f} ms to bare" + resident(memory), memory=memory,
    )


def resident(memory):
    return f"; {shown_size(memory['VmRSS'])} resident" if memory else ""


def node(bench):
    found, reason = others.node_server(bench.root, bench.new_scratch())
    if not found:
        bench.results.skip("node server", reason)
        return
    command, env = found
    spent, memory = others.start_to_initialized(command, env, 10)
    bench.results.add(
        "node", "start to first answer of server-memory", quantile(spent, 50), "ns", note="a general server in Node"
    )
    if memory:
        bench.results.add("node", "memory of server-memory", memory["VmRSS"], "bytes")


# --- the inner loops ------------------------------------------------------------------------------

# (figure, ours, theirs, how many times as fast at least)
COMPARED = (
    ("parse to values", "JSON/parse/values", "RapidJSON/parse/values", 1),
    ("parse to values, compact text", "JSON/parse/values of compact text", "RapidJSON/parse/values of compact text", 1),
    ("write compact", "JSON/write/compact", "RapidJSON/write/compact", 1.5),
    ("write indented", "JSON/write/indented", "RapidJSON/write/indented", 1.5),
)


def json_library(bench, home):
    """Our JSON beside the others', on the notes files of a home."""
    times, speeds = others.google_benchmark(
        bench.program("velta-bench"), home, "^(JSON|RapidJSON|simdjson|nlohmann)/", repetitions=7, interleaved=True
    )
    for name in sorted(speeds):
        if not name.startswith("JSON/"):
            bench.results.add("json", name, speeds[name], "B/s")
    bench.write_speeds = {
        form: speeds[f"RapidJSON/write/{form}"] for form in ("compact", "indented") if f"RapidJSON/write/{form}" in speeds
    }
    for library in ("RapidJSON", "simdjson", "nlohmann"):
        if not any(name.startswith(library + "/") for name in speeds):
            bench.results.skip(library, "not installed when velta-bench was built")
    bench.results.add("json", "parse/events", speeds["JSON/parse/events"], "B/s")
    for name, ours, theirs, limit in COMPARED:
        bench.results.add("json", name, speeds[ours], "B/s")
        compare_times(bench, "json", f"{name}: speed against RapidJSON", times.get(theirs), times[ours], limit)


def reader(bench, home):
    """A meeting read, beside reading and parsing its files."""
    program = bench.program("velta-bench")
    pattern = "^(Files/read|Reader/meetings)"
    times, speeds = others.google_benchmark(program, home, pattern, repetitions=7, seconds=0.01, interleaved=True)
    for name in sorted(speeds):
        bench.results.add("reader", name, speeds[name], "B/s", home.meetings, note=shown_time(times[name]))
    compare_times(
        bench, "reader", "meetings: speed against read + RapidJSON", times.get(RAPID_READ), times["Reader/meetings"],
        0.9, home.meetings,
    )


RAPID_READ = "Files/read and parse with RapidJSON"


def compare_times(bench, section, name, theirs, ours, limit, meetings=None):
    if theirs is None:
        bench.results.skip(name, "RapidJSON is not installed")
        return
    bench.results.add(section, name, theirs / ours, "x", meetings, at_least(limit, f">= {limit} x"))


# --- the index ------------------------------------------------------------------------------------


def build_once(bench, home, cores=None):
    """Nanoseconds from the start of the server to the index, and its memory then."""
    with Child(bench.command(), home.environment(), pipe_errors=True, cores=cores) as child:
        spent, said = child.wait_for_error_line(b"index refreshed")
        if f"meetings={home.meetings} " not in said:
            bench.results.fault(f"the index of {home.path} is not whole: {said}")
        return spent, child.memory()


def index(bench, home):
    """The building of the index, with all cores, with one, and beside read + parse, in turns."""
    home.configure(RARELY)
    home.forget_calls()
    times = BUILDS if home.meetings <= 1000 else 3
    many, one, rapid, memory = [], [], [], None
    can_pin = hasattr(os, "sched_setaffinity")
    for _ in range(times):
        spent, memory = build_once(bench, home)
        many.append(spent)
        if can_pin:
            one.append(build_once(bench, home, cores={min(os.sched_getaffinity(0))})[0])
        told, _ = others.google_benchmark(bench.program("velta-bench"), home, f"^{RAPID_READ}", seconds=0.01)
        rapid += told.values()
    built = median(many)
    bench.results.add("index", "start to index refreshed", built, "ns", home.meetings, runs=many)
    if rapid:
        add_build_ratio(bench, home, built, median(rapid), median(one) if one else None)
    else:
        bench.results.skip("index against read + RapidJSON", "RapidJSON is not installed")
    if one:
        bench.results.add(
            "index", "the same on one core", median(one), "ns", home.meetings,
            at_least(built / NOISE, "not faster than with all"), runs=one,
        )
    add_memory(bench, home, memory)


def add_build_ratio(bench, home, built, rapid, one):
    bench.results.add("index", "read + RapidJSON, one thread", rapid, "ns", home.meetings)
    goal = at_most(1.6, "<= 1.6 x") if home.meetings == BUILT else None
    bench.results.add("index", "build against read + RapidJSON", built / rapid, "x", home.meetings, goal)
    if one:
        # The other has one thread, so this is what compares the work.
        bench.results.add("index", "build on one core against it", one / rapid, "x", home.meetings, goal)


def add_memory(bench, home, memory):
    if memory is None:
        bench.results.skip("memory", "no /proc/PID/status")
        return
    json_bytes = home.planted["json_bytes"]
    bench.results.add(
        "memory", "resident after the build", memory["VmRSS"], "bytes", home.meetings,
        note=f"at most {shown_size(memory['VmHWM'])}; the JSON has {shown_size(json_bytes)}", peak=memory["VmHWM"],
    )
    bench.results.add(
        "memory", "resident against the JSON", memory["VmRSS"] / json_bytes, "x", home.meetings,
        at_most(0.55, "<= 0.55 x at 10,000", LARGEST), f"at most {memory['VmHWM'] / json_bytes:.2f} x",
    )


# --- calls ----------------------------------------------------------------------------------------


class Calls:
    """A server with its index built, and a bare process beside it."""

    def __init__(self, bench, home):
        self.bench = bench
        self.home = home
        home.configure(RARELY)
        home.forget_calls()
        self.server = Child(bench.command(), home.environment(), pipe_errors=True)
        self.server.wait_for_error_line(b"index refreshed")
        self.bare = bench.bare()
        self.server.answer(INITIALIZE)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.close()
        self.bare.close()

    def content(self, line):
        """The structured content of an answer."""
        message = json.loads(self.server.answer(line))
        if message["result"].get("isError"):
            self.bench.results.fault(message["result"]["content"][0]["text"])
        return message["result"].get("structuredContent", {})

    def measure(self, line, times=CALLS, before=None):
        """What a call takes: whole, and less what the bare process takes for as many bytes."""
        size = len(self.server.answer(line))
        bare_line = bare_request(line, size)
        for _ in range(WARM_UP):
            self.server.call(line)
            self.bare.call(bare_line)
        spent, bare = time_calls(self.server, line, self.bare, bare_line, times, before)
        figures = {"call_p50": quantile(spent, 50), "call_p99": quantile(spent, 99)}
        figures.update(bare_p50=quantile(bare, 50), bare_p99=quantile(bare, 99), bytes=size, calls=times)
        figures["server_p50"] = max(0, figures["call_p50"] - figures["bare_p50"])
        return figures


def told(figures):
    return (
        f"call {shown_time(figures['call_p50'])}, p99 {shown_time(figures['call_p99'])}, "
        f"bare {shown_time(figures['bare_p50'])}, {shown_size(figures['bytes'])}"
    )


SEARCH_GOALS = {"5 %": 0.1, "0.01 %": 0.5, "3 lines": 2, "absent": 8, "apart": 80}  # ms


def search_goal(frequency):
    limit = SEARCH_GOALS.get(frequency)
    return at_most(limit * MS, f"<= {limit} ms at 10,000", LARGEST) if limit else None


def search_case(calls, name, goal, hits, references=None, **arguments):
    """One search. `hits`: how many there are to be, when that is known. `references`: what the
    same took elsewhere, by the name of the program."""
    line = tool_call("search_transcripts", arguments)
    count = calls.content(line).get("count")
    if hits is not None and count != hits:
        calls.bench.results.fault(f"search {name}: {count} hits instead of {hits}")
    figures = calls.measure(line)
    elsewhere = "".join(f", {other} {shown_time(spent)}" for other, spent in (references or {}).items())
    return calls.bench.results.add(
        "search", name, figures["server_p50"], "ns", calls.home.meetings, goal,
        f"{told(figures)}, {count} hits{elsewhere}", arguments=arguments, hits=count, elsewhere=references, **figures,
    )


def search(bench, home, calls, references):
    """Every planted frequency in every script, then more words and filters."""
    for frequency, script, word, lines in home.words():
        if frequency == "apart":
            continue
        known = {other: times[word] for other, times in references.items() if word in times}
        name = f"{frequency}, {script}"
        row = search_case(calls, name, search_goal(frequency), min(others.HITS, lines), known, query=word)
        if frequency in ("3 lines", "absent") and "ripgrep" in known:
            goal = at_least(30, ">= 30 x at 10,000", LARGEST)
            ahead = known["ripgrep"] / row["call_p50"]
            bench.results.add("search", f"{name}: ahead of ripgrep", ahead, "x", home.meetings, goal)
    search_combinations(home, calls)


def search_combinations(home, calls):
    speaker = home.planted["people"]["frequent"]["traditional"]
    half = {"date_from": "2023-01-01", "date_to": "2024-12-31"}

    def both(frequency):
        return home.word(frequency, "traditional") + " " + home.word(frequency, "ascii")

    five, none = home.word("5 %", "traditional"), home.word("absent", "traditional")
    three = home.word("3 lines", "traditional")
    search_case(calls, "two words, 50 % each", None, None, query=both("50 %"))
    search_case(calls, "two words, 5 % each", None, None, query=both("5 %"))
    search_case(calls, "two words, 0.5 % each", None, None, query=both("0.5 %"))
    search_case(calls, "two words, 5 % and absent", None, 0, query=f"{five} {none}")
    for script in ("traditional", "simplified", "ascii"):
        query = " ".join(home.apart(script))
        search_case(calls, f"two words of 5 % that never meet, {script}", search_goal("apart"), 0, query=query)
    search_case(calls, "5 % of one speaker", None, None, query=five, speaker=speaker)
    search_case(calls, "5 % in two of the years", None, None, query=five, **half)
    search_case(calls, "5 % of one speaker in two years", None, None, query=five, speaker=speaker, **half)
    search_case(calls, "3 lines, of one speaker", None, None, query=three, speaker=speaker)
    search_case(calls, "3 lines, in two of the years", None, None, query=three, **half)
    search_case(calls, "absent, in two of the years", None, 0, query=none, **half)
    search_case(calls, "5 %, 200 hits", None, None, query=five, limit=200)


def list_case(calls, name, goal, hits, **arguments):
    line = tool_call("list_meetings", arguments)
    count = calls.content(line).get("count")
    if hits is not None and count != hits:
        calls.bench.results.fault(f"list {name}: {count} meetings instead of {hits}")
    figures = calls.measure(line)
    calls.bench.results.add(
        "list", name, figures["server_p50"], "ns", calls.home.meetings, goal, f"{told(figures)}, {count} meetings",
        arguments=arguments, hits=count, **figures,
    )


def list_meetings(_bench, home, calls):
    goal = at_most(5 * MS, "<= 5 ms at 10,000", LARGEST)
    people = home.planted["people"]
    list_case(calls, "nothing asked", None, min(20, home.meetings))
    list_case(calls, "200 meetings", None, min(200, home.meetings), limit=200)
    for frequency, script, word, count in home.words("in_notes"):
        list_case(calls, f"query in {frequency}, {script}", goal, min(20, count), query=word)
    words = home.word("5 %", "traditional", "in_notes") + " " + home.word("absent", "ascii", "in_notes")
    list_case(calls, "query of two words, one absent", goal, 0, query=words)
    persons = (("frequent", "traditional"), ("frequent", "simplified"), ("rare", "ascii"), ("absent", "ascii"))
    for which, script in persons:
        person = people[which]
        list_case(calls, f"{which} person, {script}", None, min(20, person["meetings"]), person=person[script])
    list_case(
        calls, "query, person and dates", goal, None, query=home.word("5 %", "ascii", "in_notes"),
        person=people["frequent"]["traditional"], date_from="2023-01-01", date_to="2024-12-31",
    )


CHEAP = "<= bare + 0.1 ms"  # for answers of up to 20 KB
CHEAP_BYTES = 20000


def read_case(calls, name, line, goal=None, times=CALLS):
    figures = calls.measure(line, times)
    if goal == CHEAP:
        goal = at_most(0.1 * MS, CHEAP) if figures["bytes"] <= CHEAP_BYTES else None
    calls.bench.results.add(
        "read", name, figures["server_p50"], "ns", calls.home.meetings, goal, told(figures), **figures
    )
    return figures


def read(bench, home, calls):
    """The other read tools, and what every call costs at least."""
    planted = home.planted
    typical, longest = planted["typical_meeting"]["id"], planted["long_meeting"]["id"]
    read_case(calls, "ping", request(3, "ping", {}))
    read_case(calls, "tools/list", request(3, "tools/list", {}))
    read_case(calls, "get_meeting, verdict", tool_call("get_meeting", {"id": typical, "sections": ["verdict"]}), CHEAP)
    read_case(calls, "get_transcript, 30 lines", tool_call("get_transcript", {"id": typical, "limit": 30}), CHEAP)
    read_case(calls, "list_meetings, 5", tool_call("list_meetings", {"limit": 5}), CHEAP)
    read_case(calls, "get_meeting", tool_call("get_meeting", {"id": typical}), CHEAP)
    read_case(calls, "get_transcript, 400 lines", tool_call("get_transcript", {"id": typical}))
    middle = {"id": longest, "from_sec": 6000, "to_sec": 6300}
    read_case(calls, "get_transcript, five minutes", tool_call("get_transcript", middle))
    transcript(bench, home, calls, longest)
    for which in ("frequent", "rare", "absent"):
        person = planted["people"][which]
        line = tool_call("get_person", {"name": person.get("traditional", person.get("ascii"))})
        count = calls.content(line).get("meeting_count")
        if count != person["meetings"]:
            bench.results.fault(f"get_person {which}: {count} meetings instead of {person['meetings']}")
        read_case(calls, f"get_person, in {count} meetings", line, times=CALLS if count < 200 else 20)


def transcript(bench, home, calls, longest):
    line = tool_call("get_transcript", {"id": longest, "limit": 2000})
    count = calls.content(line).get("count")
    if count != 2000:
        bench.results.fault(f"get_transcript: {count} lines instead of 2000")
    figures = read_case(calls, "get_transcript, 2,000 lines", line)
    name = "get_transcript, 2,000 lines: whole call against"
    bench.results.add(
        "read", f"{name} a bare process", figures["call_p50"] / figures["bare_p50"], "x", home.meetings
    )
    if not bench.write_speeds:
        bench.results.skip(f"{name} the writing of its bytes", "needs json and RapidJSON in the same run")
        return
    # The answer holds its JSON twice: compact, and indented as a text.
    compact = len(json.dumps(calls.content(line), ensure_ascii=False, separators=(",", ":")).encode())
    writing = compact / bench.write_speeds["compact"] + (figures["bytes"] - compact) / bench.write_speeds["indented"]
    bench.results.add(
        "read", f"{name} the writing of its bytes by RapidJSON", figures["call_p50"] / (writing * 1000 * MS),
        "x", home.meetings, at_most(3, "<= 3 x"),
    )


def refresh(bench, home, calls):
    """What a refresh adds to a call: nothing changed, then one file did."""
    line = tool_call("get_meeting", {"id": home.planted["typical_meeting"]["id"], "sections": ["verdict"]})
    touch = toucher(home)
    listing = {way: [] for way in WAYS}
    without, unchanged, changed = [], [], []
    try:
        for _ in range(ROUNDS):
            home.configure(RARELY)
            without.append(calls.measure(line, 40)["call_p50"])
            home.configure(ALWAYS)
            unchanged.append(calls.measure(line, 20)["call_p50"])
            for way, spent in others.list_home(bench.program("list-home"), home, 20).items():
                listing[way].append(spent)
            changed.append(calls.measure(line, 20, before=touch)["call_p50"])
    finally:
        home.configure(RARELY)
    for way, name in WAYS.items():
        bench.results.add("refresh", name, median(listing[way]), "ns", home.meetings)
    add_refresh(bench, home, median(unchanged) - median(without), listing)
    bench.results.add("refresh", "one file changed", median(changed) - median(without), "ns", home.meetings)


def add_refresh(bench, home, spent, listing):
    three, one = median(listing["glob_stat"]), median(listing["glob_stat_one"])
    goal = at_most(1.5, "<= 1.5 x") if home.meetings == BUILT else None
    bench.results.add("refresh", "nothing changed", spent, "ns", home.meetings)
    bench.results.add(
        "refresh", "nothing changed, against glob + stat", spent / three, "x", home.meetings, goal,
        f"{spent / one:.2f} x with one stat a meeting",
    )


WAYS = {
    "glob_stat": "glob + stat of three files a meeting",
    "glob_stat_one": "glob + stat of one file a meeting",
    "readdir_stat": "readdir + stat of three files a meeting",
}


def toucher(home):
    """A function that gives one notes file another modification time."""
    folders = sorted(os.listdir(os.path.join(home.path, "recordings")))
    path = os.path.join(home.path, "recordings", folders[len(folders) // 2], "notes.json")
    moment = [time.time_ns()]

    def touch():
        moment[0] += 10**9
        os.utime(path, ns=(moment[0], moment[0]))

    return touch


# --- other programs on the same lines -------------------------------------------------------------


def ripgrep(bench, home):
    """{word: nanoseconds}; its counts are compared with the true ones."""
    if not shutil.which("rg"):
        bench.results.skip("ripgrep", "not installed")
        return {}
    times = {}
    for frequency, script, word, lines in home.words():
        if script == "simplified" or frequency == "apart":
            continue
        forms = others.patterns_of(word, home)
        spent, found = others.ripgrep(home, forms)
        if found != lines:
            bench.results.fault(f"rg {word}: {found} lines instead of {lines}")
        bench.results.add("ripgrep", f"{frequency}, {script}", spent, "ns", home.meetings, note=f"{found} lines")
        times.update((form, spent) for form in forms)
    return times


def sqlite(bench, home):
    reason = others.FullText.unavailable()
    if reason:
        bench.results.skip("SQLite FTS5", reason)
        return {}
    lines_table = others.FullText(home, progress)
    bench.results.add(
        "sqlite", "building the table", lines_table.build_ns, "ns", home.meetings,
        note=f"when it was made; {shown_size(lines_table.size())} on disk",
    )
    times = {}
    for frequency, script, word, lines in home.words():
        if script == "simplified" or frequency == "apart":
            continue
        forms = others.patterns_of(word, home)
        spent, hits = lines_table.search([forms])
        if hits != min(others.HITS, lines):
            bench.results.fault(f"SQLite {word}: {hits} hits instead of {min(others.HITS, lines)}")
        how = "match" if all(len(form) >= 3 for form in forms) else "LIKE"
        bench.results.add("sqlite", f"{frequency}, {script}", spent, "ns", home.meetings, note=f"{how}, {hits} hits")
        times.update((form, spent) for form in forms)
    for script in ("traditional", "ascii"):
        groups = [others.patterns_of(word, home) for word in home.apart(script)]
        spent, hits = lines_table.search(groups)
        if hits != 0:
            bench.results.fault(f"SQLite: {hits} lines hold two words that never meet")
        bench.results.add("sqlite", f"two words that never meet, {script}", spent, "ns", home.meetings)
    return times
