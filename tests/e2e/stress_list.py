#!/usr/bin/env python3
"""Stress test of the shared folder's lock protocol, with the real programs on both sides.

A writer process, following docs/shared-container.md through tools/container_writer.py, rewrites
every snapshot file of two accounts (one generation at a time, all files of a generation under one
hold of the Today lock) and Accounts.plist (under its own lock), as fast as it can. Meanwhile
`corvina-today --list --json --all` runs in a loop. Every listing must exit 0, parse, and hold
exactly the messages of one whole generation: a mixture of two generations is a torn read, fewer
messages a lost one.

Then a writer is stopped (SIGSTOP) while it holds the Today lock: the reader must give up within its
bound (5 s) and say so on stderr, and exit normally.

Usage: stress_list.py CORVINA_TODAY [--seconds N]   (bounded: N seconds of rewriting, default 20)
"""
import argparse
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TOOLS = os.path.join(HERE, "..", "..", "tools")
sys.path.insert(0, TOOLS)
import container_writer as cw  # noqa: E402

ACCOUNTS = ["ada@example.org", "bob@example.org"]
FILES = ["inbox", "todo", "memo"]
KINDS = {"inbox": 1, "todo": 11, "memo": 12}
PER_FILE = 6
EXPECTED = len(ACCOUNTS) * len(FILES) * PER_FILE
LOCK_BOUND = 5.0  # what the widget waits for a lock


def generation_files(data, generation):
    fmt = "binary" if generation % 2 else "xml"
    files = []
    for mail in ACCOUNTS:
        for name in FILES:
            messages = [{"messageId": f"g{generation}-{mail}-{name}-{i}", "subject": f"generation {generation}",
                         "from": "Stress Writer", "account": mail, "folder": name, "folderStid": KINDS[name],
                         "isUnread": i % 2, "date": 1700000000 + 1000 * i} for i in range(PER_FILE)]
            files.append((os.path.join(data, cw.TODAY, mail, name),
                          cw.serialise(cw.snapshot_envelope(messages, account=mail), fmt)))
    return files


def write_generation(data, generation):
    # serialised before the lock is taken, so that readers wait only for the renames
    files = generation_files(data, generation)
    with cw.locked(data, cw.TODAY):
        for path, payload in files:
            cw.write_bytes_atomically(path, payload)
    # the account list is rewritten too, in another order and with other names each time
    accounts = [{"mail": m, "name": f"{m} ({generation})", "enabled": 1, "type": 1, "aliases": []}
                for m in (ACCOUNTS if generation % 2 else list(reversed(ACCOUNTS)))]
    cw.write_accounts(data, accounts, "binary" if generation % 3 == 0 else "xml")


def writer(root, seconds, report):
    data = cw.data_folder(root)
    generation = 1
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        generation += 1
        write_generation(data, generation)
    with open(report, "w") as f:
        f.write(str(generation - 1))
    return 0


def check_listing(result, failures):
    if result.returncode != 0:
        failures.append(f"exit status {result.returncode}: {result.stderr.strip()}")
        return None
    try:
        rows = json.loads(result.stdout)
    except ValueError as e:
        failures.append(f"output is not JSON ({e}): {result.stdout[:200]!r}")
        return None
    generations = {row["messageId"].split("-", 1)[0] for row in rows}
    if len(generations) > 1:
        failures.append(f"torn read: messages of {sorted(generations)} in one listing")
    if len(rows) != EXPECTED:
        failures.append(f"lost messages: {len(rows)} of {EXPECTED} listed ({sorted(generations)})")
    if result.stderr.strip():
        failures.append(f"unexpected stderr: {result.stderr.strip()[:300]}")
    return generations.pop() if len(generations) == 1 else None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("today")
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--writer", metavar="ROOT", help=argparse.SUPPRESS)
    parser.add_argument("--report", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.writer:
        return writer(args.writer, args.seconds, args.report)

    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", TZ="UTC", LC_ALL="C.UTF-8")
    failures = []
    with tempfile.TemporaryDirectory() as root:
        data = cw.data_folder(root)
        write_generation(data, 1)
        env["CORVINA_GROUP_CONTAINER"] = root
        command = [args.today, "--list", "--json", "--all"]
        report = os.path.join(root, "writer-report")
        writer_process = subprocess.Popen([sys.executable, os.path.abspath(__file__), args.today, "--seconds",
                                           str(args.seconds), "--writer", root, "--report", report])
        listings = 0
        seen = set()
        try:
            while writer_process.poll() is None:
                result = subprocess.run(command, env=env, capture_output=True, text=True, timeout=60)
                listings += 1
                generation = check_listing(result, failures)
                if generation:
                    seen.add(generation)
        finally:
            if writer_process.poll() is None:
                writer_process.kill()
            writer_process.wait()
        if writer_process.returncode != 0:
            failures.append(f"the writer failed with status {writer_process.returncode}")
        written = int(open(report).read()) if os.path.exists(report) else 0
        print(f"stress: {listings} listings against {written} rewrites of {len(FILES) * len(ACCOUNTS)} snapshots "
              f"and Accounts.plist; {len(seen)} distinct generations seen; {len(failures)} failures")
        if listings < 10 or written < 10 or len(seen) < 2:
            failures.append(f"too little happened to prove anything: {listings} listings, {written} rewrites, "
                            f"{len(seen)} generations seen")

        # a writer stopped while it holds the lock
        holder = subprocess.Popen([sys.executable, os.path.join(TOOLS, "container_writer.py"), "hold",
                                   "--container", root, "--item", "Today", "--seconds", "120"],
                                  stdout=subprocess.PIPE, text=True)
        try:
            if holder.stdout.readline().strip() != "locked":
                failures.append("the holder did not take the lock")
            holder.send_signal(signal.SIGSTOP)
            started = time.monotonic()
            result = subprocess.run(command, env=env, capture_output=True, text=True, timeout=60)
            elapsed = time.monotonic() - started
            print(f"stress: with the Today lock held by a stopped writer, the listing ended after {elapsed:.2f} s, "
                  f"status {result.returncode}, stderr {result.stderr.strip()!r}")
            if result.returncode != 0:
                failures.append(f"stopped writer: exit status {result.returncode}")
            if "[***ERROR***] updateData coordinator " not in result.stderr:
                failures.append(f"stopped writer: the reader did not say it gave up: {result.stderr!r}")
            if json.loads(result.stdout or "null") != []:
                failures.append(f"stopped writer: expected an empty list, got {result.stdout[:200]!r}")
            # the bound is 5 s; the rest is the program's start (generous under the sanitizers)
            if not LOCK_BOUND - 0.5 <= elapsed <= LOCK_BOUND + 10:
                failures.append(f"stopped writer: gave up after {elapsed:.2f} s, not within its {LOCK_BOUND:g} s bound")
        finally:
            holder.send_signal(signal.SIGCONT)
            holder.kill()
            holder.wait()

    for failure in failures[:20]:
        print("FAIL:", failure)
    print("stress: " + ("passed" if not failures else f"{len(failures)} failures"))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
