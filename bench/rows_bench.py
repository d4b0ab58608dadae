#!/usr/bin/env python3
"""From the widget's first frame to its first rows, and a reload after one changed file (scripts/bench).

corvina-today shows its window under an Xvfb of its own, with CORVINA_BENCH_ROWS=1 in its
environment (a hook in app/main.cpp, inert otherwise): it prints the monotonic clock at its first
frame ("frame"), and at every frame that puts other rows on the screen ("rows", with the top row's
subject): a paint of the window, then one more turn of the event loop, when the table holds rows,
nothing is moving and the table is as high as its rows (app/RowsFrameWatch). Each round starts the
program and times:

- its first frame, from just before the program is started;
- its first rows, from its first frame (the window paints the header and an empty table first);
- a reload: once the rows are shown and the start's reads are over (the program's CPU time has
  stood still for half a second: a build that shows rows before its reads would otherwise be
  timed with them), one snapshot file is replaced as the mail bridge replaces one
  (a hidden temporary in the account's folder, fsync, rename over the final name, under the
  folder's lock) by a version whose only message is newer than every other, and the time runs from
  just before the rename to the frame whose top row is that message.

The floor, measured in the same run and on the same X server: bench_first_frame_floor
(bench/FirstFrameFloor.cpp), a minimal Qt Widgets window of the widget's first size, from its start
to its first frame. Programs alternate round by round (the floor, this build's corvina-today and,
with --program, another: an older build, say), each on its own copy of the shared folder and its own
settings; one untimed round first; medians.

Containers: 10 000 and 100 000 messages, written as bench/list_bench.py writes its containers (under
BUILD/bench/bench-data).

    rows_bench.py BUILD_DIR [--rounds N] [--program PATH]... [--without-this-build] [--sizes 10000,100000]
"""
import argparse
import os
import selectors
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(SOURCE, "tools"))
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import container_writer  # noqa: E402
from first_frame_bench import first_frame  # noqa: E402
from list_bench import container  # noqa: E402
from snapshot_rename import rename_snapshot  # noqa: E402
from xvfb_server import start_xvfb, stop_xvfb  # noqa: E402

MAIL = "user0@example.org"
NAME = "bench-newest"
TIMEOUT = 180


class NoReport(Exception):
    """A round in which the program did not report within TIMEOUT."""


def settle(pid, still=0.5):
    """Returns once the process's CPU time has not moved for `still` seconds."""
    def cpu():
        with open("/proc/%d/stat" % pid) as f:
            fields = f.read().rsplit(")", 1)[1].split()
        return int(fields[11]) + int(fields[12])
    deadline = time.monotonic() + TIMEOUT
    last, since = cpu(), time.monotonic()
    while time.monotonic() - since < still:
        if time.monotonic() > deadline:
            sys.exit("the program's reads did not end within %d s" % TIMEOUT)
        time.sleep(0.05)
        now = cpu()
        if now != last:
            last, since = now, time.monotonic()


class Widget:
    """One corvina-today with its window shown, on its own copy of the shared folder."""

    def __init__(self, program, template, env):
        self.program = program
        self.root = tempfile.mkdtemp(prefix="corvina-rows.")
        shutil.copytree(template, self.root, dirs_exist_ok=True)
        self.data = container_writer.data_folder(self.root)
        self.env = dict(env, XDG_CONFIG_HOME=os.path.join(self.root, "config"))
        self.rounds = 0

    def run(self):
        """(first frame from start, first rows from first frame, reload) in milliseconds."""
        self.rounds += 1
        start = time.monotonic_ns()
        process = subprocess.Popen([self.program, "--container", self.root, "--interval", "3600"], env=self.env,
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        selector = selectors.DefaultSelector()
        selector.register(process.stdout, selectors.EVENT_READ)
        pending = [b""]

        def line():
            deadline = time.monotonic() + TIMEOUT
            while b"\n" not in pending[0]:
                left = deadline - time.monotonic()
                if left <= 0 or not selector.select(left):
                    raise NoReport("%s: no report within %d s" % (self.program, TIMEOUT))
                chunk = os.read(process.stdout.fileno(), 1 << 16)
                if not chunk:
                    sys.exit("%s ended (status %s)" % (self.program, process.wait()))
                pending[0] += chunk
            text, pending[0] = pending[0].split(b"\n", 1)
            kind, clock, *rest = text.decode().split(" ", 2)
            return kind, int(clock), rest[0] if rest else ""

        try:
            frame = rows = None
            while rows is None:
                kind, clock, _ = line()
                if kind == "frame":
                    frame = clock
                elif kind == "rows" and frame is not None:
                    rows = clock
            settle(process.pid)
            subject = "Reload %d" % self.rounds
            changed = self.replace(subject)
            while True:
                kind, clock, shown = line()
                if kind == "rows" and shown == subject:
                    break
            return (frame - start) / 1e6, (rows - frame) / 1e6, (clock - changed) / 1e6
        finally:
            process.terminate()
            process.wait(10)

    def replace(self, subject):
        """Renames a version of the bench's own snapshot file into place; the clock just before."""
        message = {"messageId": "<bench-%d@rows.example>" % self.rounds, "account": MAIL, "subject": subject,
                   "from": "Bench", "folderStid": 1, "isUnread": 1,
                   # newer than every message of the container and of the rounds before
                   "date": int(time.time()) + 86400 + self.rounds}
        payload = container_writer.serialise(container_writer.snapshot_envelope([message], account=MAIL))
        return rename_snapshot(self.data, MAIL, NAME, payload)

    def close(self):
        shutil.rmtree(self.root, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--program", action="append", default=[],
                        help="another corvina-today measured in the same run (an older build); may be repeated")
    parser.add_argument("--without-this-build", action="store_true",
                        help="measure only the --program ones (this build's bench_first_frame_floor is the floor)")
    parser.add_argument("--sizes", default="10000,100000")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    programs = [("--program (%s)" % p, os.path.abspath(p)) for p in args.program]
    if not args.without_this_build:
        programs.append(("this build", os.path.join(build, "src", "app", "corvina-today")))
    floor = [os.path.join(build, "bench", "bench_first_frame_floor")]
    server, display = start_xvfb()
    env = dict(os.environ, DISPLAY=display, QT_QPA_PLATFORM="xcb", LC_ALL="C.UTF-8", CORVINA_BENCH_ROWS="1")
    floor_env = dict(env, CORVINA_BENCH_ROWS="0")
    print("| messages | program | floor: first frame (ms) | first frame (ms) | first rows after the first frame (ms) "
          "| rows / floor | reload after one changed file (ms) | reload / floor |")
    print("|---|---|---|---|---|---|---|---|")
    try:
        for size in [int(s) for s in args.sizes.split(",")]:
            widgets = [(label, Widget(program, container(build, size), env)) for label, program in programs]
            try:
                floors, times, missed = [], {label: [] for label, _ in widgets}, {}
                for round_ in range(args.rounds + 1):
                    f = first_frame(floor, floor_env)
                    measured = []
                    for label, widget in widgets:
                        try:
                            measured.append((label, widget.run()))
                        except NoReport as error:
                            # counted and told, not hidden: a round that hangs is a finding too
                            print("round %d: %s" % (round_, error), file=sys.stderr)
                            missed[label] = missed.get(label, 0) + 1
                    if round_ > 0:  # the first round brings the files into the page cache
                        floors.append(f)
                        for label, t in measured:
                            times[label].append(t)
                fl = statistics.median(floors)
                for label, _ in widgets:
                    frame = statistics.median(t[0] for t in times[label])
                    rows = statistics.median(t[1] for t in times[label])
                    reload = statistics.median(t[2] for t in times[label])
                    print("| %d | %s | %.1f | %.1f | %.1f (%.1f-%.1f) | %.2fx | %.1f (%.1f-%.1f) | %.2fx |" % (
                        size, label, fl, frame, rows, min(t[1] for t in times[label]),
                        max(t[1] for t in times[label]), rows / fl, reload, min(t[2] for t in times[label]),
                        max(t[2] for t in times[label]), reload / fl))
                    if missed.get(label):
                        print("| | %s: %d rounds gave no report within %d s | | | | | | |" % (label, missed[label], TIMEOUT))
                    sys.stdout.flush()
            finally:
                for _, widget in widgets:
                    widget.close()
    finally:
        stop_xvfb(server)


if __name__ == "__main__":
    main()
