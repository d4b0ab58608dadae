#!/usr/bin/env python3
"""The bridge's files as `cmake --install` places them: the systemd user unit where systemd looks for
user units, naming the program that was installed beside it, and accepted by systemd's own checker;
the desktop file the widget finds the mail application by, accepted by the desktop's validator; and
the D-Bus service file that starts the installed program (through the unit) when the widget calls."""
import configparser
import os
import shutil
import subprocess
import sys
import tempfile


def fail(message):
    print("check_unit: " + message, file=sys.stderr)
    sys.exit(1)


def installed(dest, suffix):
    found = [os.path.join(root, name) for root, _, names in os.walk(dest) for name in names
             if os.path.join(root, name).endswith(suffix)]
    if len(found) != 1:
        fail("expected one %s installed, found %r" % (suffix, found))
    return found[0]


def read_ini(path, section):
    parser = configparser.ConfigParser(strict=True, interpolation=None)
    parser.optionxform = str
    with open(path, encoding="utf-8") as f:
        parser.read_file(f)
    if section not in parser:
        fail("%s has no [%s] group" % (path, section))
    return parser[section]


def check_activation(dest, program, unit_name):
    """The desktop file and the D-Bus service file, as the widget and the bus read them."""
    desktop = installed(dest, "/share/applications/org.corvina.mail.desktop")
    validator = shutil.which("desktop-file-validate")
    if validator is None:
        fail("desktop-file-validate is not installed (Debian package desktop-file-utils)")
    validated = subprocess.run([validator, desktop], capture_output=True, text=True)
    if validated.returncode != 0 or validated.stdout.strip() or validated.stderr.strip():
        fail("desktop-file-validate: " + (validated.stdout + validated.stderr).strip())
    entry = read_ini(desktop, "Desktop Entry")
    for key, value in (("Type", "Application"), ("DBusActivatable", "true")):
        if entry.get(key) != value:
            fail("the desktop file's %s is %r, not %r" % (key, entry.get(key), value))
    if entry.get("Hidden") == "true":
        fail("the desktop file is hidden, so the widget would not find it")
    if entry.get("Exec", "").split()[:1] != ["corvina-mail-bridge"]:
        fail("the desktop file's Exec does not start corvina-mail-bridge: %r" % entry.get("Exec"))

    service = installed(dest, "/share/dbus-1/services/org.corvina.mail.service")
    group = read_ini(service, "D-BUS Service")
    if group.get("Name") != "org.corvina.mail":
        fail("the D-Bus service file names %r, not org.corvina.mail" % group.get("Name"))
    if group.get("Exec") != program:
        fail("the D-Bus service file's Exec is %r, not the installed %s" % (group.get("Exec"), program))
    if not os.access(dest + group["Exec"], os.X_OK):
        fail("the D-Bus service file's Exec names %s, which the install did not place" % group["Exec"])
    if group.get("SystemdService") != unit_name:
        fail("the D-Bus service file's SystemdService is %r, not %s" % (group.get("SystemdService"), unit_name))


def main():
    build = sys.argv[1]
    with tempfile.TemporaryDirectory() as dest:
        env = dict(os.environ, DESTDIR=dest)
        done = subprocess.run(["cmake", "--install", build, "--component", "bridge"], env=env,
                              capture_output=True, text=True)
        if done.returncode != 0:
            fail("cmake --install failed: " + done.stderr)
        units = [os.path.join(root, name) for root, _, names in os.walk(dest) for name in names
                 if name.endswith(".service") and "/dbus-1/" not in root]
        if len(units) != 1:
            fail("expected one unit installed, found %r" % units)
        unit = units[0]
        if not unit.endswith("/lib/systemd/user/corvina-mail-bridge.service"):
            fail("the unit is not where systemd looks for user units: " + unit)

        parser = configparser.ConfigParser(strict=True, interpolation=None)
        parser.optionxform = str  # keys are case-sensitive in unit files
        with open(unit, encoding="utf-8") as f:
            parser.read_file(f)
        service = parser["Service"]
        for key, value in (("Type", "simple"), ("Restart", "on-failure")):
            if service.get(key) != value:
                fail("[Service] %s is %r, not %r" % (key, service.get(key), value))
        if parser["Install"].get("WantedBy") != "default.target":
            fail("[Install] WantedBy is not default.target, so enable would not start it at login")
        program = service.get("ExecStart", "")
        if not os.path.isabs(program) or not program.endswith("/corvina-mail-bridge"):
            fail("ExecStart does not name the bridge by an absolute path: %r" % program)
        if not os.access(dest + program, os.X_OK):
            fail("ExecStart names %s, which the install did not place" % program)

        # systemd's checker looks for the program on this machine's root, where the test did not
        # install it: a copy points at the program under the install folder instead.
        check_dir = os.path.join(dest, "verify")
        os.mkdir(check_dir)
        copy = os.path.join(check_dir, "corvina-mail-bridge.service")
        with open(unit, encoding="utf-8") as f:
            text = f.read()
        with open(copy, "w", encoding="utf-8") as f:
            f.write(text.replace("ExecStart=" + program, "ExecStart=" + dest + program))
        analyze = shutil.which("systemd-analyze")
        if analyze is None:
            fail("systemd-analyze is not installed (Debian package systemd)")
        checked = subprocess.run([analyze, "verify", "--man=no", copy], cwd=check_dir,
                                 capture_output=True, text=True)
        # Unknown keys and bad values are only warned about: any word from the checker is a failure.
        if checked.returncode != 0 or checked.stderr.strip() or checked.stdout.strip():
            fail("systemd-analyze verify: " + (checked.stderr + checked.stdout).strip())

        check_activation(dest, program, os.path.basename(unit))
    print("check_unit: ok")


if __name__ == "__main__":
    main()
