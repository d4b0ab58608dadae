#!/usr/bin/env python3
"""What the widget costs while nothing changes (scripts/bench).

corvina-today is started with --tray under Xvfb (where no tray is offered it shows its window
instead, and idles the same way) on shared
folders of 10 000 and 100 000 messages, written as bench/list_bench.py writes its containers. Once
its first read is over (its CPU time stands still for a few seconds), it is left alone for
--seconds (600 by default, the issue's ten minutes) with its periodic update at its default, and
measured from /proc:

- CPU seconds an hour: user and system time over the period, scaled to an hour;
- wakeups a minute: the context switches of all its threads (voluntary and not) over the period,
  scaled to a minute; each is one time the process was put to sleep or taken off a core (the
  period starts once no thread has begun or ended for 35 s: a thread pool's idle threads end
  about 30 s after the first read, and a thread that ends takes its count with it);
- PSS at the end (/proc/PID/smaps_rollup): its share of the memory it maps.

The programs measured (this build's and, with --program, another: an older build, say) all run in
the same period, side by side on the same X server, so that both meet the same machine.

    idle_bench.py BUILD_DIR [--seconds N] [--program PATH] [--sizes 10000,100000]
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from list_bench import container  # noqa: E402
from xvfb_server import start_xvfb, stop_xvfb  # noqa: E402

TICKS = os.sysconf("SC_CLK_TCK")


def cpu_seconds(pid):
    """User and system time of the whole process (all its threads), in seconds."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    # after the command's closing parenthesis: state is field 3, utime 14 and stime 15 (1-based)
    return (int(fields[11]) + int(fields[12])) / TICKS


def switches(pid):
    """Context switches of each thread of the process, voluntary and not: {thread id: count}."""
    counts = {}
    for task in os.listdir("/proc/%d/task" % pid):
        try:
            with open("/proc/%d/task/%s/status" % (pid, task)) as f:
                counts[task] = sum(int(line.split()[1]) for line in f
                                   if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")))
        except FileNotFoundError:
            pass  # a thread that ended meanwhile
    return counts


def switched(before, after):
    """Context switches between two readings of switches(): a thread that ended in between took its
    count with it (its last switches are not seen), a thread that began counts whole."""
    return sum(count - before.get(task, 0) for task, count in after.items())


def wait_for_threads(pids, quiet=35.0, limit=120.0):
    """Until no thread of `pids` began or ended for `quiet` seconds: a thread pool's idle threads
    end some 30 s after their last work, and a thread that ends in the measured period takes its
    switches with it."""
    deadline = time.monotonic() + limit
    last = {pid: set(os.listdir("/proc/%d/task" % pid)) for pid in pids}
    still = time.monotonic()
    while time.monotonic() < deadline and time.monotonic() - still < quiet:
        time.sleep(1)
        now = {pid: set(os.listdir("/proc/%d/task" % pid)) for pid in pids}
        if now != last:
            still = time.monotonic()
        last = now


def pss_kib(pid):
    with open("/proc/%d/smaps_rollup" % pid) as f:
        for line in f:
            if line.startswith("Pss:"):
                return int(line.split()[1])
    return 0


def wait_until_idle(pids, quiet=5.0, limit=600.0):
    """Until none of `pids` has used CPU for `quiet` seconds (the first read over)."""
    deadline = time.monotonic() + limit
    last = {pid: cpu_seconds(pid) for pid in pids}
    still = time.monotonic()
    while time.monotonic() < deadline:
        time.sleep(0.5)
        now = {pid: cpu_seconds(pid) for pid in pids}
        if any(now[pid] - last[pid] > 0.02 for pid in pids):
            still = time.monotonic()
        last = now
        if time.monotonic() - still >= quiet:
            return
    sys.exit("the programs did not come to rest within %d s" % limit)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--seconds", type=int, default=600, help="the idle period measured (default 600)")
    parser.add_argument("--program", help="another corvina-today measured in the same period (an older build)")
    parser.add_argument("--sizes", default="10000,100000", help="messages in the shared folders")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    programs = [("this build", os.path.join(build, "src", "app", "corvina-today"))]
    if args.program:
        programs.insert(0, ("--program (%s)" % args.program, os.path.abspath(args.program)))
    sizes = [int(s) for s in args.sizes.split(",")]
    roots = {size: container(build, size) for size in sizes}
    server, display = start_xvfb()
    running = []
    try:
        for size in sizes:
            for name, program in programs:
                config = tempfile.mkdtemp(prefix="corvina-idle.")
                env = dict(os.environ, DISPLAY=display, QT_QPA_PLATFORM="xcb", XDG_CONFIG_HOME=config,
                           LC_ALL="C.UTF-8")
                process = subprocess.Popen([program, "--tray", "--container", roots[size]], env=env,
                                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                running.append((size, name, process, config))
        pids = [p.pid for _, _, p, _ in running]
        wait_until_idle(pids)
        wait_for_threads(pids)
        start = {pid: (cpu_seconds(pid), switches(pid)) for pid in pids}
        began = time.monotonic()
        time.sleep(args.seconds)
        elapsed = time.monotonic() - began
        print("Idle for %d s, %d programs side by side, each with its default periodic update (60 s before "
              "the widget read only on a change; none after):" % (elapsed, len(running)))
        print()
        print("| messages | program | CPU s/hour | wakeups/min | PSS (MiB) |")
        print("|---|---|---|---|---|")
        for size, name, process, _ in running:
            if process.poll() is not None:
                sys.exit("%s ended early (status %d)" % (name, process.returncode))
            cpu = cpu_seconds(process.pid) - start[process.pid][0]
            woken = switched(start[process.pid][1], switches(process.pid))
            print("| %d | %s | %.2f | %.1f | %.1f |" % (size, name, cpu * 3600 / elapsed, woken * 60 / elapsed,
                                                        pss_kib(process.pid) / 1024))
    finally:
        for _, _, process, config in running:
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
            shutil.rmtree(config, ignore_errors=True)
        stop_xvfb(server)


if __name__ == "__main__":
    main()
