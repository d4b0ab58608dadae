#!/usr/bin/env python3
"""The house rules of the tree, checked: layering, formatting, clang-tidy. Run it as scripts/lint.

    scripts/lint [--fix] [--only CHECKS] [--all | --base REV | FILE...]

layering  every `#include "..."` of src/ against the folder table below, the Qt modules each folder
          may use, and the CMake links of each folder's target (CMakeLists.txt).
format    every C++ file of src/, tests/, bench/ and fuzz/ against .clang-format (clang-format 14);
          `--fix` rewrites the files instead of failing on them.
tidy      clang-tidy 14 with .clang-tidy on the C++ files of src/ that changed against a base, with
          the compile commands of build/default (configured when it is missing). The base: --base REV,
          else $CORVINA_LINT_BASE, else where HEAD left origin/main (or the local main), else the
          parent of HEAD (on main, or in a clone of one branch: what the last commit, a merge's
          whole branch, brought). A clone without history (depth 1) has no parent: tidy then checks
          nothing and says so. --all checks every source of src/; FILE... checks those files.
          No changed source: nothing to run.

Exit status: 0 when every check passed, 1 when one found something, 2 when a check could not run.
Only the standard library: it runs before anything is built.
"""

import argparse
import concurrent.futures
import json
import os
import re
import shutil
import subprocess
import sys
import time

# ---------------------------------------------------------------------------------------------------
# The folder table: the one place that says which folder of src/ may use which. CONTRIBUTING.md
# states it in words. Dependencies point down:
#
#     app/today -> widget -> views -> ui -> shared -> model -> platform, requestutils
#     app/share -> shared
#     app/mailbridge, app/accounts -> bridge/service -> bridge/commands -> bridge/sync -> bridge/config -> bridge/imap
#                                                                                  -> shared, model, platform, requestutils
#
# app/ and bridge/ are in floors: a folder each, and each floor a row of its own ("bridge/sync").
# A folder may include the headers of the folders listed for it (its own always), and its CMake
# target may link only their targets. Nothing below widget includes a view header; only the mail
# bridge's program includes bridge headers, and no program another's; ui holds generic view
# building blocks that know nothing of the widget's data, so it uses platform alone; platform and
# requestutils use no other folder. Within the bridge, imap speaks the protocol and knows nothing
# of the accounts file; config is the accounts and their passwords; sync turns a session's answers
# into snapshots; commands carries out the widget's commands; service is the running bridge.
LOW = {"shared", "model", "platform", "requestutils"}
BRIDGE_FLOORS = ["bridge/service", "bridge/commands", "bridge/sync", "bridge/config", "bridge/imap"]
ALLOWED = {
    "app/today": {"widget", "views", "ui"} | LOW,
    "app/share": set(LOW),
    "app/mailbridge": set(BRIDGE_FLOORS) | LOW,
    # the Accounts window: the bridge's program with a face, so the bridge's floors, not the widget's
    "app/accounts": set(BRIDGE_FLOORS) | LOW,
    "widget": {"views", "ui"} | LOW,
    "views": {"ui"} | LOW,
    "ui": {"platform"},
    "shared": {"model", "platform", "requestutils"},
    "model": {"platform", "requestutils"},
    # requestutils is the lowest folder (QtCore only, nothing of ours): the link detector shares its
    # list of the characters no URL may hold
    "platform": {"requestutils"},
    "requestutils": set(),
}
# Each floor of the bridge may use the floors below it and the shared folders.
for i, floor in enumerate(BRIDGE_FLOORS):
    ALLOWED[floor] = set(BRIDGE_FLOORS[i + 1:]) | LOW
# The folders that are floors: a file of src/app/ or src/bridge/ belongs to the floor it sits in.
FLOORED = {"app", "bridge"}
ORDER = ("app/today -> widget -> views -> ui -> shared -> model -> platform -> requestutils; app/mailbridge, app/accounts -> "
         "bridge/service -> bridge/commands -> bridge/sync -> bridge/config -> bridge/imap -> shared")

# The Qt modules each folder may include and link. model and requestutils need QtCore only; nothing
# but the widget's folders and its program uses QtWidgets; the bridge is a service without a GUI;
# its service floor (and its program) talks D-Bus, and its config floor asks the desktop's online
# accounts over D-Bus for what an account logs in with.
QT_MODULES = {
    "app/today": {"Core", "Gui", "Widgets", "Svg", "DBus"},
    "app/share": {"Core", "Gui"},
    "app/mailbridge": {"Core", "DBus"},
    "app/accounts": {"Core", "Gui", "Widgets", "DBus"},
    "bridge/service": {"Core", "DBus"},
    "bridge/commands": {"Core"},
    "bridge/sync": {"Core"},
    "bridge/config": {"Core", "Network", "NetworkAuth", "DBus"},
    "bridge/imap": {"Core"},
    "widget": {"Core", "Gui", "Widgets"},
    "views": {"Core", "Gui", "Widgets", "Svg"},
    "ui": {"Core", "Gui", "Widgets", "Svg"},
    "shared": {"Core", "Gui"},
    "model": {"Core"},
    "platform": {"Core", "Gui", "DBus"},
    "requestutils": {"Core"},
}
# Where the tree departs from "QtCore only", named file by file so that no other file follows:
# (folder, module) -> (the files that may include it, why).
QT_EXCEPTIONS = {
    ("model", "Gui"): (
        {"src/model/ExtensionMessage.h"},
        "the message record keeps its avatar as a decoded QImage",
    ),
    ("requestutils", "Network"): (
        {"src/requestutils/HTTPRequest.h"},
        "a built HTTP request is handed to Qt's network stack as a QNetworkRequest",
    ),
}


def floor_of(path_in_src):
    """The row of the folder table a path below src/ belongs to ("bridge/sync/X.h" -> "bridge/sync")."""
    parts = path_in_src.split("/")
    if parts[0] in FLOORED and len(parts) >= 3:
        return parts[0] + "/" + parts[1]
    return parts[0]


def library_of(row):
    """The CMake library a row's code is in: the bridge's floors are one library; each program is its own."""
    return row.split("/")[0] if row.startswith("bridge/") else row


CXX_SUFFIXES = (".cpp", ".h")
FORMAT_FOLDERS = ("src", "tests", "bench", "fuzz")


class Findings:
    def __init__(self):
        self.lines = []

    def add(self, text):
        self.lines.append(text)

    def __bool__(self):
        return bool(self.lines)


def rel(root, path):
    return os.path.relpath(os.path.realpath(path), os.path.realpath(root))


def tracked_files(root, folders, suffixes):
    """The files of `folders` with one of `suffixes`: git's list when `root` is a work tree's top
    (tracked and new files, not the ignored ones), else every such file below the folders."""
    top = subprocess.run(["git", "-C", root, "rev-parse", "--show-toplevel"], capture_output=True, text=True)
    if top.returncode == 0 and os.path.realpath(top.stdout.strip()) == os.path.realpath(root):
        out = subprocess.run(["git", "-C", root, "ls-files", "-z", "--cached", "--others", "--exclude-standard",
                              "--", *folders], capture_output=True, check=True).stdout.decode()
        names = {n for n in out.split("\0") if n.endswith(suffixes) and os.path.isfile(os.path.join(root, n))}
        return sorted(names)
    found = []
    for folder in folders:
        for dirpath, dirnames, filenames in os.walk(os.path.join(root, folder)):
            dirnames[:] = sorted(d for d in dirnames if not d.startswith("."))
            found += [rel(root, os.path.join(dirpath, f)) for f in filenames if f.endswith(suffixes)]
    return sorted(found)


# --- layering ----------------------------------------------------------------------------------------

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def qt_header_modules():
    """Maps each Qt 6 header name ("QString", "QtCore/QString") to its module ("Core")."""
    bases = [os.environ.get("CORVINA_QT_INCLUDE_DIR", "")]
    bases += ["/usr/include/qt6"] + sorted(
        os.path.join("/usr/include", d, "qt6") for d in os.listdir("/usr/include") if "linux" in d)
    for base in bases:
        if base and os.path.isdir(os.path.join(base, "QtCore")):
            headers = {}
            # QtCore first, so that a name found in several module folders counts as the basic one
            modules = sorted(d for d in os.listdir(base) if d.startswith("Qt"))
            modules.sort(key=lambda d: (d != "QtCore", d))
            for module_dir in modules:
                name = module_dir[2:]
                headers.setdefault(module_dir, name)
                for header in os.listdir(os.path.join(base, module_dir)):
                    headers.setdefault(header, name)
                    headers.setdefault(module_dir + "/" + header, name)
            return headers
    return None


def check_includes(root, findings):
    src = os.path.join(root, "src")
    qt = qt_header_modules()
    if qt is None:
        findings.add("layering: the Qt 6 headers were not found (set CORVINA_QT_INCLUDE_DIR to their folder)")
        return 0
    files = tracked_files(root, ("src",), CXX_SUFFIXES)
    for name in files:
        parts = name.split("/")
        if len(parts) < 3:
            continue
        folder = floor_of("/".join(parts[1:]))
        if folder not in ALLOWED:
            findings.add(f"{name}: layering: the folder src/{folder}/ is not in the folder table "
                         f"(ALLOWED in scripts/lint.py); add it there and to CONTRIBUTING.md")
            continue
        path = os.path.join(root, name)
        with open(path, encoding="utf-8", errors="replace") as f:
            for number, line in enumerate(f, 1):
                m = INCLUDE.match(line)
                if not m:
                    continue
                where = f"{name}:{number}"
                kind, header = m.groups()
                if kind == "<":
                    module = qt.get(header)
                    if module is None or module in QT_MODULES[folder]:
                        continue
                    files_allowed, _why = QT_EXCEPTIONS.get((folder, module), (set(), ""))
                    if name in files_allowed:
                        continue
                    findings.add(f"{where}: layering: #include <{header}> is Qt{module}, which {folder}/ may not "
                                 f"use ({folder}/ may use Qt " + ", ".join(sorted(QT_MODULES[folder])) + ")")
                    continue
                if ".." in header.split("/"):
                    findings.add(f'{where}: layering: #include "{header}" reaches another folder by a relative '
                                 f'path, which the build cannot check; name the folder ("model/X.h")')
                    continue
                beside = os.path.join(os.path.dirname(path), header)
                if os.path.isfile(beside):
                    target = floor_of(rel(src, beside))
                elif os.path.isfile(os.path.join(src, header)):
                    target = floor_of(header)
                else:
                    findings.add(f'{where}: layering: #include "{header}" is neither beside the file nor '
                                 f'"folder/Header.h" of a folder of src/')
                    continue
                if target == folder:
                    continue
                if target not in ALLOWED:
                    findings.add(f'{where}: layering: #include "{header}" is in src/{target}/, which is not in '
                                 f'the folder table')
                elif target not in ALLOWED[folder]:
                    may = ", ".join(sorted(ALLOWED[folder])) or "no other folder"
                    findings.add(f'{where}: layering: {folder}/ may not include a {target}/ header '
                                 f'("{header}"): dependencies point down, {ORDER}; {folder}/ may include {may}')
    return len(files)


LINK_CALL = re.compile(r"\btarget_link_libraries\s*\(([^)]*)\)", re.S)
INCLUDE_DIRS_CALL = re.compile(r"\btarget_include_directories\s*\(([^)]*)\)", re.S)
LINK_KEYWORDS = {"PUBLIC", "PRIVATE", "INTERFACE", "LINK_PUBLIC", "LINK_PRIVATE", "LINK_INTERFACE_LIBRARIES"}


def cmake_rows(src):
    """Each CMakeLists.txt of src/ with the library it builds and the rows of the folder table its
    code comes from: a folder's own, or for the bridge all its floors (one library), or for a
    program's folder that program's row."""
    for folder in sorted(os.listdir(src)):
        if not os.path.isfile(os.path.join(src, folder, "CMakeLists.txt")):
            continue
        if folder in ALLOWED:
            yield folder, folder, [folder]
        elif folder == "bridge":
            yield folder, "bridge", BRIDGE_FLOORS
        elif folder == "app":
            yield folder, "app", []
            for sub in sorted(os.listdir(os.path.join(src, folder))):
                if os.path.isfile(os.path.join(src, folder, sub, "CMakeLists.txt")) and f"app/{sub}" in ALLOWED:
                    yield f"app/{sub}", f"app/{sub}", [f"app/{sub}"]


def check_cmake(root, findings):
    """Each folder's CMakeLists.txt: links within the table, namespaced names, its own include root."""
    src = os.path.join(root, "src")
    libraries = {library_of(row) for row in ALLOWED}
    for place, folder, rows in cmake_rows(src):
        name = f"src/{place}/CMakeLists.txt"
        with open(os.path.join(src, place, "CMakeLists.txt"), encoding="utf-8") as f:
            text = f.read()
        may_link = {library_of(used) for row in rows for used in ALLOWED[row]} - {folder}
        qt_modules = set().union(*(QT_MODULES[row] for row in rows)) if rows else {"Core"}
        code = re.sub(r"#[^\n]*", lambda m: " " * len(m.group(0)), text)

        def where(offset):
            return f"{name}:{code.count(chr(10), 0, offset) + 1}"

        for call in LINK_CALL.finditer(code):
            items = call.group(1).split()
            for item in items[1:]:
                if item in LINK_KEYWORDS:
                    continue
                m = re.fullmatch(r"corvina(::|_)([a-z]+)", item)
                if m and m.group(2) in libraries:
                    target = m.group(2)
                    if m.group(1) == "_":
                        findings.add(f"{where(call.start())}: layering: link corvina::{target}, the namespaced "
                                     f"name, rather than {item}")
                    if target != folder and target not in may_link:
                        may = ", ".join(sorted(may_link)) or "no other folder"
                        findings.add(f"{where(call.start())}: layering: {folder}/ links {item}, which it may not "
                                     f"use: dependencies point down, {ORDER}; {folder}/ may use {may}")
                    continue
                m = re.fullmatch(r"Qt6?::(\w+)", item)
                if m and m.group(1) not in qt_modules and (folder, m.group(1)) not in QT_EXCEPTIONS:
                    findings.add(f"{where(call.start())}: layering: {folder}/ links {item}; {folder}/ may use Qt "
                                 + ", ".join(sorted(qt_modules)))
        for call in INCLUDE_DIRS_CALL.finditer(code):
            for item in call.group(1).split()[1:]:
                if "/.." in item or item.rstrip("/").endswith(("SOURCE_DIR}/src", "SOURCE_DIR}")):
                    findings.add(f"{where(call.start())}: layering: {item} as an include folder lets a target see "
                                 f"every folder's headers; expose the folder with corvina_expose_headers()")
        if not place.startswith("app") and f"corvina_{folder}" in code:
            if not re.search(rf"add_library\(\s*corvina::{folder}\s+ALIAS\s+corvina_{folder}\s*\)", code):
                findings.add(f"{name}: layering: no alias: add_library(corvina::{folder} ALIAS corvina_{folder})")
            if not re.search(rf"corvina_expose_headers\(\s*corvina_{folder}\s*\)", code):
                findings.add(f"{name}: layering: the headers are not exposed through their own include root: "
                             f"corvina_expose_headers(corvina_{folder})")


def run_layering(root, _args):
    findings = Findings()
    count = check_includes(root, findings)
    check_cmake(root, findings)
    return findings, f"{count} files"


# --- format ------------------------------------------------------------------------------------------

def tool(*names):
    for n in names:
        path = shutil.which(n)
        if path:
            return path
    return None


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def run_format(root, args):
    clang_format = tool("clang-format-14", "clang-format")
    if clang_format is None:
        raise RuntimeError("clang-format not found (Debian: apt install clang-format-14; scripts/setup)")
    files = tracked_files(root, FORMAT_FOLDERS, CXX_SUFFIXES)
    findings = Findings()
    style = ["--style=file:" + os.path.join(root, ".clang-format")]
    batches = [files[i:i + 40] for i in range(0, len(files), 40)]

    def one(batch):
        if args.fix:
            before = {f: read_bytes(os.path.join(root, f)) for f in batch}
            subprocess.run([clang_format, "-i", *style, *batch], cwd=root, check=True)
            return [f"{f}: reformatted" for f in batch if read_bytes(os.path.join(root, f)) != before[f]], True
        p = subprocess.run([clang_format, "--dry-run", "-Werror", "--ferror-limit=1", *style, *batch], cwd=root,
                           capture_output=True, text=True)
        seen = {}
        for line in p.stderr.splitlines():
            m = re.match(r"^(.+?):(\d+):(\d+): (?:error|warning): (.*)", line)
            if m and m.group(1) not in seen:
                seen[m.group(1)] = f"{rel(root, os.path.join(root, m.group(1)))}:{m.group(2)}: format: not as " \
                                   f".clang-format has it (scripts/lint --fix, or clang-format -i, rewrites it)"
        if p.returncode != 0 and not seen:
            raise RuntimeError(f"clang-format failed: {p.stderr.strip()}")
        return list(seen.values()), False

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        for lines, fixed in pool.map(one, batches):
            for line in lines:
                if fixed:
                    print(line)
                else:
                    findings.add(line)
    return findings, f"{len(files)} files" + (", rewritten where needed" if args.fix else "")


# --- tidy --------------------------------------------------------------------------------------------

def git(root, *argv):
    p = subprocess.run(["git", "-C", root, *argv], capture_output=True, text=True)
    return p.stdout.strip() if p.returncode == 0 else None


def default_base(root):
    """The base the changed files are taken against, and how it was chosen."""
    if os.environ.get("CORVINA_LINT_BASE"):
        return os.environ["CORVINA_LINT_BASE"], "$CORVINA_LINT_BASE"
    head = git(root, "rev-parse", "HEAD")
    if head is None:
        return None, "not a git work tree"
    for branch in ("origin/main", "main"):
        if git(root, "rev-parse", "--verify", "--quiet", branch + "^{commit}"):
            base = git(root, "merge-base", "HEAD", branch)
            if base and base != head:
                return base, f"where HEAD left {branch}"
    if git(root, "rev-parse", "--verify", "--quiet", "HEAD~1^{commit}"):
        return "HEAD~1", "the parent of HEAD"
    return None, "HEAD has no parent in this clone (fetch more history, or pass --base or --all)"


def changed_files(root, base):
    names = set()
    out = git(root, "diff", "--name-only", "--diff-filter=d", base)
    names.update(n for n in (out or "").splitlines() if n)
    out = git(root, "ls-files", "--others", "--exclude-standard")
    names.update(n for n in (out or "").splitlines() if n)
    return sorted(names)


def ensure_compile_commands(root, build):
    db = os.path.join(build, "compile_commands.json")
    if not os.path.isfile(db) and os.path.realpath(build) == os.path.realpath(os.path.join(root, "build", "default")):
        print("lint: configuring build/default for its compile commands", file=sys.stderr)
        subprocess.run(["cmake", "--preset", "default"], cwd=root, check=True, stdout=subprocess.DEVNULL)
    if not os.path.isfile(db):
        raise RuntimeError(f"no compile commands in {build} (configure it, or pass --build)")
    with open(db, encoding="utf-8") as f:
        entries = json.load(f)
    if any("/Unity/unity_" in e["file"] for e in entries):
        # CI's batched build compiles no source on its own: clang-tidy would find nothing to check
        # and pass by saying nothing, so say it instead
        raise RuntimeError(f"{build} is a unity build (as CI=true scripts/build makes it), which has no compile "
                           "command per source; configure it with -DCMAKE_UNITY_BUILD=OFF, or pass --build")
    return {os.path.realpath(os.path.join(e["directory"], e["file"])) for e in entries}


def units_for(root, names, compiled):
    """The translation units to run clang-tidy on for these files of src/: a source itself; for a
    header, the source of the same name, else one source that includes it."""
    units = []
    sources = sorted(p for p in compiled if rel(root, p).startswith("src/"))
    for name in names:
        if not name.startswith("src/") or not name.endswith(CXX_SUFFIXES):
            continue
        path = os.path.realpath(os.path.join(root, name))
        if name.endswith(".cpp"):
            if path in compiled:
                units.append(path)
            continue
        twin = path[:-2] + ".cpp"
        if twin in compiled:
            units.append(twin)
            continue
        base = os.path.basename(name)
        for source in sources:
            with open(source, encoding="utf-8", errors="replace") as f:
                if re.search(r'#\s*include\s*"([^"]*/)?' + re.escape(base) + '"', f.read()):
                    units.append(source)
                    break
    return sorted(set(units))


DIAGNOSTIC = re.compile(r"^(/[^:]+):(\d+):(\d+): (warning|error): (.*)$")


def run_tidy(root, args):
    clang_tidy = tool("clang-tidy-14", "clang-tidy")
    if clang_tidy is None:
        raise RuntimeError("clang-tidy not found (Debian: apt install clang-tidy-14; scripts/setup)")
    build = os.path.abspath(args.build or os.path.join(root, "build", "default"))
    if args.files:
        # named relative to the tree's top (scripts/lint runs there) or to the current folder
        names = [rel(root, f if os.path.isabs(f) or not os.path.exists(os.path.join(root, f))
                     else os.path.join(root, f)) for f in args.files]
        how = "the files named"
    elif args.all:
        names = None
        how = "every source of src/"
    else:
        base, how = (args.base, "--base") if args.base else default_base(root)
        if base is None:
            return Findings(), f"nothing checked: {how}"
        names = changed_files(root, base)
        how = f"the files changed since {base} ({how})"
        if not any(n.startswith("src/") and n.endswith(CXX_SUFFIXES) for n in names):
            return Findings(), f"no source of src/ changed: nothing to check ({how})"
    compiled = ensure_compile_commands(root, build)
    if names is None:
        units = sorted(p for p in compiled if rel(root, p).startswith("src/") and p.endswith(".cpp"))
    else:
        units = units_for(root, names, compiled)
    if not units:
        return Findings(), f"no source of src/ to check among {how}"
    config = os.path.join(root, ".clang-tidy")
    findings = Findings()

    def one(unit):
        return subprocess.run([clang_tidy, "--quiet", "-p", build, "--config-file=" + config, unit],
                              capture_output=True, text=True)

    seen = set()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        for unit, p in zip(units, pool.map(one, units)):
            diagnostics = [DIAGNOSTIC.match(line) for line in p.stdout.splitlines()]
            diagnostics = [m for m in diagnostics if m]
            for m in diagnostics:
                text = f"{rel(root, m.group(1))}:{m.group(2)}:{m.group(3)}: tidy: {m.group(5)}"
                if text not in seen:
                    seen.add(text)
                    findings.add(text)
            if p.returncode != 0 and not diagnostics:
                findings.add(f"{rel(root, unit)}: tidy: clang-tidy failed: "
                             + (p.stderr.strip().splitlines() or ["(no message)"])[-1])
    return findings, f"{len(units)} sources, {how}"


# --- main --------------------------------------------------------------------------------------------

CHECKS = {"layering": run_layering, "format": run_format, "tidy": run_tidy}


def main():
    parser = argparse.ArgumentParser(prog="scripts/lint", description=__doc__.split("\n\n")[0])
    parser.add_argument("--fix", action="store_true", help="reformat the files instead of failing on them")
    parser.add_argument("--only", default=",".join(CHECKS), help="checks to run: layering,format,tidy (all)")
    parser.add_argument("--all", action="store_true", help="clang-tidy on every source of src/")
    parser.add_argument("--base", help="clang-tidy on the files changed since this revision")
    parser.add_argument("--build", help="the build folder whose compile_commands.json clang-tidy uses "
                                        "(default build/default)")
    parser.add_argument("--root", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."),
                        help=argparse.SUPPRESS)  # another tree to check (the tests' fixtures)
    parser.add_argument("files", nargs="*", help="clang-tidy on these files")
    args = parser.parse_args()
    root = os.path.realpath(args.root)
    only = [c for c in args.only.split(",") if c]
    unknown = [c for c in only if c not in CHECKS]
    if unknown:
        parser.error("unknown check: " + ", ".join(unknown))

    status = 0
    for name in only:
        started = time.monotonic()
        try:
            findings, summary = CHECKS[name](root, args)
        except (RuntimeError, OSError, subprocess.CalledProcessError) as error:
            print(f"lint: {name}: could not run: {error}", file=sys.stderr)
            status = max(status, 2)
            continue
        seconds = time.monotonic() - started
        for line in findings.lines:
            print(line)
        verdict = f"{len(findings.lines)} problem(s)" if findings else "ok"
        print(f"lint: {name}: {verdict} ({summary}; {seconds:.1f} s)", file=sys.stderr)
        if findings:
            status = max(status, 1)
    return status


if __name__ == "__main__":
    sys.exit(main())
