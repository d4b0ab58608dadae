"""The build's own layering: a target sees only the headers of the libraries it links.

    python3 check_link_layering.py BUILD_DIR SOURCE_DIR

1. A source of model/, compiled with exactly the flags the build gives model's sources, that
   includes a views/ header does not compile ("No such file or directory"), while one including
   model/, platform/ and requestutils/ headers does.
2. For every row of the folder table of scripts/lint.py (a folder, a floor of the bridge, a
   program), the include folders of one of its sources reach no other folder's headers than the
   table allows it, and none of them is src/ itself. The bridge's floors are one library, so the
   compiler sees them all alike: the order between floors is scripts/lint's to check.
"""

import json
import os
import re
import shlex
import subprocess
import sys
import tempfile

BUILD_DIR, SOURCE_DIR = (os.path.realpath(a) for a in sys.argv[1:3])
sys.path.insert(0, os.path.join(SOURCE_DIR, "scripts"))
import lint  # noqa: E402  (the folder table: lint.ALLOWED)

SRC = os.path.join(SOURCE_DIR, "src")
failures = []


def sources_of(path):
    """The sources a compiled file stands for: a unity build's batch file (CI builds in batches)
    compiles several, each with the flags of its target; any other file is its own source."""
    if "/Unity/unity_" not in path:
        return [path]
    with open(path, encoding="utf-8") as f:
        return [os.path.realpath(m.group(1)) for m in re.finditer(r'^#include "(/[^"]+\.cpp)"', f.read(), re.M)]


def compile_commands():
    """row of the folder table -> the argument list of its first compiled source there."""
    with open(os.path.join(BUILD_DIR, "compile_commands.json"), encoding="utf-8") as f:
        entries = json.load(f)
    by_folder = {}
    for e in sorted(entries, key=lambda e: e["file"]):
        path = os.path.realpath(os.path.join(e["directory"], e["file"]))
        for source in sources_of(path):
            relative = os.path.relpath(source, SRC)
            row = lint.floor_of(relative.replace(os.sep, "/"))
            if not relative.startswith("..") and row in lint.ALLOWED and source.endswith(".cpp") \
                    and "_autogen" not in relative:
                argv = e["arguments"] if "arguments" in e else shlex.split(e["command"])
                by_folder.setdefault(row, (e["directory"], path, argv))
    return by_folder


def probe_command(directory, argv, source, probe):
    """The build's command for `source`, checking `probe` instead and writing nothing: no object,
    no dependency file (the build's own must stay as they are)."""
    out, skip = [], False
    for arg in argv:
        if skip:
            skip = False
            continue
        if arg in ("-o", "-MF", "-MT", "-MQ"):
            skip = True
            continue
        if arg in ("-c", "-MD", "-MMD"):
            continue
        if not arg.startswith("-") and os.path.realpath(os.path.join(directory, arg)) == source:
            continue
        out.append(arg)
    if os.path.basename(out[0]) == "ccache":
        out = out[1:]
    return out + ["-fsyntax-only", probe]


def include_folders(directory, argv):
    folders, take = [], False
    for arg in argv:
        if take:
            folders.append(os.path.realpath(os.path.join(directory, arg)))
            take = False
        elif arg in ("-I", "-isystem", "-iquote"):
            take = True
        elif arg.startswith(("-I", "-isystem", "-iquote")):
            value = arg[2:] if arg.startswith("-I") else arg[len("-isystem"):] if arg.startswith("-isystem") \
                else arg[len("-iquote"):]
            folders.append(os.path.realpath(os.path.join(directory, value)))
    return folders


def headers_of(top):
    """Every header of a top folder of src/, as paths below that folder ("sync/AccountSync.h")."""
    found = []
    for dirpath, _dirs, files in os.walk(os.path.join(SRC, top)):
        found += [os.path.relpath(os.path.join(dirpath, f), os.path.join(SRC, top)) for f in files if f.endswith(".h")]
    return sorted(found)


TOPS = sorted(d for d in os.listdir(SRC) if os.path.isdir(os.path.join(SRC, d)))
HEADERS = {top: headers_of(top) for top in TOPS}


commands = compile_commands()
for folder in ("model", "platform", "requestutils", "shared", "views", "widget", "bridge/imap", "bridge/service",
               "app/today", "app/share", "app/mailbridge"):
    if folder not in commands:
        failures.append(f"no compiled source of src/{folder}/ in {BUILD_DIR}/compile_commands.json")

# 1. the compiler itself refuses a model source that includes a view header
if "model" in commands:
    directory, source, argv = commands["model"]
    with tempfile.TemporaryDirectory(prefix="corvina-layering-") as scratch:
        cases = {
            "wrong": ('#include "views/TodayTableView.h"\n', False),
            "right": ('#include "model/ExtensionMessage.h"\n#include "platform/Log.h"\n'
                      '#include "requestutils/Url.h"\n', True),
        }
        for name, (text, should_compile) in cases.items():
            probe = os.path.join(scratch, f"{name}.cpp")
            with open(probe, "w", encoding="utf-8") as f:
                f.write(text)
            p = subprocess.run(probe_command(directory, argv, source, probe), cwd=directory, capture_output=True, text=True)
            print(f"model source including {text.strip()!r}: exit status {p.returncode}")
            if should_compile and p.returncode != 0:
                failures.append(f"a model source including model/, platform/ and requestutils/ headers did not "
                                f"compile:\n{p.stderr}")
            if not should_compile:
                if p.returncode == 0:
                    failures.append("a model source including a views/ header compiled")
                elif "views/TodayTableView.h: No such file or directory" not in p.stderr:
                    failures.append(f"a model source including a views/ header failed, but not for the missing "
                                    f"header:\n{p.stderr}")
                else:
                    print("  " + next(line for line in p.stderr.splitlines() if "No such file" in line))

# 2. what each row's sources can reach, against the folder table, folder by folder of src/
for row, (directory, source, argv) in sorted(commands.items()):
    folders = include_folders(directory, argv)
    if SRC in folders:
        failures.append(f"src/{row}/: src/ itself is an include folder, so every header is reachable")
    own = row.split("/")[0]
    allowed = {used.split("/")[0] for used in lint.ALLOWED[row]} | {own}
    reachable = {top for top in TOPS if top != own
                 and any(os.path.isfile(os.path.join(d, top, h)) for d in folders for h in HEADERS[top][:1])}
    print(f"{row}/ reaches: {', '.join(sorted(reachable)) or 'no other folder'}")
    for other in sorted(reachable - allowed):
        failures.append(f"src/{row}/ can include {other}/ headers, which the folder table does not allow "
                        f"(lint.ALLOWED['{row}'] = {sorted(lint.ALLOWED[row])})")

for failure in failures:
    print("FAIL: " + failure)
sys.exit(1 if failures else 0)
