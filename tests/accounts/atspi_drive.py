#!/usr/bin/python3
"""Works a running program only through AT-SPI, as a screen reader or a switch device does: no
keys, no pointer. Run with the system's Python (pyatspi is a Debian package of it) on the session
bus whose accessibility bus the program reports to.

It reads its work as one JSON object on stdin (stdin, not arguments, because a step may carry a
password, and a command line is seen by every process of the machine):

    {"app": "corvina-accounts", "pid": 1234, "timeout": 60, "steps": [STEP, ...]}

and takes the steps in turn, each within "timeout" seconds. A step names a control by its role
and accessible name (as a screen reader says them: "push button", "Save") and finds it among the
controls that are showing; where the control is not there yet, or is disabled, it waits.

    {"press": NAME}                           the push button NAME, through its Action interface
    {"type": TEXT, "into": NAME}              the text field NAME (a password field too) set to
                                              TEXT through its EditableText interface
    {"number": N, "into": NAME}               the spin box NAME set to N through its Value interface
    {"choose": PATTERN, "in": LABEL}          the combo box that the label LABEL names (its
                                              words without the colon) set to its first item
                                              whose name matches the regular expression PATTERN
    {"hear": PATTERN}                         waits until some showing object's name matches PATTERN

It prints one JSON line a step as it is done, {"step": 3, "heard": "..."} ("heard": what a hear
step found; for a choose step, the item chosen), and exits 0 when every step was done, 1 at the
first step that could not be done in time (with the reason on stderr, and the names showing then).
"""

import json
import re
import sys
import time

import pyatspi


class NotYet(Exception):
    """What a step waits for is not there (yet)."""


def find_application(name, pid):
    desktop = pyatspi.Registry.getDesktop(0)
    for i in range(desktop.childCount):
        app = desktop.getChildAtIndex(i)
        if app is None or app.name != name:
            continue
        # The process, not only the name: an application that ended may still be listed for a
        # moment after it went, and the next one has the same name.
        if pid is not None and app.get_process_id() != pid:
            continue
        return app
    return None


def showing(accessible):
    return accessible.getState().contains(pyatspi.STATE_SHOWING)


def walk(accessible, depth=0):
    """Every showing object below `accessible`, depth first. A hidden page's controls are left
    out: the window keeps its other pages (Edit, Change password) with buttons of the same names
    in the tree while one shows."""
    yield accessible
    if depth < 40:
        for i in range(accessible.childCount):
            child = accessible.getChildAtIndex(i)
            if child is not None and showing(child):
                yield from walk(child, depth + 1)


def control(app, role, name):
    for accessible in walk(app):
        if accessible.getRoleName() == role and accessible.name == name:
            if not accessible.getState().contains(pyatspi.STATE_ENABLED):
                raise NotYet("%s %r is disabled" % (role, name))
            return accessible
    raise NotYet("no %s named %r is showing" % (role, name))


def combo_box(app, label):
    """The showing combo box that `label` names. On Linux, Qt gives a combo box its current item
    as its name, and says what it is through the label's relation, as a screen reader reads it
    ("Security: combo box, TLS: ...")."""
    for accessible in walk(app):
        if accessible.getRole() != pyatspi.ROLE_COMBO_BOX:
            continue
        for relation in accessible.getRelationSet():
            if relation.getRelationType() != pyatspi.RELATION_LABELLED_BY:
                continue
            for i in range(relation.getNTargets()):
                if relation.getTarget(i).name.rstrip(":") == label:
                    if not accessible.getState().contains(pyatspi.STATE_ENABLED):
                        raise NotYet("the combo box %r is disabled" % label)
                    return accessible
    raise NotYet("no combo box labelled %r is showing" % label)


def text_field(app, name):
    # A password field is a text field of its own role for a screen reader.
    for role in ("text", "password text"):
        try:
            return control(app, role, name)
        except NotYet:
            pass
    raise NotYet("no text field named %r is showing and enabled" % name)


def press(accessible):
    action = accessible.queryAction()
    for i in range(action.nActions):
        if action.getName(i) == "Press":
            action.doAction(i)
            return
    raise RuntimeError("%r has no Press action" % accessible.name)


def choose(combo, pattern):
    """Makes the combo box's item that matches `pattern` its current one. The combo's items are
    the children of its list (the list of its popup, there while the popup is closed). Qt 6.4
    gives that list no Selection interface; each item has the Action "Toggle", which selects it,
    and the window's combo boxes take an item so selected as their choice."""
    items = None
    for i in range(combo.childCount):
        child = combo.getChildAtIndex(i)
        if child is not None and child.getRole() == pyatspi.ROLE_LIST:
            items = child
    if items is None:
        raise NotYet("the combo box %r has no list of items" % combo.name)
    names = [items.getChildAtIndex(i).name for i in range(items.childCount)]
    for index, item in enumerate(names):
        if re.search(pattern, item or ""):
            if combo.name != item:
                toggle = items.getChildAtIndex(index).queryAction()
                for i in range(toggle.nActions):
                    if toggle.getName(i) == "Toggle":
                        toggle.doAction(i)
            if combo.name != item:
                raise NotYet("the combo box did not take the item %r (it shows %r)" % (item, combo.name))
            return item
    raise NotYet("the combo box %r has no item matching %r (it has %r)" % (combo.name, pattern, names))


def heard(app, pattern):
    for accessible in walk(app):
        if accessible.name and re.search(pattern, accessible.name):
            return accessible.name
    raise NotYet("no showing name matches %r" % pattern)


def run(app, step):
    if "press" in step:
        press(control(app, "push button", step["press"]))
        return None
    if "type" in step:
        field = text_field(app, step["into"])
        if not field.queryEditableText().setTextContents(step["type"]):
            raise NotYet("the text field %r refused the text" % step["into"])
        return None
    if "number" in step:
        control(app, "spin button", step["into"]).queryValue().currentValue = float(step["number"])
        return None
    if "choose" in step:
        return choose(combo_box(app, step["in"]), step["choose"])
    if "hear" in step:
        return heard(app, step["hear"])
    raise ValueError("a step of no known kind: %r" % step)


def names_showing(app):
    try:
        return [a.name for a in walk(app) if a.name]
    except Exception:  # the tree changes under the walk while the window changes
        return []


def main():
    work = json.load(sys.stdin)
    timeout = float(work.get("timeout", 60))
    app = None
    for number, step in enumerate(work["steps"]):
        deadline = time.monotonic() + timeout
        reason = "not tried"
        done = False
        while time.monotonic() < deadline:
            try:
                if app is None:
                    app = find_application(work["app"], work.get("pid"))
                    if app is None:
                        raise NotYet("no application named %r" % work["app"])
                out = run(app, step)
                print(json.dumps({"step": number, "heard": out}), flush=True)
                done = True
                break
            except NotYet as error:
                reason = str(error)
            except Exception as error:  # a control gone while the window changes: look again
                reason = "%s: %s" % (type(error).__name__, error)
            time.sleep(0.1)
        if not done:
            # The step without its text, which may be a password.
            shown = {key: value for key, value in step.items() if key != "type"}
            print("step %d %s: %s" % (number, json.dumps(shown), reason), file=sys.stderr)
            print(json.dumps({"step": number, "failed": reason,
                              "names": names_showing(app) if app is not None else []}), flush=True)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
