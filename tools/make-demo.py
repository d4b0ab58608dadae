#!/usr/bin/env python3
"""Writes the demo mailbox: a shared container (its root, holding SharedData/) with three accounts, one
of them switched off, snapshots in XML and binary form, contacts with a group, and 25 messages across
Inbox, To Do, Memo, Sent and Archive, some with an avatar of the sender's initials. Dates count back
from the moment it runs, so that the newest rows show today's times. The lock sidecars are written
too (empty files), so that the committed copy can be listed from a read-only checkout.

    python3 tools/make-demo.py                 # rewrites resources/demo (committed, for inspection and tests)
    python3 tools/make-demo.py --out DIR       # a fresh copy elsewhere (scripts/run does this)
"""
import argparse
import os
import plistlib
import shutil
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import container_writer as cw  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
COMMITTED = os.path.normpath(os.path.join(HERE, "..", "resources", "demo"))

INBOX, SENT, ARCHIVE, TODO, MEMO = 1, 2, 5, 11, 12
FOLDER_NAMES = {INBOX: "INBOX", SENT: "Sent", ARCHIVE: "Archive", TODO: "To Do", MEMO: "Memo"}

WORK, STUDIO, OLD = "maria.keller@example.org", "maria@studio-keller.example", "old.address@example.net"

ACCOUNTS = [
    {"mail": WORK, "name": "Maria Keller", "type": 1, "enabled": 1,
     "aliases": [{"mail": "m.keller@example.org", "name": "M. Keller", "account": WORK}]},
    {"mail": STUDIO, "name": "Studio Keller", "type": 2, "enabled": "YES", "aliases": []},
    {"mail": OLD, "name": "Old address", "type": 1, "enabled": 0},
]

# (minutes ago, sender, subject, folder kind, unread, avatar colour or None)
WORK_ROWS = [
    (12, "Jonas Brandt", "Draft agenda for Thursday", INBOX, 1, (52, 120, 246)),
    (47, "Lea Vogel", "Re: Invoice 2026-114", INBOX, 1, (231, 76, 60)),
    (95, "Build server", "Nightly build finished", INBOX, 0, None),
    (140, "Tomás Ferreira", "Photos from the workshop", INBOX, 0, (230, 126, 34)),
    (210, "Lea Vogel", "Call the printer about proofs", TODO, 1, (231, 76, 60)),
    (260, "Jonas Brandt", "Review the grant application", TODO, 0, (52, 120, 246)),
    (330, "Anna Lindqvist", "Send the signed contract back", TODO, 1, (155, 89, 182)),
    (1500, "Facilities", "Badge renewal before Friday", TODO, 0, None),
    (2900, "Jonas Brandt", "Prepare slides for the board", TODO, 0, (52, 120, 246)),
    (4400, "Lea Vogel", "Book the venue for June", TODO, 0, None),
    (390, "Maria Keller", "Ideas for the autumn newsletter", MEMO, 0, None),
    (1700, "Maria Keller", "Wi-Fi password for guests", MEMO, 0, None),
    (3100, "Maria Keller", "Reading list", MEMO, 0, None),
    (520, "Maria Keller", "Re: Draft agenda for Thursday", SENT, 0, None),
    (9000, "Anna Lindqvist", "Quarterly numbers", ARCHIVE, 0, (155, 89, 182)),
]

STUDIO_ROWS = [
    (25, "Noor Haddad", "Logo sketches, second round", INBOX, 1, (26, 188, 156)),
    (180, "Print Shop North", "Your order has shipped", INBOX, 0, None),
    (300, "Noor Haddad", "Pick colours for the poster", TODO, 1, (26, 188, 156)),
    (1600, "Client portal", "Approve the final artwork", TODO, 0, None),
    (2200, "Ben Okafor", "Send invoice for March", TODO, 0, (241, 196, 15)),
    (700, "Maria Keller", "Studio supplies to reorder", MEMO, 0, None),
    (2600, "Maria Keller", "Font licences", MEMO, 0, None),
    (5000, "Maria Keller", "Portfolio update plan", MEMO, 0, None),
    (3300, "Ben Okafor", "Lunch next week?", INBOX, 0, (241, 196, 15)),
]

# the switched-off account still has a snapshot: the widget must not show it
OLD_ROWS = [(60, "Someone", "You should not see this message", INBOX, 1, None)]

ADDRESSES = [
    {"mail": "jonas.brandt@example.org", "firstName": "Jonas", "lastName": "Brandt", "company": "Keller & Partner",
     "nickname": "", "rank": 9},
    {"mail": "lea.vogel@example.org", "firstName": "Lea", "lastName": "Vogel", "company": "Keller & Partner",
     "nickname": "Lea", "rank": 7},
    {"mail": "noor@haddad-design.example", "firstName": "Noor", "lastName": "Haddad", "company": "", "nickname": "",
     "rank": 5},
    {"mail": "orders@printshop-north.example", "firstName": "", "lastName": "", "company": "Print Shop North",
     "nickname": "", "rank": 2},
]
GROUPS = [{"idx": "1", "name": "Team", "addresses": ADDRESSES[:2]}]

# 5 x 7 capitals, one string of five columns per row
GLYPHS = {
    "A": "01110 10001 10001 11111 10001 10001 10001", "B": "11110 10001 10001 11110 10001 10001 11110",
    "C": "01110 10001 10000 10000 10000 10001 01110", "D": "11110 10001 10001 10001 10001 10001 11110",
    "E": "11111 10000 10000 11110 10000 10000 11111", "F": "11111 10000 10000 11110 10000 10000 10000",
    "G": "01110 10001 10000 10111 10001 10001 01111", "H": "10001 10001 10001 11111 10001 10001 10001",
    "I": "01110 00100 00100 00100 00100 00100 01110", "J": "00111 00010 00010 00010 00010 10010 01100",
    "K": "10001 10010 10100 11000 10100 10010 10001", "L": "10000 10000 10000 10000 10000 10000 11111",
    "M": "10001 11011 10101 10101 10001 10001 10001", "N": "10001 10001 11001 10101 10011 10001 10001",
    "O": "01110 10001 10001 10001 10001 10001 01110", "P": "11110 10001 10001 11110 10000 10000 10000",
    "Q": "01110 10001 10001 10001 10101 10010 01101", "R": "11110 10001 10001 11110 10100 10010 10001",
    "S": "01111 10000 10000 01110 00001 00001 11110", "T": "11111 00100 00100 00100 00100 00100 00100",
    "U": "10001 10001 10001 10001 10001 10001 01110", "V": "10001 10001 10001 10001 10001 01010 00100",
    "W": "10001 10001 10001 10101 10101 10101 01010", "X": "10001 10001 01010 00100 01010 10001 10001",
    "Y": "10001 10001 01010 00100 00100 00100 00100", "Z": "11111 00001 00010 00100 01000 10000 11111",
}


def initials_avatar(name, colour, size=40, scale=2):
    """A round avatar of `colour` with the name's initials in white, as PNG bytes (RGBA)."""
    letters = "".join(word[0] for word in name.split()[:2]).upper()
    letters = "".join(c for c in letters if c in GLYPHS) or "?"
    glyphs = [GLYPHS[c].split() for c in letters if c in GLYPHS]
    gap = scale
    text_w = len(glyphs) * 5 * scale + (len(glyphs) - 1) * gap
    text_h = 7 * scale
    left, top = (size - text_w) // 2, (size - text_h) // 2
    centre, radius = (size - 1) / 2, size / 2 - 0.5
    rows = []
    for y in range(size):
        row = []
        for x in range(size):
            # coverage of the disc, 4 x 4 samples a pixel, for a smooth edge
            inside = sum((x - centre + (i + 0.5) / 4 - 0.5) ** 2 + (y - centre + (j + 0.5) / 4 - 0.5) ** 2
                         <= radius ** 2 for i in range(4) for j in range(4))
            alpha = inside * 255 // 16
            tx, ty = x - left, y - top
            lit = False
            if 0 <= ty < text_h and tx >= 0:
                k, within = divmod(tx, 5 * scale + gap)
                if k < len(glyphs) and within < 5 * scale:
                    lit = glyphs[k][ty // scale][within // scale] == "1"
            row.append((255, 255, 255, alpha) if lit else (*colour, alpha))
        rows.append(row)
    return cw.png_from_rows(rows)


def messages(account, rows, now, prefix):
    out = []
    for i, (minutes, sender, subject, kind, unread, colour) in enumerate(rows):
        m = {"messageId": f"<{prefix}-{i + 1}@{account.split('@')[1]}>", "account": account, "from": sender,
             "subject": subject, "folder": FOLDER_NAMES[kind], "folderStid": kind, "isUnread": unread,
             "date": now - minutes * 60}
        if colour:
            m["avatar"] = cw.avatar_text(initials_avatar(sender, colour))
        out.append(m)
    return out


def prepare(out):
    """A clean SharedData under `out`; refuses to wipe one that holds accounts other than the demo's."""
    data = os.path.join(out, "SharedData")
    accounts = os.path.join(data, "Accounts.plist")
    if os.path.exists(accounts):
        try:
            with open(accounts, "rb") as f:
                mails = {a.get("mail") for a in plistlib.load(f)}
        except Exception:
            mails = {None}
        if not mails <= {a["mail"] for a in ACCOUNTS}:
            raise SystemExit(f"make-demo: {data} holds other accounts than the demo's; not overwriting it")
    if os.path.isdir(data):
        # the lock sidecars stay: they are never deleted, and a reader that cannot create one (a
        # read-only checkout) needs them to be there already
        for name in os.listdir(data):
            path = os.path.join(data, name)
            if name.endswith(".lock") and name.startswith("."):
                continue
            if os.path.isdir(path) and not os.path.islink(path):
                shutil.rmtree(path)
            else:
                os.unlink(path)
    return cw.data_folder(out)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", default=COMMITTED, help="container root to (re)write (default: resources/demo)")
    parser.add_argument("--now", type=int, help="seconds since 1970 that the dates count back from (default: now)")
    args = parser.parse_args(argv)
    now = int(time.time()) if args.now is None else args.now
    data = prepare(args.out)
    cw.write_accounts(data, ACCOUNTS)
    w = messages(WORK, WORK_ROWS, now, "work")
    s = messages(STUDIO, STUDIO_ROWS, now, "studio")
    cw.write_snapshot(data, WORK, "inbox.plist", w[:4] + w[13:], "xml", folder="INBOX")
    cw.write_snapshot(data, WORK, "todo.plist", w[4:10], "binary", folder="To Do")
    cw.write_snapshot(data, WORK, "memo", w[10:13], "xml", folder="Memo")  # no extension: read all the same
    cw.write_snapshot(data, STUDIO, "latest.plist", s, "binary", folder="INBOX")
    cw.write_snapshot(data, OLD, "inbox.plist", messages(OLD, OLD_ROWS, now, "old"), "xml", folder="INBOX")
    cw.write_contacts(data, ADDRESSES, GROUPS)
    return 0


if __name__ == "__main__":
    sys.exit(main())
