#!/usr/bin/env python3
"""Time to the widget's first painted frame, under Xvfb, against a minimal Qt program (scripts/bench).

Both programs print the monotonic clock (nanoseconds) at their window's first frame (its first
paint, then one more turn of the event loop) and leave: corvina-today does so with
CORVINA_BENCH_FIRST_FRAME=1, bench_first_frame_floor (bench/FirstFrameFloor.cpp, a window of the
widget's first size with one label) always. The time counted is from just before the program is
started to that moment. Runs are paired (the two programs alternate, on the same X server), and the
medians are compared.

Containers: the demo mailbox (resources/demo) and 10 000 messages, written as bench/list_bench.py
writes its containers (under BUILD/bench/bench-data).

    first_frame_bench.py BUILD_DIR [--rounds N] [--program PATH]
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from list_bench import SOURCE, container  # noqa: E402
from xvfb_server import start_xvfb, stop_xvfb  # noqa: E402


def first_frame(command, env):
    """Milliseconds from just before `command` starts to its first frame."""
    start = time.monotonic_ns()
    done = subprocess.run(command, env=env, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=60)
    if done.returncode != 0 or not done.stdout.strip():
        sys.exit("%s did not report its first frame (status %d)" % (" ".join(command), done.returncode))
    return (int(done.stdout.split()[0]) - start) / 1e6


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=11)
    parser.add_argument("--program", help="another corvina-today to measure (an older build, say)")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    program = args.program or os.path.join(build, "src", "app", "corvina-today")
    floor = [os.path.join(build, "bench", "bench_first_frame_floor")]
    server, display = start_xvfb()
    config = tempfile.mkdtemp(prefix="corvina-first-frame.")
    try:
        env = dict(os.environ, DISPLAY=display, QT_QPA_PLATFORM="xcb", XDG_CONFIG_HOME=config,
                   LC_ALL="C.UTF-8", CORVINA_BENCH_FIRST_FRAME="1")
        containers = [("demo", os.path.join(SOURCE, "resources", "demo")), ("10 000 msgs", container(build, 10000))]
        print("| container | minimal Qt program (ms) | corvina-today (ms) | ratio |")
        print("|---|---|---|---|")
        for name, root in containers:
            widget = [program, "--container", root, "--interval", "3600"]
            # one of each first, untimed: the files and libraries come into the page cache
            first_frame(floor, env)
            first_frame(widget, env)
            floors, widgets = [], []
            for _ in range(args.rounds):
                floors.append(first_frame(floor, env))
                widgets.append(first_frame(widget, env))
            f, w = statistics.median(floors), statistics.median(widgets)
            print("| %s | %.1f | %.1f | %.2fx |" % (name, f, w, w / f))
    finally:
        stop_xvfb(server)
        shutil.rmtree(config, ignore_errors=True)


if __name__ == "__main__":
    main()
