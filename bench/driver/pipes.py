"""Child processes on two pipes, and how long they take to answer.

What runs while the clock does is as little as Python allows: one write, reads into a buffer that is
there already, a look at the last byte. What it costs all the same is taken off by measuring the
bare process in the same way.
"""

import gc
import json
import os
import signal
import time

PATIENCE = 900  # seconds until a child that does not answer is given up

USUAL_PIPE = 65536  # bytes that a pipe holds

TURN = 20  # calls of one process before it is the other's turn
FEWEST = 60  # calls
ENOUGH = 15  # seconds


class GivenUp(Exception):
    """A child ended or kept silent."""


def _on_alarm(_signal, _frame):
    raise GivenUp(f"no answer within {PATIENCE} s")


signal.signal(signal.SIGALRM, _on_alarm)


class Child:
    """A process with pipes at standard input and output and, when wanted, standard error."""

    def __init__(self, command, env=None, pipe_errors=False, cores=None):
        """Starts `command` (an absolute path and arguments), on some `cores` only when given."""
        child_in, self.to_child = os.pipe()
        self.from_child, child_out = os.pipe()
        self.errors, child_err = os.pipe() if pipe_errors else (None, os.open(os.devnull, os.O_WRONLY))
        self.buffer = bytearray(USUAL_PIPE)
        own = [self.to_child, self.from_child, child_in, child_out, child_err, self.errors]
        for fd in own:
            if fd is not None:
                os.set_inheritable(fd, False)
        actions = [(os.POSIX_SPAWN_DUP2, fd, i) for i, fd in enumerate((child_in, child_out, child_err))]
        before = os.sched_getaffinity(0) if cores else None
        if cores:
            os.sched_setaffinity(0, cores)
        try:
            self.started = time.perf_counter_ns()
            self.pid = os.posix_spawn(command[0], command, os.environ if env is None else env, file_actions=actions)
        finally:
            if before:
                os.sched_setaffinity(0, before)
        for fd in (child_in, child_out, child_err):
            os.close(fd)
        self.pending = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends the standard input, and waits until the child has ended."""
        os.close(self.to_child)
        signal.alarm(PATIENCE)
        try:
            os.waitpid(self.pid, 0)
        except GivenUp:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        signal.alarm(0)
        os.close(self.from_child)
        if self.errors is not None:
            os.close(self.errors)

    def call(self, line):
        """Writes `line`, reads up to the line feed of the answer; nanoseconds that took."""
        to_child, from_child, buffer = self.to_child, self.from_child, [self.buffer]
        start = time.perf_counter_ns()
        os.write(to_child, line)
        while True:
            count = os.readv(from_child, buffer)
            if count == 0:
                raise GivenUp("the process ended")
            if self.buffer[count - 1] == 10:
                return time.perf_counter_ns() - start

    def answer(self, line):
        """Like `call`, but returns the answer."""
        signal.alarm(PATIENCE)
        os.write(self.to_child, line)
        pieces = []
        while not pieces or not pieces[-1].endswith(b"\n"):
            piece = os.read(self.from_child, USUAL_PIPE)
            if not piece:
                raise GivenUp("the process ended")
            pieces.append(piece)
        signal.alarm(0)
        return b"".join(pieces)

    def wait_for_error_line(self, part):
        """Reads standard error up to the line that holds `part`; nanoseconds since the start."""
        signal.alarm(PATIENCE)
        text = b""
        while True:
            at = text.find(part)
            if at >= 0 and b"\n" in text[at:]:
                signal.alarm(0)
                return time.perf_counter_ns() - self.started, text.decode()
            piece = os.read(self.errors, USUAL_PIPE)
            if not piece:
                raise GivenUp(f"the process ended without saying {part!r}: {text!r}")
            text += piece

    def memory(self):
        """Resident bytes now and at most, or None where the system does not say."""
        try:
            with open(f"/proc/{self.pid}/status", encoding="ascii") as status:
                rows = dict(row.split(":", 1) for row in status)
        except OSError:
            return None
        return {name: int(rows[name].split()[0]) * 1024 for name in ("VmRSS", "VmHWM")}


def request(number, method, params):
    """A JSON-RPC request as the bytes of a line."""
    message = {"jsonrpc": "2.0", "id": number, "method": method, "params": params}
    return json.dumps(message, ensure_ascii=False, separators=(",", ":")).encode() + b"\n"


def tool_call(tool, arguments):
    return request(7, "tools/call", {"name": tool, "arguments": arguments})


INITIALIZE = request(
    1,
    "initialize",
    {"protocolVersion": "2025-06-18", "capabilities": {}, "clientInfo": {"name": "bench", "version": "1"}},
)


def bare_request(like, answer_size):
    """A line for the bare process, as long as `like`, that asks for `answer_size` bytes."""
    return b"%d " % answer_size + b"x" * max(0, len(like) - len(str(answer_size)) - 2) + b"\n"


def quantile(values, part):
    """The smallest of `values` that at least `part` of them do not exceed."""
    ordered = sorted(values)
    return ordered[max(0, -(-len(ordered) * part // 100) - 1)]


def median(values):
    ordered = sorted(values)
    middle = len(ordered) // 2
    return ordered[middle] if len(ordered) % 2 else (ordered[middle - 1] + ordered[middle]) / 2


def time_calls(child, line, bare, bare_line, times, before=None):
    """Nanoseconds of `times` calls of `child` and as many of the bare process, in turns of some
    dozen each, so that what else the machine does falls on both alike. What takes long is called
    less often, but not below FEWEST times. `before` runs before each call of `child`, outside the
    measurement."""
    own, others = [], []
    gc.collect()
    gc.disable()
    signal.alarm(PATIENCE)
    began = time.perf_counter()
    try:
        while len(own) < times and (len(own) < FEWEST or time.perf_counter() - began < ENOUGH):
            count = min(TURN, times - len(own))
            for _ in range(count):
                if before is not None:
                    before()
                own.append(child.call(line))
            others += [bare.call(bare_line) for _ in range(count)]
    finally:
        signal.alarm(0)
        gc.enable()
    return own, others

