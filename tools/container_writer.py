#!/usr/bin/env python3
"""Writes a shared container the way the mail application does, following the lock protocol that
corvina-today reads by (docs/shared-container.md). Standard library only, so that it is a property-list
writer independent of the widget's.

As a module:
    import container_writer as cw
    data = cw.data_folder("/tmp/box")
    cw.write_accounts(data, [{"mail": "ada@example.org", "enabled": 1}])
    cw.write_snapshot(data, "ada@example.org", "inbox", [{"messageId": "1", "date": 1700000000}])

From the shell:
    tools/container_writer.py write --container DIR SPEC.json
    tools/container_writer.py hold --container DIR --item Today [--shared] --seconds 3
    tools/container_writer.py generate --container DIR --messages 10000 --accounts 3
"""
import argparse
import base64
import contextlib
import fcntl
import json
import os
import plistlib
import random
import struct
import sys
import tempfile
import time
import zlib

GROUP_IDENTIFIER = "Q7X2M4K9TZ.corvina"
FORMATS = {"xml": plistlib.FMT_XML, "binary": plistlib.FMT_BINARY}


def container_root(env=os.environ):
    """The container folder as the widget finds it; None when there is none."""
    if "CORVINA_GROUP_CONTAINER" in env:
        return env["CORVINA_GROUP_CONTAINER"] or None
    data_home = env.get("XDG_DATA_HOME") or ""
    if not os.path.isabs(data_home):
        data_home = os.path.join(os.path.expanduser("~"), ".local", "share")
    return os.path.join(data_home, "group-containers", GROUP_IDENTIFIER)


def data_folder(root, beta=False):
    path = os.path.join(root, "SharedDataBeta" if beta else "SharedData")
    os.makedirs(path, exist_ok=True)
    return path


@contextlib.contextmanager
def locked(data, item, exclusive=True, timeout=5.0):
    """Holds the flock() of the sidecar "<data>/.<item>.lock", as readers and writers agree."""
    path = os.path.join(data, "." + item + ".lock")
    fd = os.open(path, os.O_RDWR | os.O_CREAT, 0o644)
    try:
        deadline = time.monotonic() + timeout
        while True:
            try:
                fcntl.flock(fd, (fcntl.LOCK_EX if exclusive else fcntl.LOCK_SH) | fcntl.LOCK_NB)
                break
            except BlockingIOError:
                if time.monotonic() > deadline:
                    raise TimeoutError(f"{path} stays locked")
                time.sleep(0.01)
        yield
    finally:
        os.close(fd)


def write_plist_atomically(path, value, fmt="xml"):
    """Writes under a hidden temporary name, syncs, renames over the final name, syncs the folder."""
    folder = os.path.dirname(path)
    os.makedirs(folder, exist_ok=True)
    fd, temporary = tempfile.mkstemp(prefix="." + os.path.basename(path) + ".", dir=folder)
    try:
        with os.fdopen(fd, "wb") as f:
            plistlib.dump(value, f, fmt=FORMATS[fmt], sort_keys=False)
            f.flush()
            os.fsync(f.fileno())
        os.chmod(temporary, 0o644)
        os.rename(temporary, path)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(temporary)
        raise
    dir_fd = os.open(folder, os.O_RDONLY)
    try:
        os.fsync(dir_fd)
    finally:
        os.close(dir_fd)


def png(width, height, rgb):
    """A solid-colour PNG, made without an imaging library."""
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body) & 0xFFFFFFFF)
    raw = b"".join(b"\x00" + bytes(rgb) * width for _ in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


def _message(message):
    avatar = message.get("avatar")
    if isinstance(avatar, dict) and "png" in avatar:
        w, h, rgb = avatar["png"]
        message = dict(message, avatar=base64.b64encode(png(w, h, rgb)).decode("ascii"))
    return message


def write_accounts(data, accounts, fmt="xml"):
    with locked(data, "Accounts.plist"):
        write_plist_atomically(os.path.join(data, "Accounts.plist"), accounts, fmt)


def write_snapshot(data, account_mail, file_name, messages, fmt="xml", folder="INBOX", envelope=None):
    """One snapshot file Today/<account>/<file_name>; `envelope` replaces the whole root when given."""
    root = envelope if envelope is not None else {
        "folder": folder, "account": account_mail, "data": [_message(m) for m in messages]}
    with locked(data, "Today"):
        write_plist_atomically(os.path.join(data, "Today", account_mail, file_name), root, fmt)


def write_contacts(data, addresses, groups, fmt="xml"):
    with locked(data, "Contacts"):
        write_plist_atomically(os.path.join(data, "Contacts", "Addresses.plist"), addresses, fmt)
        write_plist_atomically(os.path.join(data, "Contacts", "Groups.plist"), groups, fmt)


def write_spec(root, spec, beta=False):
    data = data_folder(root, beta)
    if "accounts" in spec:
        write_accounts(data, spec["accounts"], spec.get("accountsFormat", "xml"))
    for s in spec.get("snapshots", []):
        write_snapshot(data, s["account"], s["file"], s.get("messages", []), s.get("format", "xml"),
                       s.get("folder", "INBOX"), s.get("envelope"))
    if "contacts" in spec:
        write_contacts(data, spec["contacts"].get("addresses", []), spec["contacts"].get("groups", []))


def generate(root, messages, accounts, avatars=0.05, seed=1, per_file=20, now=None):
    """A container for benchmarks: `accounts` enabled accounts, `messages` messages in files of
    `per_file`, XML and binary files alternating, a share of them with a small avatar."""
    rng = random.Random(seed)
    now = int(now if now is not None else time.time())
    data = data_folder(root)
    mails = [f"user{i}@example.org" for i in range(accounts)]
    write_accounts(data, [{"mail": m, "name": m.split("@")[0], "type": 1, "enabled": 1} for m in mails])
    avatar = base64.b64encode(png(16, 16, (70, 130, 180))).decode("ascii")
    written = 0
    file_index = 0
    with locked(data, "Today"):
        while written < messages:
            mail = mails[file_index % accounts]
            batch = []
            for _ in range(min(per_file, messages - written)):
                m = {"messageId": f"<{written}@example.org>", "account": mail, "subject": f"Message number {written}",
                     "from": f"Sender {rng.randrange(1000)}", "folder": "INBOX",
                     "folderStid": rng.choice([1, 1, 1, 11, 12, 2]), "isUnread": rng.randrange(2),
                     "date": now - rng.randrange(30 * 86400)}
                if rng.random() < avatars:
                    m["avatar"] = avatar
                batch.append(m)
                written += 1
            fmt = "binary" if file_index % 2 else "xml"
            write_plist_atomically(os.path.join(data, "Today", mail, f"snapshot-{file_index}.plist"),
                                   {"folder": "INBOX", "account": mail, "data": batch}, fmt)
            file_index += 1
    return data


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = parser.add_subparsers(dest="command", required=True)
    w = sub.add_parser("write", help="write accounts, snapshots and contacts described in a JSON file")
    w.add_argument("--container", required=True)
    w.add_argument("--beta", action="store_true")
    w.add_argument("spec")
    h = sub.add_parser("hold", help="hold a lock (prints 'locked' once held)")
    h.add_argument("--container", required=True)
    h.add_argument("--item", required=True, help="Today, Accounts.plist or Contacts")
    h.add_argument("--shared", action="store_true")
    h.add_argument("--seconds", type=float, required=True)
    g = sub.add_parser("generate", help="write a large container for benchmarks")
    g.add_argument("--container", required=True)
    g.add_argument("--messages", type=int, required=True)
    g.add_argument("--accounts", type=int, default=3)
    g.add_argument("--avatars", type=float, default=0.05)
    g.add_argument("--seed", type=int, default=1)
    args = parser.parse_args(argv)
    if args.command == "write":
        with open(args.spec, encoding="utf-8") as f:
            write_spec(args.container, json.load(f), args.beta)
    elif args.command == "hold":
        with locked(data_folder(args.container), args.item, exclusive=not args.shared):
            print("locked", flush=True)
            time.sleep(args.seconds)
    else:
        generate(args.container, args.messages, args.accounts, args.avatars, args.seed)
    return 0


if __name__ == "__main__":
    sys.exit(main())
