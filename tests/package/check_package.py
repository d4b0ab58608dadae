#!/usr/bin/env python3
"""The Debian packages as a person installs them: cpack builds corvina-today and corvina-mail-bridge
from the build folder into a scratch folder; their control fields and file lists are what Debian
expects; apt, asked to simulate the install, finds every dependency and every recommended package
(the Wayland platform plugin among them) on a machine set up by scripts/setup; dpkg really installs
both packages, checking their dependencies against the packages installed on this machine, into a
scratch root with a copy of this machine's package database (so the machine itself, its programs,
its package database and a running desktop session, is not changed), and removes them again
without a trace; from that root the installed programs start with the system's libraries alone and
list the demo mailbox as the build's own program does; the installed desktop files, metainfo, unit
and D-Bus service file check out; and lintian finds neither an error nor a warning.

Usage: check_package.py BUILD_DIR SOURCE_DIR VERSION CPACK"""
import glob
import gzip
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

TODAY_FILES = {
    "usr/bin/corvina-today",
    "usr/bin/corvina-share",
    # the program's window: a private module, below the multiarch library folder
    "usr/lib/%s/corvina-today/corvina-today-window.so" % subprocess.run(
        ["dpkg-architecture", "-qDEB_HOST_MULTIARCH"], capture_output=True, text=True, check=True).stdout.strip(),
    "usr/share/applications/org.corvina.mail.today.desktop",
    "usr/share/applications/org.corvina.mail.share.desktop",
    "usr/share/metainfo/org.corvina.mail.today.metainfo.xml",
    "usr/share/man/man1/corvina-today.1.gz",
    "usr/share/man/man1/corvina-share.1.gz",
    "usr/share/doc/corvina-today/copyright",
    "usr/share/doc/corvina-today/changelog.gz",
}
BRIDGE_FILES = {
    "usr/bin/corvina-mail-bridge",
    "usr/bin/corvina-accounts",
    "usr/share/applications/org.corvina.mail.accounts.desktop",
    "usr/share/man/man1/corvina-accounts.1.gz",
    "usr/lib/systemd/user/corvina-mail-bridge.service",
    "usr/share/applications/org.corvina.mail.desktop",
    "usr/share/dbus-1/services/org.corvina.mail.service",
    "usr/share/man/man1/corvina-mail-bridge.1.gz",
    "usr/share/doc/corvina-mail-bridge/copyright",
    "usr/share/doc/corvina-mail-bridge/changelog.gz",
}
PROGRAMS = ("corvina-today", "corvina-share", "corvina-mail-bridge", "corvina-accounts")


def fail(message):
    print("check_package: " + message, file=sys.stderr)
    sys.exit(1)


def tool(name, package):
    path = shutil.which(name)
    if path is None:
        fail("%s is not installed (Debian package %s; scripts/setup installs it)" % (name, package))
    return path


def run(args, what, env=None, cwd=None, timeout=120):
    done = subprocess.run(args, capture_output=True, text=True, env=env, cwd=cwd, timeout=timeout)
    if done.returncode != 0:
        fail("%s failed (status %d): %s" % (what, done.returncode, (done.stdout + done.stderr).strip()))
    return done


def field(deb, name):
    return run([tool("dpkg-deb", "dpkg"), "-f", deb, name], "dpkg-deb -f").stdout.strip()


def check_control(deb, package, version):
    if field(deb, "Package") != package:
        fail("%s is not the package %s" % (deb, package))
    if field(deb, "Version") != version:
        fail("%s has version %r, not the project's %s" % (package, field(deb, "Version"), version))
    if not re.fullmatch(r"[^<>]+ <[^@<>\s]+@[^@<>\s]+\.[a-z]+>", field(deb, "Maintainer")):
        fail("%s: the Maintainer is not 'Name <address>': %r" % (package, field(deb, "Maintainer")))
    for name, expected in (("Section", "mail"), ("Priority", "optional"), ("Source", "corvina-today")):
        if field(deb, name) != expected:
            fail("%s: %s is %r, not %r" % (package, name, field(deb, name), expected))
    if not field(deb, "Homepage").startswith("https://"):
        fail("%s: the Homepage is not an https URL: %r" % (package, field(deb, "Homepage")))
    description = field(deb, "Description").splitlines()
    if len(description) < 3:
        fail("%s: the Description has no long description" % package)


def relations(deb, name):
    """The package names a relation field names, alternatives included."""
    names = set()
    for clause in field(deb, name).split(","):
        for alternative in clause.split("|"):
            if alternative.strip():
                names.add(alternative.split()[0])
    return names


def first_names(deb, name):
    """Each clause of a relation field as the list of its alternatives' package names."""
    clauses = []
    for clause in field(deb, name).split(","):
        names = [alternative.split()[0] for alternative in clause.split("|") if alternative.strip()]
        if names:
            clauses.append(names)
    return clauses


def installed_packages():
    listed = run(["dpkg-query", "-W", "-f", "${Package} ${db:Status-Status}\\n"], "dpkg-query -W").stdout
    return {line.split()[0].split(":")[0] for line in listed.splitlines() if line.endswith(" installed")}


def check_recommends(debs):
    """apt, simulating an install as apt does by default (recommended packages included), finds each
    recommended package: one already installed, or one it would install. apt leaves out a
    recommendation it cannot find without a word, so its silence proves nothing."""
    simulated = run(["apt-get", "install", "--simulate"] + debs, "apt-get install --simulate (with recommends)").stdout
    would = {line.split()[1] for line in simulated.splitlines() if line.startswith("Inst ")}
    have = installed_packages()
    for deb in debs:
        for clause in first_names(deb, "Recommends"):
            if not any(name in have or name in would for name in clause):
                fail("%s recommends %s, which apt neither finds installed nor would install:\n%s"
                     % (field(deb, "Package"), " | ".join(clause), simulated))


def check_dpkg_install(debs, scratch):
    """Installs the packages for real with dpkg, into a scratch root (--instdir) whose package database
    (--admindir) is a copy of this machine's: dpkg checks each Depends against what is installed
    here, unpacks, configures and removes as it does on a person's machine, and the machine is not
    changed. Its triggers are left out (they would update the machine's own desktop and manual page
    databases), and so are corvina packages this machine may have installed itself, so that dpkg
    never runs their scripts. Answers the root, with the packages installed."""
    admin = os.path.join(scratch, "dpkg")
    root = os.path.join(scratch, "root")
    for folder in ("info", "updates", "triggers"):
        os.makedirs(os.path.join(admin, folder))
    os.makedirs(root)
    # The machine's database, without any corvina package of its own: its status entries and the
    # lists of files each installed package owns (dpkg checks the new files against them).
    ours = re.compile(r"^Package: corvina-", re.M)
    with open("/var/lib/dpkg/status", encoding="utf-8") as f:
        stanzas = f.read().split("\n\n")
    with open(os.path.join(admin, "status"), "w", encoding="utf-8") as f:
        f.write("\n\n".join(stanza for stanza in stanzas if not ours.search(stanza)))
    for path in glob.glob("/var/lib/dpkg/info/*.list"):
        name = os.path.basename(path)
        if not name.startswith("corvina-"):
            os.symlink(path, os.path.join(admin, "info", name))
    for name in ("arch", "diversions", "statoverride"):
        if os.path.exists(os.path.join("/var/lib/dpkg", name)):
            shutil.copy(os.path.join("/var/lib/dpkg", name), os.path.join(admin, name))

    dpkg = [tool("dpkg", "dpkg"), "--admindir=" + admin, "--instdir=" + root,
            "--log=" + os.path.join(scratch, "dpkg.log")]
    if os.geteuid() != 0:
        dpkg.append("--force-not-root")
    for deb in debs:
        scripts = [name for name in ("preinst", "postinst", "prerm", "postrm")
                   if subprocess.run([tool("dpkg-deb", "dpkg"), "--info", deb, name], capture_output=True).returncode == 0]
        if scripts:
            fail("%s has maintainer scripts (%s): this check would run them" % (field(deb, "Package"), scripts))
    run(dpkg + ["--install"] + debs, "dpkg --install")

    def status(package):
        return subprocess.run(["dpkg-query", "--admindir=" + admin, "-W", "-f", "${db:Status-Status}", package],
                              capture_output=True, text=True).stdout.strip()

    for deb in debs:
        package = field(deb, "Package")
        if status(package) != "installed":
            fail("dpkg did not install %s (status %r)" % (package, status(package)))
    return root, dpkg, status


def check_dpkg_removal(root, dpkg, status, debs):
    packages = [field(deb, "Package") for deb in debs]
    run(dpkg + ["--purge"] + packages, "dpkg --purge")
    for package in packages:
        if status(package) not in ("", "not-installed"):
            fail("dpkg --purge left %s as %r" % (package, status(package)))
    left = [os.path.relpath(os.path.join(folder, name), root)
            for folder, _, names in os.walk(root) for name in names]
    if left:
        fail("removing the packages left files behind: %s" % sorted(left))


def files_of(deb):
    listed = run([tool("dpkg-deb", "dpkg"), "-c", deb], "dpkg-deb -c").stdout.splitlines()
    # "-rw-r--r-- root/root 710 2026-11-25 06:16 ./usr/share/doc/..."; folders end with "/"
    return {line.split(None, 5)[5][2:] for line in listed if not line.endswith("/")}


def program_env(scratch):
    """A session of its own: no library path, no shared folder, settings under the scratch folder."""
    env = {key: value for key, value in os.environ.items()
           if key not in ("LD_LIBRARY_PATH", "CORVINA_GROUP_CONTAINER", "CORVINA_BUNDLE_IDENTIFIER")}
    for name in ("home", "config", "data", "state", "runtime"):
        os.makedirs(os.path.join(scratch, name), mode=0o700, exist_ok=True)
    env.update(HOME=os.path.join(scratch, "home"), XDG_CONFIG_HOME=os.path.join(scratch, "config"),
               XDG_DATA_HOME=os.path.join(scratch, "data"), XDG_STATE_HOME=os.path.join(scratch, "state"),
               XDG_RUNTIME_DIR=os.path.join(scratch, "runtime"), QT_QPA_PLATFORM="offscreen",
               LC_ALL="C.UTF-8", TZ="UTC")
    return env


def check_libraries(root):
    """The project's own libraries are linked in: each program needs only the system's."""
    for program in PROGRAMS:
        path = os.path.join(root, "usr/bin", program)
        dynamic = run(["readelf", "-d", path], "readelf -d " + program).stdout
        if "RPATH" in dynamic or "RUNPATH" in dynamic:
            fail("%s carries a library path (RPATH/RUNPATH)" % program)
        ldd = run(["ldd", path], "ldd " + program).stdout
        if "not found" in ldd:
            fail("%s needs a library that is not on this machine:\n%s" % (program, ldd))
        for line in ldd.splitlines():
            if "=>" in line and "corvina" in line.split("=>")[1]:
                fail("%s loads a library of the project: %s" % (program, line.strip()))
    # corvina-today's window is a module it loads itself, from the package's own folder
    window = [os.path.join(root, f) for f in TODAY_FILES if f.endswith("/corvina-today-window.so")][0]
    ldd = run(["ldd", window], "ldd corvina-today-window.so").stdout
    if "not found" in ldd:
        fail("corvina-today-window.so needs a library that is not on this machine:\n%s" % ldd)


def without_date_strings(listing):
    # the text of a date ("Yesterday", a time) depends on when it is read; the date itself does not
    rows = json.loads(listing)
    for row in rows:
        row.pop("dateString", None)
    return rows


def check_programs(root, build, source, scratch):
    env = program_env(scratch)
    today = os.path.join(root, "usr/bin/corvina-today")
    for program in PROGRAMS:
        shown = run([os.path.join(root, "usr/bin", program), "--help"], program + " --help", env=env)
        if "Usage:" not in shown.stdout or "--version" not in shown.stdout:
            fail("%s --help does not show its options:\n%s" % (program, shown.stdout))
    if "--list" not in run([today, "--help"], "corvina-today --help", env=env).stdout:
        fail("the installed corvina-today does not offer --list")

    demo = os.path.join(scratch, "demo")
    shutil.copytree(os.path.join(source, "resources/demo"), demo, symlinks=True)
    listed = run([today, "--list", "--container", demo], "corvina-today --list", env=env).stdout
    rows = listed.splitlines()
    if not rows:
        fail("the installed corvina-today --list shows nothing of the demo mailbox")
    for row in rows:
        if len(row.split("\t")) != 3:
            fail("a row of corvina-today --list is not date, sender and subject: %r" % row)
    installed = run([today, "--list", "--all", "--json", "--container", demo],
                    "corvina-today --list --all --json", env=env).stdout
    built = run([os.path.join(build, "src/app/corvina-today"), "--list", "--all", "--json", "--container", demo],
                "the build's corvina-today --list --all --json", env=env).stdout
    if without_date_strings(installed) != without_date_strings(built):
        fail("the installed corvina-today lists the demo otherwise than the build's own program")
    # the widget itself, from the window's module where the package puts it
    shot = os.path.join(scratch, "installed-widget.png")
    run([today, "--screenshot", shot, "--container", demo], "corvina-today --screenshot", env=env)
    with open(shot, "rb") as picture:
        if picture.read(8) != b"\x89PNG\r\n\x1a\n":
            fail("the installed corvina-today did not render its widget to %s" % shot)
    return len(rows)


def check_desktop_and_metainfo(root, version):
    validator = tool("desktop-file-validate", "desktop-file-utils")
    desktop_files = sorted(glob.glob(os.path.join(root, "usr/share/applications/*.desktop")))
    if len(desktop_files) != 4:
        fail("expected four desktop files, found %r" % desktop_files)
    checked = subprocess.run([validator] + desktop_files, capture_output=True, text=True)
    if checked.returncode != 0 or (checked.stdout + checked.stderr).strip():
        fail("desktop-file-validate: " + (checked.stdout + checked.stderr).strip())
    for desktop in desktop_files:
        with open(desktop, encoding="utf-8") as f:
            exec_line = [line for line in f.read().splitlines() if line.startswith("Exec=")]
        program = exec_line[0][len("Exec="):].split()[0]
        if not os.access(os.path.join(root, "usr/bin", program), os.X_OK):
            fail("%s starts %s, which the packages do not install in /usr/bin" % (desktop, program))

    metainfo = os.path.join(root, "usr/share/metainfo/org.corvina.mail.today.metainfo.xml")
    run([tool("appstreamcli", "appstream"), "validate", "--no-net", "--pedantic", metainfo],
        "appstreamcli validate")
    component = ElementTree.parse(metainfo).getroot()
    launchable = component.findtext("launchable")
    if component.findtext("id") + ".desktop" != launchable:
        fail("the metainfo id %r is not its desktop file's name %r" % (component.findtext("id"), launchable))
    if not os.path.isfile(os.path.join(root, "usr/share/applications", launchable)):
        fail("the metainfo launches %s, which the packages do not install" % launchable)
    newest = component.find("releases/release")
    if newest is None or newest.get("version") != version:
        fail("the metainfo's newest release is not %s: add it to <releases>" % version)
    for package in ("corvina-today", "corvina-mail-bridge"):
        with gzip.open(os.path.join(root, "usr/share/doc", package, "changelog.gz"), "rt", encoding="utf-8") as f:
            first = f.readline()
        if not first.startswith("corvina-today (%s) " % version):
            fail("the changelog's newest entry is not %s: add one to packaging/deb/changelog (%r)" % (version, first))


def check_bridge_activation(root):
    for path, key in (("usr/lib/systemd/user/corvina-mail-bridge.service", "ExecStart="),
                      ("usr/share/dbus-1/services/org.corvina.mail.service", "Exec=")):
        with open(os.path.join(root, path), encoding="utf-8") as f:
            values = [line[len(key):] for line in f.read().splitlines() if line.startswith(key)]
        if values != ["/usr/bin/corvina-mail-bridge"]:
            fail("%s starts %r, not the packaged /usr/bin/corvina-mail-bridge" % (path, values))


def main():
    build, source, version, cpack = sys.argv[1:5]
    lintian = tool("lintian", "lintian")
    tool("dpkg-shlibdeps", "dpkg-dev")
    tool("readelf", "binutils")
    with tempfile.TemporaryDirectory() as scratch:
        out = os.path.join(scratch, "out")
        run([cpack, "-G", "DEB", "--config", os.path.join(build, "CPackConfig.cmake"), "-B", out],
            "cpack", cwd=build, timeout=300)
        debs = sorted(glob.glob(os.path.join(out, "*.deb")))
        arch = run(["dpkg", "--print-architecture"], "dpkg --print-architecture").stdout.strip()
        expected = {os.path.join(out, "%s_%s_%s.deb" % (name, version, arch))
                    for name in ("corvina-today", "corvina-mail-bridge")}
        if set(debs) != expected:
            fail("cpack made %r, not %r" % (debs, sorted(expected)))
        today = os.path.join(out, "corvina-today_%s_%s.deb" % (version, arch))
        bridge = os.path.join(out, "corvina-mail-bridge_%s_%s.deb" % (version, arch))

        check_control(today, "corvina-today", version)
        check_control(bridge, "corvina-mail-bridge", version)
        # the libraries dpkg-shlibdeps found, and the tools the bridge runs
        for deb, needed in ((today, {"libqt6widgets6", "libqt6svg6", "libplist3", "libc6"}),
                            (bridge, {"xdg-utils", "libetpan20", "libsecret-1-0", "libgnutls30", "libqt6dbus6"})):
            missing = needed - relations(deb, "Depends")
            if missing:
                fail("%s does not depend on %s: %s" % (field(deb, "Package"), sorted(missing), field(deb, "Depends")))
        if "corvina-mail-bridge" not in relations(today, "Recommends"):
            fail("corvina-today does not recommend corvina-mail-bridge")
        # Without the Wayland platform plugin the widget stops at start on a Wayland desktop with no
        # X server for older programs (tests/e2e: WaylandProgramTest).
        if "qt6-wayland" not in relations(today, "Recommends") | relations(today, "Depends"):
            fail("corvina-today neither depends on nor recommends qt6-wayland: %r" % field(today, "Recommends"))
        if "gnome-keyring" not in relations(bridge, "Recommends"):
            fail("corvina-mail-bridge does not recommend a Secret Service (gnome-keyring)")
        for deb, files in ((today, TODAY_FILES), (bridge, BRIDGE_FILES)):
            if files_of(deb) != files:
                fail("%s holds %r, expected %r" % (field(deb, "Package"), sorted(files_of(deb)), sorted(files)))

        # apt only simulates: every Depends is a real package, already on a machine scripts/setup made
        simulated = run(["apt-get", "install", "--simulate", "--no-install-recommends", today, bridge],
                        "apt-get install --simulate").stdout
        installs = sorted(line.split()[1] for line in simulated.splitlines() if line.startswith("Inst "))
        if installs != ["corvina-mail-bridge", "corvina-today"]:
            fail("installing the packages would also need %s" % [p for p in installs if not p.startswith("corvina-")])

        check_recommends([today, bridge])

        root, dpkg, status = check_dpkg_install([today, bridge], scratch)
        check_libraries(root)
        rows = check_programs(root, build, source, os.path.join(scratch, "session"))
        check_desktop_and_metainfo(root, version)
        check_bridge_activation(root)
        check_dpkg_removal(root, dpkg, status, [today, bridge])

        # lintian's errors and warnings both fail; its informational tags are shown
        linted = subprocess.run([lintian, "--fail-on", "error,warning", "--display-info", "--pedantic", today, bridge],
                                capture_output=True, text=True, timeout=300)
        print(linted.stdout.strip())
        if linted.returncode != 0:
            fail("lintian (status %d):\n%s" % (linted.returncode, (linted.stdout + linted.stderr).strip()))
    print("check_package: ok (corvina-today and corvina-mail-bridge %s; the installed widget lists %d demo rows)"
          % (version, rows))


if __name__ == "__main__":
    main()
