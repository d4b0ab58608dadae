"""The X server of a benchmark that shows a window: an Xvfb of its own, shared by the benches that need one."""
import os
import shutil
import subprocess
import sys


def start_xvfb():
    """An Xvfb of its own; returns (process, display). Leaves the bench when there is none to start."""
    if not shutil.which("Xvfb"):
        sys.exit("Xvfb is not installed (scripts/setup installs it)")
    read, write = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "1280x1024x24", "-nolisten", "tcp"],
                              pass_fds=(write,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write)
    with os.fdopen(read) as f:
        number = f.readline().strip()
    if not number:
        sys.exit("Xvfb did not start")
    return server, ":" + number


def stop_xvfb(server):
    server.terminate()
    server.wait()
