"""Tests of the host-side container writer: atomic replacement, the lock protocol with a real second
holder, the command line and the benchmark generator.

    python3 -m unittest discover -s tools        (from the project folder)
    cd tools && python3 -m unittest
"""
import base64
import fcntl
import json
import os
import plistlib
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from unittest import mock

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import container_writer as cw  # noqa: E402

TOOL = os.path.join(HERE, "container_writer.py")


def run_tool(*args, **kwargs):
    return subprocess.run([sys.executable, TOOL, *args], capture_output=True, text=True, timeout=120, **kwargs)


def try_flock(path, mode):
    """Whether another open file of `path` gets the lock at once (flock treats it as another owner)."""
    fd = os.open(path, os.O_RDWR)
    try:
        fcntl.flock(fd, mode | fcntl.LOCK_NB)
        return True
    except BlockingIOError:
        return False
    finally:
        os.close(fd)


def hidden_leftovers(folder):
    """Names beginning with "." other than lock sidecars: temporaries a writer left behind."""
    return [n for n in os.listdir(folder) if n.startswith(".") and not n.endswith(".lock")]


class Holder:
    """`container_writer.py hold` in its own process, started and ended by the test."""

    def __init__(self, container, item, seconds, shared=False):
        args = [sys.executable, TOOL, "hold", "--container", container, "--item", item, "--seconds", str(seconds)]
        if shared:
            args.append("--shared")
        self.process = subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.first_line = self.process.stdout.readline()

    def close(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.communicate(timeout=30)


class Case(unittest.TestCase):
    def setUp(self):
        self._tmp = tempfile.TemporaryDirectory()
        self.root = self._tmp.name
        self.data = cw.data_folder(self.root)

    def tearDown(self):
        self._tmp.cleanup()


class ContainerLocation(unittest.TestCase):
    def test_the_variable_wins_and_set_but_empty_means_none(self):
        self.assertEqual(cw.container_root({"CORVINA_GROUP_CONTAINER": "/srv/box", "XDG_DATA_HOME": "/x"}), "/srv/box")
        self.assertIsNone(cw.container_root({"CORVINA_GROUP_CONTAINER": "", "XDG_DATA_HOME": "/x"}))

    def test_otherwise_under_the_data_home(self):
        self.assertEqual(cw.container_root({"XDG_DATA_HOME": "/x/share", "HOME": "/home/u"}),
                         "/x/share/group-containers/Q7X2M4K9TZ.corvina")
        for unset in ({}, {"XDG_DATA_HOME": ""}, {"XDG_DATA_HOME": "relative/share"}):
            self.assertEqual(cw.container_root(dict(unset, HOME="/home/u")),
                             "/home/u/.local/share/group-containers/Q7X2M4K9TZ.corvina")

    def test_beta_builds_use_their_own_folder(self):
        self.assertFalse(cw.is_beta({}))
        self.assertFalse(cw.is_beta({"CORVINA_BUNDLE_IDENTIFIER": "org.corvina.mail.pro.today"}))
        self.assertTrue(cw.is_beta({"CORVINA_BUNDLE_IDENTIFIER": "org.corvina.mail.beta10.today"}))
        with tempfile.TemporaryDirectory() as root:
            self.assertEqual(cw.data_folder(root, beta=True), os.path.join(root, "SharedDataBeta"))
            self.assertTrue(os.path.isdir(os.path.join(root, "SharedDataBeta")))
        with self.assertRaises(cw.NoContainer):
            cw.data_folder(None)


class AtomicReplacement(Case):
    def test_a_reader_during_the_write_sees_the_old_file_and_the_temporary_is_hidden(self):
        path = os.path.join(self.data, "Accounts.plist")
        cw.write_accounts(self.data, [{"mail": "old@example.org"}])
        seen = []
        real_fsync = os.fsync

        def fsync_and_look(fd):
            # the moment between the temporary's last byte and the rename
            if not seen:
                with open(path, "rb") as f:
                    seen.append(plistlib.load(f))
                seen.append(hidden_leftovers(self.data))
            real_fsync(fd)

        with mock.patch.object(os, "fsync", fsync_and_look):
            cw.write_accounts(self.data, [{"mail": "new@example.org"}], fmt="binary")
        self.assertEqual(seen[0], [{"mail": "old@example.org"}])
        self.assertEqual(len(seen[1]), 1)
        self.assertTrue(seen[1][0].startswith(".Accounts.plist."))
        with open(path, "rb") as f:
            self.assertEqual(plistlib.load(f), [{"mail": "new@example.org"}])
        self.assertEqual(hidden_leftovers(self.data), [])
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o644)

    def test_readers_without_the_lock_see_old_or_new_never_part(self):
        account = "ada@example.org"
        folder = os.path.join(self.data, "Today", account)
        path = os.path.join(folder, "inbox")
        # two snapshots of a few megabytes each, told apart by every subject
        big = [{"messageId": str(i), "subject": "A" * 200, "from": "x" * 50, "date": i} for i in range(3000)]
        other = [dict(m, subject="B" * 200) for m in big]
        cw.write_snapshot(self.data, account, "inbox", big)
        stop = threading.Event()
        failures = []

        def writer():
            try:
                for i in range(12):
                    cw.write_snapshot(self.data, account, "inbox", other if i % 2 == 0 else big,
                                      fmt="binary" if i % 3 else "xml")
            except BaseException as e:  # pragma: no cover - reported below
                failures.append(e)
            finally:
                stop.set()

        thread = threading.Thread(target=writer)
        thread.start()
        reads = 0
        while not stop.is_set() or reads == 0:
            with open(path, "rb") as f:
                data = plistlib.load(f)["data"]  # a partial file would not parse
            self.assertEqual(len(data), 3000)
            self.assertIn(data[0]["subject"][0], "AB")
            self.assertTrue(all(m["subject"] == data[0]["subject"] for m in data))
            reads += 1
        thread.join()
        self.assertEqual(failures, [])
        self.assertEqual(hidden_leftovers(folder), [])
        self.assertEqual(sorted(os.listdir(folder)), ["inbox"])

    def test_a_failed_write_keeps_the_old_file_and_leaves_no_temporary(self):
        cw.write_contacts(self.data, [{"mail": "a@example.org"}], [])
        with mock.patch.object(os, "rename", side_effect=OSError("disk trouble")):
            with self.assertRaises(OSError):
                cw.write_contacts(self.data, [{"mail": "b@example.org"}], None)
        contacts = os.path.join(self.data, "Contacts")
        with open(os.path.join(contacts, "Addresses.plist"), "rb") as f:
            self.assertEqual(plistlib.load(f), [{"mail": "a@example.org"}])
        self.assertEqual(hidden_leftovers(contacts), [])

    def test_envelopes_are_written_as_given(self):
        cw.write_snapshot(self.data, "ada@example.org", "odd", [], envelope={"folder": "x", "data": "not a list"})
        cw.write_snapshot(self.data, "ada@example.org", "plain", [{"messageId": "1"}], folder="To Do",
                          account="someone else")
        with open(os.path.join(self.data, "Today", "ada@example.org", "odd"), "rb") as f:
            self.assertEqual(plistlib.load(f), {"folder": "x", "data": "not a list"})
        with open(os.path.join(self.data, "Today", "ada@example.org", "plain"), "rb") as f:
            self.assertEqual(plistlib.load(f), {"folder": "To Do", "account": "someone else",
                                                "data": [{"messageId": "1"}]})
        with self.assertRaises(ValueError):
            cw.write_snapshot(self.data, "../elsewhere", "x", [])


class LockExclusion(Case):
    def test_a_second_exclusive_lock_fails_while_held(self):
        sidecar = os.path.join(self.data, ".Today.lock")
        with cw.locked(self.data, "Today") as path:
            self.assertEqual(path, sidecar)
            self.assertFalse(try_flock(sidecar, fcntl.LOCK_EX))
            self.assertFalse(try_flock(sidecar, fcntl.LOCK_SH))
        self.assertTrue(try_flock(sidecar, fcntl.LOCK_EX))
        self.assertEqual(os.stat(sidecar).st_mode & 0o777, 0o644)

    def test_shared_locks_admit_readers_but_not_a_writer(self):
        sidecar = os.path.join(self.data, ".Today.lock")
        with cw.locked(self.data, "Today", exclusive=False):
            self.assertTrue(try_flock(sidecar, fcntl.LOCK_SH))
            self.assertFalse(try_flock(sidecar, fcntl.LOCK_EX))

    def test_the_sidecar_sits_beside_the_item(self):
        self.assertEqual(cw.sidecar(self.data, "Accounts.plist"), os.path.join(self.data, ".Accounts.plist.lock"))
        self.assertEqual(cw.sidecar(self.data, "Contacts"), os.path.join(self.data, ".Contacts.lock"))
        self.assertEqual(cw.sidecar(self.data, "Today/ada@example.org"),
                         os.path.join(self.data, "Today", ".ada@example.org.lock"))

    def test_hold_prints_locked_and_really_holds(self):
        holder = Holder(self.root, "Accounts.plist", 30)
        try:
            self.assertEqual(holder.first_line, "locked\n")
            self.assertFalse(try_flock(os.path.join(self.data, ".Accounts.plist.lock"), fcntl.LOCK_EX))
            started = time.monotonic()
            with self.assertRaises(TimeoutError):
                with cw.locked(self.data, "Accounts.plist", timeout=0.3):
                    pass
            self.assertGreaterEqual(time.monotonic() - started, 0.3)
        finally:
            holder.close()
        self.assertTrue(try_flock(os.path.join(self.data, ".Accounts.plist.lock"), fcntl.LOCK_EX))

    def test_a_writer_waits_for_a_brief_holder(self):
        holder = Holder(self.root, "Today", 1, shared=True)
        try:
            self.assertEqual(holder.first_line, "locked\n")
            started = time.monotonic()
            cw.write_snapshot(self.data, "ada@example.org", "inbox", [{"messageId": "1"}])
            self.assertGreaterEqual(time.monotonic() - started, 0.5)
            self.assertEqual(holder.process.wait(timeout=30), 0)
        finally:
            holder.close()

    def test_the_command_line_reports_a_lock_it_cannot_get(self):
        holder = Holder(self.root, "Today", 30)
        try:
            r = run_tool("hold", "--container", self.root, "--item", "Today", "--seconds", "0", "--timeout", "0.2")
            self.assertEqual(r.returncode, 1)
            self.assertEqual(r.stdout, "")
            self.assertIn("locked by another process", r.stderr)
        finally:
            holder.close()


class CommandLine(Case):
    def test_write_renders_avatars_and_keeps_given_envelopes(self):
        contents = {
            "accounts": [{"mail": "ada@example.org", "enabled": 1}],
            "snapshots": [
                {"account": "ada@example.org", "file": "a.plist", "format": "binary", "folder": "INBOX",
                 "messages": [{"messageId": "1", "avatar": {"png": [3, 2, [200, 10, 20]]}},
                              {"messageId": "2", "avatar": "kept as is"}]},
                {"account": "ada@example.org", "file": "b", "envelope": {"account": 1, "data": []}},
            ],
            "contacts": {"addresses": [{"mail": "b@example.org"}], "groups": [{"idx": "1", "name": "G"}]},
        }
        contents_path = os.path.join(self.root, "contents.json")
        with open(contents_path, "w", encoding="utf-8") as f:
            json.dump(contents, f)
        r = run_tool("write", "--container", self.root, contents_path)
        self.assertEqual(r.returncode, 0, r.stderr)
        today = os.path.join(self.data, "Today", "ada@example.org")
        with open(os.path.join(today, "a.plist"), "rb") as f:
            self.assertEqual(f.read(8), b"bplist00")
            f.seek(0)
            envelope = plistlib.load(f)
        self.assertEqual(envelope["account"], "ada@example.org")
        picture = base64.b64decode(envelope["data"][0]["avatar"])
        self.assertTrue(picture.startswith(b"\x89PNG\r\n\x1a\n"))
        self.assertEqual(picture[16:24], b"\x00\x00\x00\x03\x00\x00\x00\x02")  # width 3, height 2
        self.assertEqual(envelope["data"][1]["avatar"], "kept as is")
        with open(os.path.join(today, "b"), "rb") as f:
            self.assertEqual(plistlib.load(f), {"account": 1, "data": []})
        with open(os.path.join(self.data, "Contacts", "Groups.plist"), "rb") as f:
            self.assertEqual(plistlib.load(f), [{"idx": "1", "name": "G"}])

    def test_write_beta(self):
        r = run_tool("write", "--container", self.root, "--beta", "-", input='{"accounts": []}')
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertTrue(os.path.isfile(os.path.join(self.root, "SharedDataBeta", "Accounts.plist")))

    def test_generate_spreads_n_messages_over_files(self):
        now = 1700000000
        r = run_tool("generate", "--container", self.root, "--messages", "1010", "--accounts", "3",
                     "--avatars", "0.05", "--seed", "7", "--mixed-formats", "--now", str(now))
        self.assertEqual(r.returncode, 0, r.stderr)
        with open(os.path.join(self.data, "Accounts.plist"), "rb") as f:
            accounts = plistlib.load(f)
        self.assertEqual([a["enabled"] for a in accounts], [1, 1, 1])
        total, avatars, kinds, formats, ids = 0, 0, set(), set(), set()
        for account in accounts:
            folder = os.path.join(self.data, "Today", account["mail"])
            for name in os.listdir(folder):
                with open(os.path.join(folder, name), "rb") as f:
                    raw = f.read()
                formats.add(raw[:6])
                envelope = plistlib.loads(raw)
                self.assertEqual(set(envelope), {"folder", "account", "data"})
                self.assertLessEqual(len(envelope["data"]), 20)
                for m in envelope["data"]:
                    total += 1
                    self.assertEqual(m["account"], account["mail"])
                    self.assertTrue(now - 30 * 86400 < m["date"] <= now)
                    ids.add((m["account"], m["messageId"]))
                    kinds.add(m["folderStid"])
                    if "avatar" in m:
                        avatars += 1
                        self.assertTrue(base64.b64decode(m["avatar"]).startswith(b"\x89PNG"))
        self.assertEqual(total, 1010)
        self.assertEqual(len(ids), 1010)
        self.assertEqual(formats, {b"<?xml ", b"bplist"})
        self.assertTrue({1, 11, 12} <= kinds)
        self.assertTrue(20 <= avatars <= 90, avatars)
        self.assertEqual(hidden_leftovers(os.path.join(self.data, "Today", accounts[0]["mail"])), [])

    def test_generate_again_replaces_the_earlier_snapshots(self):
        cw.generate(self.root, 100, 2, now=1700000000)
        cw.generate(self.root, 30, 2, now=1700000000)
        total = 0
        for mail in ("user0@example.org", "user1@example.org"):
            folder = os.path.join(self.data, "Today", mail)
            for name in os.listdir(folder):
                with open(os.path.join(folder, name), "rb") as f:
                    self.assertTrue(f.read(6) == b"<?xml ")  # one format unless mixed
                    f.seek(0)
                    total += len(plistlib.load(f)["data"])
        self.assertEqual(total, 30)


if __name__ == "__main__":
    unittest.main()
