"""What the server is measured against: other programs and libraries, on the same files."""

import json
import os
import shutil
import sqlite3
import subprocess
import time

from pipes import INITIALIZE, Child, median

RG_TIMES = 5
SQL_SECONDS = 1.0  # how long a query is repeated, at most
SQL_TIMES = 50
HITS = 20  # as many as the server gives when nothing is said


def patterns_of(word, home):
    """The forms that stand for one query: the server finds both scripts."""
    for entry in home.planted["in_lines"]:
        forms = [entry[key] for key in ("traditional", "simplified", "ascii") if key in entry]
        if word in forms:
            return forms
    return [word]


def ripgrep(home, forms):
    """(nanoseconds, matching lines) of counting the lines that hold any of `forms`."""
    command = [shutil.which("rg"), "-c", "-F", "-i", "--no-filename"]
    for form in forms:
        command += ["-e", form]
    command.append(home.lines)
    spent = []
    for _ in range(RG_TIMES):
        start = time.perf_counter_ns()
        done = subprocess.run(command, stdout=subprocess.PIPE, check=False)
        spent.append(time.perf_counter_ns() - start)
        if done.returncode > 1:
            raise RuntimeError("rg failed")
    return median(spent), sum(int(count) for count in done.stdout.split())


class FullText:
    """The lines in an FTS5 table with the trigram tokenizer. Kept with the home."""

    @staticmethod
    def unavailable():
        """Why it cannot be had, None when it can."""
        try:
            with sqlite3.connect(":memory:") as database:
                database.execute("CREATE VIRTUAL TABLE t USING fts5(x, tokenize='trigram')")
        except sqlite3.OperationalError as error:
            return f"Python's SQLite {sqlite3.sqlite_version}: {error}"
        return None

    def __init__(self, home, progress):
        self.path = os.path.join(home.path, ".bench", "lines.sqlite")
        finished = self.path + ".ns"
        if not os.path.exists(finished):
            progress("    building the SQLite table")
            if os.path.exists(self.path):
                os.remove(self.path)
            spent = self.build(home)
            with open(finished, "w", encoding="ascii") as file:
                file.write(str(spent))
        with open(finished, encoding="ascii") as file:
            self.build_ns = int(file.read())
        self.database = sqlite3.connect(self.path)
        self.database.execute("PRAGMA mmap_size = 4000000000")

    def build(self, home):
        start = time.perf_counter_ns()
        database = sqlite3.connect(self.path)
        database.execute("PRAGMA journal_mode = OFF")
        database.execute("PRAGMA synchronous = OFF")
        database.execute("CREATE VIRTUAL TABLE lines USING fts5(text, tokenize='trigram')")
        for name in sorted(os.listdir(home.lines)):
            with open(os.path.join(home.lines, name), encoding="utf-8") as file:
                texts = file.read().split("\n")[:-1]
            database.executemany("INSERT INTO lines VALUES (?)", ((text,) for text in texts))
        database.commit()
        database.close()
        return time.perf_counter_ns() - start

    def search(self, groups):
        """(median nanoseconds, hits) for lines that hold a form of every group, newest first. A
        trigram table answers a match for three characters and more; for less it has LIKE."""
        if all(len(form) >= 3 for forms in groups for form in forms):
            where = "lines MATCH ?"
            quoted = ["(" + " OR ".join(f'"{form}"' for form in forms) + ")" for forms in groups]
            values = [" AND ".join(quoted)]
        else:
            where = " AND ".join("(" + " OR ".join("text LIKE ?" for _ in forms) + ")" for forms in groups)
            values = [f"%{form}%" for forms in groups for form in forms]
        query = f"SELECT rowid, text FROM lines WHERE {where} ORDER BY rowid DESC LIMIT {HITS}"
        spent, began = [], time.perf_counter()
        while len(spent) < SQL_TIMES and (not spent or time.perf_counter() - began < SQL_SECONDS):
            start = time.perf_counter_ns()
            rows = self.database.execute(query, values).fetchall()
            spent.append(time.perf_counter_ns() - start)
        return median(spent), len(rows)

    def size(self):
        return os.path.getsize(self.path)


def google_benchmark(program, home, pattern, *, repetitions=1, seconds=0.1, interleaved=False):
    """{name: median nanoseconds}, {name: bytes a second} of the benchmarks that `pattern` names.
    The time is that of the clock where the benchmark says so, else the processor's."""
    command = [
        program,
        "--benchmark_format=json",
        f"--benchmark_filter={pattern}",
        f"--benchmark_repetitions={repetitions}",
        f"--benchmark_min_time={seconds}",
        f"--benchmark_enable_random_interleaving={'true' if interleaved else 'false'}",
    ]
    env = dict(os.environ, VELTA_BENCH_HOME=home.path)
    done = subprocess.run(command, env=env, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True)
    units = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    times, speeds = {}, {}
    for run in json.loads(done.stdout)["benchmarks"]:
        if run.get("run_type") == "aggregate":
            continue
        name = run["run_name"].removesuffix("/real_time")
        clock = "real_time" if run["run_name"].endswith("/real_time") else "cpu_time"
        if run.get("error_occurred"):
            raise RuntimeError(f"{name}: {run.get('error_message')}")
        times.setdefault(name, []).append(run[clock] * units[run["time_unit"]])
        if "bytes_per_second" in run:
            speeds.setdefault(name, []).append(run["bytes_per_second"])
    return ({n: median(t) for n, t in times.items()}, {n: median(s) for n, s in speeds.items()})


def list_home(program, home, times):
    """{way: median nanoseconds} of listing the home's files and looking at them."""
    done = subprocess.run([program, home.path, str(times)], stdout=subprocess.PIPE, check=True)
    told = json.loads(done.stdout)
    for way in ("glob_stat", "readdir_stat"):
        if told[f"{way}_files"] < 2 * home.meetings:
            raise RuntimeError(f"{way} saw {told[f'{way}_files']} files only")
    return {key.removesuffix("_ns"): median(told[key]) for key in told if key.endswith("_ns")}


def node_server(root, scratch):
    """The command of a general MCP server for Node, or (None, why there is none)."""
    node = shutil.which("node")
    script = os.path.join(
        root, "build", "bench-tools", "node_modules", "@modelcontextprotocol", "server-memory", "dist", "index.js"
    )
    if not node:
        return None, "no node"
    if not os.path.exists(script):
        return None, "npm did not install @modelcontextprotocol/server-memory"
    env = {"HOME": scratch, "PATH": os.environ["PATH"], "MEMORY_FILE_PATH": os.path.join(scratch, "memory.jsonl")}
    return ([node, script], env), None


def start_to_answer(command, env, line, times):
    """Nanoseconds from the start of a process to its first answer, each time; and its memory."""
    spent, memory = [], None
    for _ in range(times):
        with Child(command, env) as child:
            child.answer(line)
            spent.append(time.perf_counter_ns() - child.started)
            memory = child.memory()
    return spent, memory


def start_to_initialized(command, env, times):
    return start_to_answer(command, env, INITIALIZE, times)
