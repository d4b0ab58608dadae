#!/usr/bin/python3
"""Waits until a running program shows a text, as a screen reader gets it (AT-SPI, pyatspi).

Run with the system's Python (pyatspi is a Debian package of it) on the session bus whose
accessibility bus the program reports to. It walks the tree of the application named --app (of
the process --pid, when given) until some object's accessible name matches the regular expression
--expect (searched for, not matched whole), within --timeout seconds, and prints that name on one
line of JSON:

    {"found": "Connection ok: ...", "names": [every name seen in the last walk]}

Exit status 0 when it was found, 1 at the deadline (with the names seen last, and the reason on
stderr).
"""

import argparse
import json
import re
import sys
import time

import pyatspi


def names_of(accessible, out, depth=0):
    if accessible.name:
        out.append(accessible.name)
    if depth < 40:
        for i in range(accessible.childCount):
            child = accessible.getChildAtIndex(i)
            if child is not None:
                names_of(child, out, depth + 1)


def find_application(name, pid):
    desktop = pyatspi.Registry.getDesktop(0)
    for i in range(desktop.childCount):
        app = desktop.getChildAtIndex(i)
        # The process too, when given: the accessibility bus outlives a test's program, and one
        # that ended may still be listed for a moment beside the next one of the same name.
        if app is not None and app.name == name and (pid is None or app.get_process_id() == pid):
            return app
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--pid", type=int)
    parser.add_argument("--expect", required=True)
    parser.add_argument("--timeout", type=float, default=60)
    args = parser.parse_args()
    expect = re.compile(args.expect)
    deadline = time.monotonic() + args.timeout
    names = []
    reason = "no application named %r" % args.app
    while time.monotonic() < deadline:
        try:
            app = find_application(args.app, args.pid)
            if app is not None:
                names = []
                names_of(app, names)
                for name in names:
                    if expect.search(name):
                        print(json.dumps({"found": name, "names": names}))
                        return 0
                reason = "no name matches %r yet" % args.expect
        except Exception as error:  # the tree changes under the walk while the window changes
            reason = str(error)
        time.sleep(0.1)
    print(json.dumps({"found": None, "names": names}))
    print(reason, file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
