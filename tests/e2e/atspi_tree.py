#!/usr/bin/python3
"""What a screen reader gets of a running program, through AT-SPI as a screen reader gets it.

Run with the system's Python (pyatspi is a Debian package of it) on the session bus whose
accessibility bus the program reports to. It waits, within --timeout seconds, for the application
named --app to show a list of exactly --rows items, then prints the application's whole tree as
one JSON object on a line:

    {"tree": {"role": "application", "name": ..., "children": [...]}}

each node with "role", "name", "description", "states" (sorted) and "children" in their order.

With --window ID it then works the keyboard on that X window (xdotool) and prints, on one JSON
line, the objects that told a screen reader they got the focus, step by step:

    {"results": [{"keys": "Down", "focus": [{"role": "list item", "name": ...}]}, ...]}

First it presses Home and End by turns until a focus event comes: the program learns only after a
while that someone listens (the registry tells it), and each of those keys moves the focus while
it does not yet, so waiting is bounded and needs no fixed sleep. Then it starts from the first
row (Home, unless that was its last key), and takes each step of --keys (keys joined by "+",
steps by ","): presses its keys and gathers the focus events that come until one on a list item,
and those that still come within half a second after it (so a focus told after the row's shows).

Exit status 0 when everything came within the bound, 1 otherwise (with what was seen so far on
stdout and the reason on stderr).
"""

import argparse
import json
import subprocess
import sys
import time

import pyatspi
from gi.repository import GLib


def node(accessible, depth=0):
    out = {
        "role": accessible.getRoleName(),
        "name": accessible.name or "",
        "description": accessible.description or "",
        "states": sorted(pyatspi.stateToString(s) for s in accessible.getState().getStates()),
        "children": [],
    }
    if depth < 40:
        for i in range(accessible.childCount):
            child = accessible.getChildAtIndex(i)
            if child is not None:
                out["children"].append(node(child, depth + 1))
    return out


def find_application(name):
    desktop = pyatspi.Registry.getDesktop(0)
    for i in range(desktop.childCount):
        app = desktop.getChildAtIndex(i)
        if app is not None and app.name == name:
            return app
    return None


def lists_of(accessible, depth=0):
    if accessible.getRole() == pyatspi.ROLE_LIST:
        yield accessible
    if depth < 40:
        for i in range(accessible.childCount):
            child = accessible.getChildAtIndex(i)
            if child is not None:
                yield from lists_of(child, depth + 1)


def wait_for_tree(app_name, rows, deadline):
    """The application's tree once it shows a list of `rows` items. At the deadline, the tree as
    it is then (when there is one) and the reason."""
    last_error = "no application named %r" % app_name
    app = None
    while time.monotonic() < deadline:
        try:
            app = find_application(app_name)
            if app is not None:
                if any(lst.childCount == rows for lst in lists_of(app)):
                    return node(app), None
                last_error = "no list of %d items yet" % rows
        except Exception as error:  # the tree changes under the walk while the program starts
            last_error = str(error)
        time.sleep(0.05)
    try:
        return (node(app) if app is not None else None), last_error
    except Exception:
        return None, last_error


class FocusWatch:
    def __init__(self):
        self.seen = []
        pyatspi.Registry.registerEventListener(self.on_event, "object:state-changed:focused")

    def on_event(self, event):
        if event.detail1 != 1:
            return
        source = event.source
        self.seen.append({"role": source.getRoleName(), "name": source.name or ""})

    def wait(self, deadline):
        """The next focus event, or None at the deadline."""
        context = GLib.MainContext.default()
        while not self.seen and time.monotonic() < deadline:
            if not context.iteration(False):
                time.sleep(0.01)
        return self.seen.pop(0) if self.seen else None


def press(window, key):
    subprocess.run(["xdotool", "key", "--window", window, key], check=True)


def collect(watch, deadline, quiet):
    """The focus events up to one on a list item, then any more that come within `quiet` seconds
    (none, when the program tells the focus once and last on the row)."""
    events = []
    while not events or events[-1]["role"] != "list item":
        event = watch.wait(deadline)
        if event is None:
            return events, False
        events.append(event)
    while True:
        event = watch.wait(time.monotonic() + quiet)
        if event is None:
            return events, True
        events.append(event)


def work_keys(window, steps, timeout):
    # The keyboard's focus on the window, as a window manager gives it to the window clicked: a
    # program tells a screen reader of focus only in the window that has it.
    subprocess.run(["xdotool", "windowfocus", "--sync", window], check=True)
    watch = FocusWatch()
    deadline = time.monotonic() + timeout
    # Until the program sends focus events at all.
    turn = 0
    heard = None
    while heard is None:
        if time.monotonic() >= deadline:
            raise TimeoutError("no focus event came for Home or End")
        key = ("End", "Home")[turn % 2]
        turn += 1
        press(window, key)
        heard = watch.wait(min(deadline, time.monotonic() + 1.0))
    # What is still on its way from the keys before is no answer to the keys below.
    while watch.wait(time.monotonic() + 1.0) is not None:
        pass
    # From the first row: Home, unless that was the last key already.
    if key != "Home":
        press(window, "Home")
        start, ok = collect(watch, deadline, 0.5)
        if not ok:
            raise TimeoutError("no focus event came for Home")
        print(json.dumps({"start": start}), flush=True)
    results = []
    for step in steps:
        for key in step.split("+"):
            press(window, key)
        focus, ok = collect(watch, deadline, 0.5)
        results.append({"keys": step, "focus": focus})
        if not ok:
            print(json.dumps({"results": results}), flush=True)
            raise TimeoutError("no focus event on a list item came for %s" % step)
    return results


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--rows", type=int, required=True)
    parser.add_argument("--timeout", type=float, default=30)
    parser.add_argument("--window")
    parser.add_argument("--keys", default="")
    args = parser.parse_args()
    deadline = time.monotonic() + args.timeout
    try:
        tree, error = wait_for_tree(args.app, args.rows, deadline)
        if tree is not None:
            print(json.dumps({"tree": tree}), flush=True)
        if error:
            raise TimeoutError(error)
        if args.window:
            keys = [k for k in args.keys.split(",") if k]
            results = work_keys(args.window, keys, max(1.0, deadline - time.monotonic()))
            print(json.dumps({"results": results}), flush=True)
    except TimeoutError as error:
        print("atspi_tree: %s" % error, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
