#!/usr/bin/env python3
"""From a snapshot renamed into the shared folder to the new list printed (scripts/bench).

`corvina-today --list --watch --all` prints the list again as soon as the shared folder's watch
says it changed and the read finds it different: the same watch and the same loader the widget's
window follows. Each round writes a snapshot file as the mail bridge writes one (a hidden
temporary in the account's folder, fsync, rename over the final name, under the folder's lock),
alternating between two versions that differ by one newest message, and times from just before
the rename to the new line on the program's output. Two programs alternate round by round (this
build's and, with --program, another: an older build, say), each with its own copy of the same
shared folder, and the medians are compared.

What it leaves out: the notification daemon and the window's paint (the window is told by the
same signal at the same moment), and the bridge itself (it has the message in the snapshot some
milliseconds after the server's push).

    watch_latency_bench.py BUILD_DIR [--rounds N] [--program PATH] [--messages N]
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
import container_writer  # noqa: E402

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from snapshot_rename import rename_snapshot  # noqa: E402


class Watch:
    """One `--list --watch --all` on its own copy of the shared folder."""

    def __init__(self, program, template, env):
        self.root = tempfile.mkdtemp(prefix="corvina-watch-latency.")
        shutil.copytree(template, self.root, dirs_exist_ok=True)
        self.data = container_writer.data_folder(self.root)
        self.process = subprocess.Popen([program, "--list", "--watch", "--all", "--container", self.root,
                                         "--interval", "3600"], env=env, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL)
        self.selector = selectors.DefaultSelector()
        self.selector.register(self.process.stdout, selectors.EVENT_READ)
        self.pending = b""
        self.line(30)  # the first list, at start

    def line(self, timeout):
        deadline = time.monotonic() + timeout
        while b"\n" not in self.pending:
            left = deadline - time.monotonic()
            if left <= 0 or not self.selector.select(left):
                sys.exit("no new line from the watch within %d s" % timeout)
            chunk = os.read(self.process.stdout.fileno(), 1 << 20)
            if not chunk:
                sys.exit("the watch ended")
            self.pending += chunk
        line, self.pending = self.pending.split(b"\n", 1)
        return line

    def replace(self, mail, name, payload):
        """Milliseconds from the rename of `payload` over the snapshot to the new line."""
        start = rename_snapshot(self.data, mail, name, payload)
        self.line(30)
        return (time.monotonic_ns() - start) / 1e6

    def close(self):
        self.process.terminate()
        self.process.wait(10)
        shutil.rmtree(self.root, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=21)
    parser.add_argument("--program", help="another corvina-today measured in the same run (an older build)")
    parser.add_argument("--messages", type=int, default=1000, help="messages in the shared folder")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    programs = [("this build", os.path.join(build, "src", "app", "corvina-today"))]
    if args.program:
        programs.insert(0, ("--program (%s)" % args.program, os.path.abspath(args.program)))
    template = tempfile.mkdtemp(prefix="corvina-watch-template.")
    watches = []
    try:
        container_writer.generate(template, args.messages, 3, avatars=0.05, mixed_formats=True)
        mail = "user0@example.org"
        name = "bench-newest"
        now = int(time.time())
        one = {"messageId": "bench-1", "account": mail, "subject": "Newest", "from": "Bench",
               "date": now, "folderStid": 1}
        two = dict(one, messageId="bench-2", date=now + 60)
        versions = [container_writer.serialise(container_writer.snapshot_envelope(m, account=mail))
                    for m in ([one], [two, one])]
        with container_writer.locked(container_writer.data_folder(template), container_writer.TODAY):
            container_writer.write_bytes_atomically(
                os.path.join(container_writer.data_folder(template), container_writer.TODAY, mail, name), versions[0])
        env = dict(os.environ, LC_ALL="C.UTF-8", XDG_CONFIG_HOME=template)
        watches = [(label, Watch(program, template, env)) for label, program in programs]
        times = {label: [] for label, _ in watches}
        for round_ in range(args.rounds + 1):
            for label, watch in watches:
                elapsed = watch.replace(mail, name, versions[(round_ + 1) % 2])
                if round_ > 0:  # the first round brings the files into the page cache
                    times[label].append(elapsed)
            time.sleep(0.5)  # past the gathering window: each round starts from quiet
        print("A snapshot renamed into place (%d messages in the shared folder) to the new list printed, "
              "%d rounds, medians:" % (args.messages, args.rounds))
        print()
        print("| program | median (ms) | fastest | slowest |")
        print("|---|---|---|---|")
        for label, _ in watches:
            t = times[label]
            print("| %s | %.1f | %.1f | %.1f |" % (label, statistics.median(t), min(t), max(t)))
    finally:
        for _, watch in watches:
            watch.close()
        shutil.rmtree(template, ignore_errors=True)


if __name__ == "__main__":
    main()
