#!/usr/bin/env python3
"""Writes a shared container the way the mail application does, by the lock protocol that
corvina-today reads by (docs/shared-container.md). Standard library only, so that it is a
property-list writer independent of the widget's own reader.

As a module:
    import container_writer as cw
    data = cw.data_folder(cw.container_root())            # or cw.data_folder("/tmp/box")
    cw.write_accounts(data, [{"mail": "ada@example.org", "enabled": 1}])
    cw.write_snapshot(data, "ada@example.org", "inbox", [{"messageId": "1", "date": 1700000000}])

From the shell:
    tools/container_writer.py write --container DIR [--beta] CONTENTS.json
    tools/container_writer.py hold --container DIR --item Today [--shared] --seconds 3
    tools/container_writer.py generate --container DIR --messages 10000 --accounts 3 [--mixed-formats]

CONTENTS.json:
    {"accounts": [account, ...],
     "snapshots": [{"account": "ada@example.org", "file": "inbox", "format": "xml" | "binary",
                    "folder": "INBOX", "envelopeAccount": "...", "messages": [message, ...]},
                   {"account": "ada@example.org", "file": "odd", "envelope": {...written as is...}}],
     "contacts": {"addresses": [address, ...], "groups": [group, ...]}}
A message's "avatar" may be {"png": [width, height, [r, g, b]]}: a solid square rendered to Base64 PNG.
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
RELEASE_FOLDER = "SharedData"
BETA_FOLDER = "SharedDataBeta"
DEFAULT_BUNDLE_IDENTIFIER = "org.corvina.mail.today"
BETA_PREFIX = "org.corvina.mail.beta"
LOCK_TIMEOUT = 5.0  # what the widget waits for a lock before it gives up

FORMATS = {"xml": plistlib.FMT_XML, "binary": plistlib.FMT_BINARY}

# the coordinated items of the data folder: every write takes the lock of one of them
TODAY, ACCOUNTS, CONTACTS = "Today", "Accounts.plist", "Contacts"


class NoContainer(Exception):
    """CORVINA_GROUP_CONTAINER is set but empty: there is no shared folder to write to."""


def container_root(env=None):
    """The container folder exactly as the widget finds it, or None when there is none."""
    env = os.environ if env is None else env
    if "CORVINA_GROUP_CONTAINER" in env:
        chosen = env["CORVINA_GROUP_CONTAINER"]
        return os.path.abspath(chosen) if chosen else None
    data_home = env.get("XDG_DATA_HOME") or ""
    if not os.path.isabs(data_home):
        # a relative XDG_DATA_HOME is invalid and ignored, as the widget does
        home = env.get("HOME") or os.path.expanduser("~")
        data_home = os.path.join(home, ".local", "share")
    return os.path.normpath(os.path.join(data_home, "group-containers", GROUP_IDENTIFIER))


def is_beta(env=None):
    """Whether the widget of this environment reads the beta data folder."""
    env = os.environ if env is None else env
    identifier = env.get("CORVINA_BUNDLE_IDENTIFIER") or DEFAULT_BUNDLE_IDENTIFIER
    return identifier.startswith(BETA_PREFIX)


def data_folder(root, beta=False):
    """root/SharedData (root/SharedDataBeta for beta builds), created when missing."""
    if not root:
        raise NoContainer("no shared container (CORVINA_GROUP_CONTAINER is set but empty)")
    path = os.path.join(root, BETA_FOLDER if beta else RELEASE_FOLDER)
    os.makedirs(path, exist_ok=True)
    return path


def sidecar(data, item):
    """The lock file that guards `item` (a path relative to the data folder): ".<name>.lock" in
    the item's parent folder."""
    path = os.path.join(data, item)
    return os.path.join(os.path.dirname(path), "." + os.path.basename(path) + ".lock")


@contextlib.contextmanager
def locked(data, item, exclusive=True, timeout=LOCK_TIMEOUT):
    """Holds the flock() on the sidecar of `item` ("<data>/.Today.lock" for "Today"), waiting at most
    `timeout` seconds; TimeoutError when another holder keeps it longer. The sidecar is created
    (0644) when missing and never deleted: a deleted sidecar would let two holders lock different
    files."""
    path = sidecar(data, item)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    fd = os.open(path, os.O_RDWR | os.O_CREAT | os.O_NOFOLLOW | os.O_CLOEXEC, 0o644)
    try:
        mode = fcntl.LOCK_EX if exclusive else fcntl.LOCK_SH
        deadline = time.monotonic() + timeout
        pause = 0.001
        while True:
            try:
                fcntl.flock(fd, mode | fcntl.LOCK_NB)
                break
            except BlockingIOError:
                left = deadline - time.monotonic()
                if left <= 0:
                    raise TimeoutError(f"{path} is locked by another process; gave up after {timeout:g} s")
                # short pauses first: readers hold their locks only for a moment
                time.sleep(min(pause, left))
                pause = min(pause * 2, 0.05)
        try:
            yield path
        finally:
            fcntl.flock(fd, fcntl.LOCK_UN)
    finally:
        os.close(fd)


def serialise(value, fmt="xml"):
    """The bytes of a property list; `fmt` is "xml", "binary" or a plistlib format."""
    return plistlib.dumps(value, fmt=FORMATS.get(fmt, fmt), sort_keys=False)


def _fsync_folder(folder):
    fd = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.fsync(fd)
    finally:
        os.close(fd)


def write_bytes_atomically(path, payload):
    """Replaces `path` by `payload` so that a reader sees the old file or the new one, never a part:
    a hidden temporary in the same folder (readers skip names beginning with "."), fsync, rename over
    the final name, fsync of the folder. The caller holds the item's lock."""
    folder = os.path.dirname(os.path.abspath(path))
    os.makedirs(folder, exist_ok=True)
    fd, temporary = tempfile.mkstemp(prefix="." + os.path.basename(path) + ".", suffix=".tmp", dir=folder)
    try:
        try:
            os.fchmod(fd, 0o644)
            view = memoryview(payload)
            while view:
                view = view[os.write(fd, view):]
            os.fsync(fd)
        finally:
            os.close(fd)
        os.rename(temporary, path)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(temporary)
        raise
    _fsync_folder(folder)


def write_plist_atomically(path, value, fmt="xml"):
    """Serialises `value` and replaces `path` with it atomically (see write_bytes_atomically). Takes
    no lock: use it inside `locked`, or through write_accounts / write_snapshot / write_contacts."""
    write_bytes_atomically(path, serialise(value, fmt))


# --- avatars -----------------------------------------------------------------------------------

def png_from_rows(rows):
    """A PNG of `rows`: a list of rows, each a list of (r, g, b) pixels, or of (r, g, b, a) for an
    image with transparency; 8 bits a channel. No imaging library."""
    height, width = len(rows), len(rows[0])
    channels = len(rows[0][0])
    if channels not in (3, 4) or any(len(row) != width for row in rows):
        raise ValueError("rows must be of equal length, of (r, g, b) or (r, g, b, a) pixels")

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body) & 0xFFFFFFFF)
    raw = b"".join(b"\x00" + b"".join(bytes(pixel) for pixel in row) for row in rows)
    colour_type = 2 if channels == 3 else 6  # truecolour, with alpha for 4 channels
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def png(width, height, rgb):
    """A solid-colour PNG of width x height."""
    if not (0 < width <= 4096 and 0 < height <= 4096):
        raise ValueError(f"avatar size {width}x{height} is out of range")
    return png_from_rows([[tuple(rgb)] * width] * height)


def avatar_text(png_bytes):
    """The "avatar" value of a message: Base64 text of the image file's bytes."""
    return base64.b64encode(png_bytes).decode("ascii")


def _message(message):
    """A message dictionary as written: an avatar given as {"png": [w, h, [r, g, b]]} is rendered."""
    avatar = message.get("avatar") if isinstance(message, dict) else None
    if isinstance(avatar, dict) and "png" in avatar:
        w, h, rgb = avatar["png"]
        message = dict(message, avatar=avatar_text(png(w, h, rgb)))
    return message


# --- the files of the data folder --------------------------------------------------------------

def write_accounts(data, accounts, fmt="xml"):
    """Accounts.plist: the array of account dictionaries."""
    payload = serialise(list(accounts), fmt)
    with locked(data, ACCOUNTS):
        write_bytes_atomically(os.path.join(data, ACCOUNTS), payload)


def _account_folder_name(account_mail):
    if not isinstance(account_mail, str) or account_mail in ("", ".", "..") or "/" in account_mail:
        raise ValueError(f"{account_mail!r} cannot name an account folder")
    return account_mail


def snapshot_envelope(messages, folder="INBOX", account=None):
    return {"folder": folder, "account": account, "data": [_message(m) for m in messages]}


def write_snapshot(data, account_mail, file_name, messages, fmt="xml", folder="INBOX", account=None,
                   envelope=None):
    """Today/<account_mail>/<file_name>: the envelope {"folder", "account", "data": messages}.
    `account` is the envelope's "account" value (the account's mail by default); `envelope`, when
    given, is written as the whole root instead, as it is (tests use it for odd envelopes)."""
    if envelope is None:
        envelope = snapshot_envelope(messages, folder, account_mail if account is None else account)
    path = os.path.join(data, TODAY, _account_folder_name(account_mail), file_name)
    if os.path.relpath(path, os.path.join(data, TODAY, account_mail)).startswith(".."):
        raise ValueError(f"{file_name!r} leaves the account folder")
    payload = serialise(envelope, fmt)
    with locked(data, TODAY):
        write_bytes_atomically(path, payload)


def write_contacts(data, addresses, groups, fmt="xml"):
    """Contacts/Addresses.plist and Contacts/Groups.plist, replaced together under one lock; None
    leaves that file as it is."""
    files = [(name, serialise(list(value), fmt)) for name, value in
             (("Addresses.plist", addresses), ("Groups.plist", groups)) if value is not None]
    with locked(data, CONTACTS):
        for name, payload in files:
            write_bytes_atomically(os.path.join(data, CONTACTS, name), payload)


def write_contents(root, contents, beta=False):
    """Writes what a JSON description of the contents holds (see the module's help)."""
    data = data_folder(root, beta)
    if "accounts" in contents:
        write_accounts(data, contents["accounts"], contents.get("accountsFormat", "xml"))
    for s in contents.get("snapshots", []):
        write_snapshot(data, s["account"], s["file"], s.get("messages", []), s.get("format", "xml"),
                       s.get("folder", "INBOX"), s.get("envelopeAccount"), s.get("envelope"))
    if "contacts" in contents:
        contacts = contents["contacts"]
        write_contacts(data, contacts.get("addresses"), contacts.get("groups"), contacts.get("format", "xml"))
    return data


# --- benchmark containers ----------------------------------------------------------------------

FIRST = ["Ada", "Ben", "Chloe", "Dario", "Elif", "Farid", "Greta", "Hugo", "Ines", "Jonas", "Kaito", "Lena",
         "Mateo", "Nora", "Oskar", "Priya", "Quentin", "Rosa", "Sven", "Talia"]
LAST = ["Abara", "Berg", "Costa", "Dahl", "Eriksen", "Fontaine", "Gupta", "Horvat", "Ito", "Jansen",
        "Kowalski", "Laine", "Moreau", "Novak", "Ortega", "Petrov", "Quist", "Rossi", "Sato", "Tamm"]
TOPICS = ["Weekly report", "Re: Budget draft", "Meeting notes", "Invoice", "Travel plans", "Fwd: Slides",
          "Question about the release", "Lunch on Friday?", "Contract review", "Photos", "Reminder",
          "Re: Re: Schedule", "Welcome aboard", "Server maintenance", "Quarterly numbers"]
KINDS = [1, 1, 1, 1, 11, 12, 2, 5]  # mostly Inbox, some To Do and Memo, a few Sent and Archive


def generate(root, messages, accounts, avatars=0.05, seed=1, mixed_formats=False, per_file=20, now=None,
             beta=False):
    """A container for benchmarks: `accounts` enabled accounts, `messages` messages in snapshot files
    of `per_file` messages dealt round the accounts, dated over the 30 days before `now`, a share
    `avatars` of them with a small avatar; XML files, or XML and binary alternating with
    `mixed_formats`. Earlier generated snapshots of these accounts are removed first."""
    if messages < 0 or accounts < 1 or per_file < 1:
        raise ValueError("need messages >= 0, accounts >= 1, per_file >= 1")
    rng = random.Random(seed)
    now = int(time.time() if now is None else now)
    data = data_folder(root, beta)
    mails = [f"user{i}@example.org" for i in range(accounts)]
    write_accounts(data, [{"mail": m, "name": f"User {i}", "type": 1, "enabled": 1, "aliases": []}
                          for i, m in enumerate(mails)])
    pictures = [avatar_text(png(16, 16, (rng.randrange(40, 220), rng.randrange(40, 220), rng.randrange(40, 220))))
                for _ in range(8)]
    senders = [f"{f} {l}" for f in FIRST for l in LAST]
    # everything is serialised before the lock is taken, so that readers wait only for the renames
    files = []
    written = 0
    while written < messages:
        index = len(files)
        mail = mails[index % accounts]
        batch = []
        for _ in range(min(per_file, messages - written)):
            kind = rng.choice(KINDS)
            m = {"subject": f"{rng.choice(TOPICS)} #{written}", "messageId": f"<{written}.{seed}@generated.example>",
                 "from": rng.choice(senders), "account": mail,
                 "folder": {1: "INBOX", 11: "To Do", 12: "Memo", 2: "Sent", 5: "Archive"}[kind],
                 "folderStid": kind, "isUnread": int(rng.random() < 0.3), "date": now - rng.randrange(30 * 86400)}
            if rng.random() < avatars:
                m["avatar"] = rng.choice(pictures)
            batch.append(m)
            written += 1
        fmt = "binary" if mixed_formats and index % 2 else "xml"
        files.append((mail, f"snapshot-{index:06d}.plist",
                      serialise({"folder": "INBOX", "account": mail, "data": batch}, fmt)))
    with locked(data, TODAY):
        for mail in mails:
            folder = os.path.join(data, TODAY, mail)
            if os.path.isdir(folder):
                for name in os.listdir(folder):
                    if name.startswith("snapshot-"):
                        os.unlink(os.path.join(folder, name))
        for mail, name, payload in files:
            write_bytes_atomically(os.path.join(data, TODAY, mail, name), payload)
    return data


# --- command line ------------------------------------------------------------------------------

def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = parser.add_subparsers(dest="command", required=True)

    w = sub.add_parser("write", help="write the accounts, snapshots and contacts that a JSON file describes")
    w.add_argument("--container", required=True, help="the container root (the folder that holds SharedData)")
    w.add_argument("--beta", action="store_true", help="write SharedDataBeta")
    w.add_argument("contents", metavar="CONTENTS.json", help="JSON file, or - for standard input")

    h = sub.add_parser("hold", help="hold an item's lock; prints 'locked' once it is held")
    h.add_argument("--container", required=True)
    h.add_argument("--beta", action="store_true")
    h.add_argument("--item", required=True, help="Today, Accounts.plist or Contacts")
    h.add_argument("--shared", action="store_true", help="a shared lock, as the widget takes for Today")
    h.add_argument("--seconds", type=float, required=True, help="how long to hold it")
    h.add_argument("--timeout", type=float, default=LOCK_TIMEOUT, help="how long to wait for it")

    g = sub.add_parser("generate", help="write a large container for benchmarks")
    g.add_argument("--container", required=True)
    g.add_argument("--beta", action="store_true")
    g.add_argument("--messages", type=int, required=True)
    g.add_argument("--accounts", type=int, default=3)
    g.add_argument("--avatars", type=float, default=0.05, help="share of messages with an avatar")
    g.add_argument("--seed", type=int, default=1)
    g.add_argument("--per-file", type=int, default=20, help="messages per snapshot file")
    g.add_argument("--mixed-formats", action="store_true", help="alternate XML and binary files")
    g.add_argument("--now", type=int, help="seconds since 1970 that dates count back from (default: now)")

    args = parser.parse_args(argv)
    try:
        if args.command == "write":
            if args.contents == "-":
                contents = json.load(sys.stdin)
            else:
                with open(args.contents, encoding="utf-8") as f:
                    contents = json.load(f)
            write_contents(args.container, contents, args.beta)
        elif args.command == "hold":
            with locked(data_folder(args.container, args.beta), args.item, not args.shared, args.timeout):
                print("locked", flush=True)
                time.sleep(args.seconds)
        else:
            generate(args.container, args.messages, args.accounts, args.avatars, args.seed, args.mixed_formats,
                     args.per_file, args.now, args.beta)
    except (OSError, ValueError, KeyError, TypeError, OverflowError, NoContainer) as e:
        print(f"container_writer: {type(e).__name__}: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
