#!/usr/bin/env python3
"""`corvina-today --list` against its floors, whole programs, in one run (scripts/bench):

  - `--list --all` against bench_plist_reader (the same snapshot files read and parsed by libplist
    alone): time, and cost per message;
  - `--list --json --all` against bench/list_peer.py (plistlib, the same JSON byte for byte; the
    identity is checked first): time and peak memory;
  - peak memory and heap allocations (bench_allocation_count, LD_PRELOAD) per message.

Containers of 1 000, 10 000 and 100 000 messages (and 1 000 000 with BENCH_HUGE=1) are written by
tools/container_writer.py under BUILD/bench/bench-data, as bench_loader writes them. Timings are
medians of paired runs (the two programs alternate), so a busy machine slows both alike.

    list_bench.py BUILD_DIR [--rounds N] [--program PATH]
    list_bench.py BUILD_DIR --check-peer   (only: is the peer's output the program's? a test runs it)
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def container(build, messages):
    root = os.path.join(build, "bench", "bench-data", str(messages))
    if not os.path.exists(os.path.join(root, "SharedData", "Accounts.plist")):
        os.makedirs(root, exist_ok=True)
        subprocess.run([sys.executable, os.path.join(SOURCE, "tools", "container_writer.py"), "generate",
                        "--container", root, "--messages", str(messages), "--accounts", "3",
                        "--avatars", "0.05", "--mixed-formats"], check=True)
    return root


def run(command, env, stdout=subprocess.DEVNULL):
    """Wall seconds, peak resident KiB and CPU seconds of one run of `command`.

    The peak comes from /usr/bin/time, which runs the command as its own child: a process forked
    from this script would report at least this script's peak (Linux hands the parent's high-water
    mark down through fork and keeps it across exec), and this script holds whole outputs."""
    with tempfile.NamedTemporaryFile("r") as report:
        start = time.perf_counter()
        child = subprocess.Popen(["/usr/bin/time", "-f", "%M", "-o", report.name] + command,
                                 stdout=stdout, stderr=subprocess.DEVNULL, env=env)
        # the CPU time of a waited-for child includes that of its own children
        _, status, usage = os.wait4(child.pid, 0)
        wall = time.perf_counter() - start
        if status != 0:
            sys.exit("%s failed (status %d)" % (" ".join(command), status))
        peak = int(report.read().split()[-1])
    return wall, peak, usage.ru_utime + usage.ru_stime


def paired(a, b, env, rounds):
    results = {"a": [], "b": []}
    for _ in range(rounds):
        results["a"].append(run(a, env))
        results["b"].append(run(b, env))
    med = lambda runs, i: statistics.median(r[i] for r in runs)
    return ({"wall": med(results["a"], 0), "rss": max(r[1] for r in results["a"]), "cpu": med(results["a"], 2)},
            {"wall": med(results["b"], 0), "rss": max(r[1] for r in results["b"]), "cpu": med(results["b"], 2)})


def allocations(command, env, library):
    counted = dict(env, LD_PRELOAD=library, CORVINA_ALLOCATION_COUNT="/tmp/corvina-bench-allocations")
    # directly, not through /usr/bin/time, whose own count would be the one written last
    subprocess.run(command, env=counted, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    with open("/tmp/corvina-bench-allocations") as f:
        count, size = (int(x) for x in f.read().split())
    os.unlink("/tmp/corvina-bench-allocations")
    return count, size


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=0, help="paired runs per size (default: by size)")
    parser.add_argument("--program", help="another corvina-today to measure (an older build, say)")
    parser.add_argument("--check-peer", action="store_true",
                        help="only check, on a small container of its own, that the peer prints what the program does")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    program = args.program or os.path.join(build, "src", "app", "corvina-today")
    reader = os.path.join(build, "bench", "bench_plist_reader")
    counter = os.path.join(build, "bench", "bench_allocation_count.so")
    peer = [sys.executable, os.path.join(SOURCE, "bench", "list_peer.py")]
    # the peer prints dates as the program does in the C locale
    env = dict(os.environ, LC_ALL="C.UTF-8", QT_QPA_PLATFORM="offscreen")
    sizes = [1000, 10000, 100000] + ([1000000] if os.environ.get("BENCH_HUGE") == "1" else [])

    if args.check_peer:
        with tempfile.TemporaryDirectory() as root:
            # dates count back from now, a few minutes apart, so today's rows (times) are among them
            subprocess.run([sys.executable, os.path.join(SOURCE, "tools", "container_writer.py"), "generate",
                            "--container", root, "--messages", "400", "--accounts", "2", "--avatars", "0.1",
                            "--mixed-formats"], check=True)
            as_json = [program, "--list", "--json", "--all", "--container", root]
            ours = subprocess.run(as_json, env=env, capture_output=True, check=True).stdout
            theirs = subprocess.run(peer + [root], env=env, capture_output=True, check=True).stdout
            if ours != theirs:
                for a, b in zip(ours.decode().splitlines(), theirs.decode().splitlines()):
                    if a != b:
                        sys.exit("the Python peer's JSON differs from corvina-today's:\n  %s\n  %s" % (a, b))
                sys.exit("the Python peer's JSON differs from corvina-today's in length")
            print("the Python peer prints what corvina-today prints (%d bytes)" % len(ours))
        return

    rows = []
    for messages in sizes:
        root = container(build, messages)
        rounds = args.rounds or (7 if messages <= 10000 else 3 if messages <= 100000 else 1)
        listing = [program, "--list", "--all", "--container", root]
        as_json = [program, "--list", "--json", "--all", "--container", root]
        # the peer's output must be the program's, byte for byte
        ours = subprocess.run(as_json, env=env, capture_output=True, check=True).stdout
        theirs = subprocess.run(peer + [root], env=env, capture_output=True, check=True).stdout
        if ours != theirs:
            sys.exit("%d messages: the Python peer's JSON differs from corvina-today's" % messages)
        del ours, theirs
        floor_count = subprocess.run([reader, root], capture_output=True, check=True, text=True).stdout.strip()
        if floor_count != str(messages):
            sys.exit("%d messages: the libplist reader counted %s" % (messages, floor_count))

        plain, floor = paired(listing, [reader, root], env, rounds)
        json_run, python = paired(as_json, peer + [root], env, rounds)
        ours_alloc, ours_bytes = allocations(listing, env, counter)
        floor_alloc, floor_bytes = allocations([reader, root], env, counter)
        rows.append({
            "messages": messages,
            "list": plain["wall"], "floor": floor["wall"],
            "list_cpu": plain["cpu"], "floor_cpu": floor["cpu"],
            "json": json_run["wall"], "python": python["wall"],
            "json_rss": json_run["rss"], "python_rss": python["rss"], "list_rss": plain["rss"],
            "alloc": ours_alloc / messages, "alloc_bytes": ours_bytes / messages,
            "floor_alloc": floor_alloc / messages, "floor_bytes": floor_bytes / messages,
        })
        print("%d messages done" % messages, file=sys.stderr)

    first = rows[0]
    print("| | " + " | ".join("%d msgs" % r["messages"] for r in rows) + " |")
    print("|---|" + "---|" * len(rows))
    line = lambda title, cell: print("| %s | %s |" % (title, " | ".join(cell(r) for r in rows)))
    line("`--list --all` / libplist-only reader (wall, median)", lambda r: "%.2fx" % (r["list"] / r["floor"]))
    line("the same, CPU time (user + system)", lambda r: "%.2fx" % (r["list_cpu"] / r["floor_cpu"]))
    line("`--list --all` µs per message (reader)",
         lambda r: "%.1f (%.1f)" % (r["list"] / r["messages"] * 1e6, r["floor"] / r["messages"] * 1e6))
    line("cost per message / that at %d" % first["messages"],
         lambda r: "%.2f" % ((r["list"] / r["messages"]) / (first["list"] / first["messages"])))
    line("Python peer / `--list --json --all` (time; >1: we are faster)", lambda r: "%.2fx" % (r["python"] / r["json"]))
    line("`--list --json --all` peak memory vs Python peer (MiB)",
         lambda r: "%.0f vs %.0f" % (r["json_rss"] / 1024, r["python_rss"] / 1024))
    line("`--list --all` peak memory per message (KiB)", lambda r: "%.2f" % (r["list_rss"] / r["messages"]))
    line("allocations per message: `--list --all` (reader)",
         lambda r: "%.1f (%.1f)" % (r["alloc"], r["floor_alloc"]))
    line("bytes allocated per message: `--list --all` (reader)",
         lambda r: "%.0f (%.0f)" % (r["alloc_bytes"], r["floor_bytes"]))


if __name__ == "__main__":
    main()
