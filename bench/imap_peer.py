#!/usr/bin/env python3
"""The Python peer of the mail bridge's first sync, for bench/BridgeSyncBench: one account read with
imaplib and written into the shared folder with plistlib, by the lock and atomic-replace protocol
of docs/shared-container.md (through tools/container_writer.py).

It asks the server for what corvina-mail-bridge --once asks for, in the same order: LOGIN, EXAMINE
of the inbox, FETCH (UID FLAGS INTERNALDATE ENVELOPE) of the newest N message numbers, EXAMINE of
the inbox again, UID SEARCH FLAGGED, UID FETCH of the newest N flagged UIDs, LOGOUT. (imaplib adds
its own CAPABILITY after the greeting.) It writes the same files: Accounts.plist, and inbox.plist and
todo.plist under Today/<mail>, with the same message dictionaries.

    imap_peer.py --host H --port P --user U --mail M --password-command "echo secret" --container DIR
"""
import argparse
import datetime
import email.header
import email.utils
import imaplib
import os
import re
import shlex
import subprocess
import sys
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
import container_writer as cw  # noqa: E402

INBOX_STID, TODO_STID = 1, 11

TOKEN = re.compile(rb'\s*(?:(\()|(\))|"((?:[^"\\]|\\.)*)"|\{(\d+)\}\s*$|([^\s()"]+))')


def tokens(data):
    """The tokens of imaplib's FETCH answer: bytes pieces and (text ending in {n}, literal) pairs."""
    out = []
    for piece in data:
        text, literal = (piece[0], piece[1]) if isinstance(piece, tuple) else (piece, None)
        pos = 0
        while pos < len(text):
            m = TOKEN.match(text, pos)
            if m is None or m.end() == pos:
                break
            pos = m.end()
            if m.group(1):
                out.append("(")
            elif m.group(2):
                out.append(")")
            elif m.group(3) is not None:
                out.append(re.sub(rb"\\(.)", rb"\1", m.group(3)))
            elif m.group(4) is not None:
                out.append(literal)
            elif m.group(5) is not None:
                atom = m.group(5)
                out.append(None if atom.upper() == b"NIL" else atom)
    return out


def nest(items):
    """Tokens into nested lists."""
    stack = [[]]
    for item in items:
        if item == "(":
            stack.append([])
        elif item == ")":
            done = stack.pop()
            stack[-1].append(done)
        else:
            stack[-1].append(item)
    return stack[0]


def text(raw):
    return None if raw is None else raw.decode("utf-8", "replace")


def decoded(raw):
    """RFC 2047 encoded words of a header value decoded to text."""
    if raw is None:
        return None
    value = text(raw)
    try:
        return str(email.header.make_header(email.header.decode_header(value)))
    except (ValueError, LookupError):
        return value


def sender(addresses):
    if not addresses:
        return ""
    name, _, mailbox, host = addresses[0]
    personal = (decoded(name) or "").strip()
    if personal:
        return personal
    mailbox, host = text(mailbox) or "", text(host) or ""
    return f"{mailbox}@{host}" if host else mailbox


def envelopes(data):
    """The messages of a FETCH answer, by UID: uid, seen, subject, from, date (seconds)."""
    found = []
    items = nest(tokens(data))
    for i in range(0, len(items) - 1):
        if not isinstance(items[i + 1], list) or isinstance(items[i], list):
            continue
        fields = items[i + 1]
        attrs = {fields[k].upper(): fields[k + 1] for k in range(0, len(fields) - 1, 2)
                 if isinstance(fields[k], bytes)}
        if b"ENVELOPE" not in attrs or b"UID" not in attrs:
            continue
        env = attrs[b"ENVELOPE"]
        date = None
        if env[0] is not None:
            try:
                date = int(email.utils.parsedate_to_datetime(text(env[0])).timestamp())
            except (TypeError, ValueError, IndexError):
                date = None
        if date is None and attrs.get(b"INTERNALDATE") is not None:
            received = datetime.datetime.strptime(text(attrs[b"INTERNALDATE"]).strip(), "%d-%b-%Y %H:%M:%S %z")
            date = int(received.timestamp())
        flags = {f.lower() for f in attrs.get(b"FLAGS") or []}
        found.append({"uid": int(attrs[b"UID"]), "seen": b"\\seen" in flags,
                      "subject": decoded(env[1]), "from": sender(env[2]), "date": date})
    found.sort(key=lambda e: e["uid"])
    return found


def message(envelope, mail, folder, uid_validity, stid):
    entry = {
        "messageId": f"{urllib.parse.quote(folder, safe='')}/{uid_validity}/{envelope['uid']}",
        "account": mail,
        "from": envelope["from"],
        "folder": folder,
        "folderStid": stid,
        "isUnread": 0 if envelope["seen"] else 1,
    }
    if envelope["subject"] is not None:
        entry["subject"] = envelope["subject"]
    if envelope["date"] is not None:
        entry["date"] = envelope["date"]
    return entry


def examine(imap, folder):
    typ, data = imap.select(folder, readonly=True)
    if typ != "OK":
        raise SystemExit(f"folder missing: {folder}")
    exists = int(data[0])
    uid_validity = int(imap.untagged_responses.get("UIDVALIDITY", [b"0"])[-1])
    return exists, uid_validity


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("host", "user", "mail", "password-command", "container"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--folder", default="INBOX")
    parser.add_argument("--messages", type=int, default=50)
    args = parser.parse_args(argv)

    # the password as the bridge gets it: the first line the command prints, run without a shell
    password = subprocess.run(shlex.split(args.password_command), check=True, capture_output=True,
                              text=True).stdout.split("\n", 1)[0]
    data = cw.data_folder(args.container)
    cw.write_accounts(data, [{"mail": args.mail, "enabled": True, "name": ""}])

    imap = imaplib.IMAP4(args.host, args.port)
    imap.login(args.user, password)
    folder, n = args.folder, args.messages
    exists, uid_validity = examine(imap, folder)
    inbox = []
    if exists:
        typ, answer = imap.fetch(f"{max(1, exists - n + 1)}:{exists}", "(UID FLAGS INTERNALDATE ENVELOPE)")
        inbox = envelopes(answer)
    examine(imap, folder)
    typ, answer = imap.uid("SEARCH", "FLAGGED")
    flagged = sorted(int(uid) for uid in (answer[0] or b"").split())[-n:]
    todo = []
    if flagged:
        typ, answer = imap.uid("FETCH", ",".join(map(str, flagged)), "(UID FLAGS INTERNALDATE ENVELOPE)")
        todo = envelopes(answer)
    imap.logout()

    files = []
    for name, found, stid in (("inbox.plist", inbox, INBOX_STID), ("todo.plist", todo, TODO_STID)):
        envelope = {"folder": folder, "account": args.mail,
                    "data": [message(e, args.mail, folder, uid_validity, stid) for e in found]}
        files.append((name, cw.serialise(envelope, "xml")))
    account_folder = os.path.join(data, cw.TODAY, args.mail)
    with cw.locked(data, cw.TODAY):
        os.makedirs(account_folder, exist_ok=True)
        for name, payload in files:
            cw.write_bytes_atomically(os.path.join(account_folder, name), payload)


if __name__ == "__main__":
    main()
