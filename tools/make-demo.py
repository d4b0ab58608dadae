#!/usr/bin/env python3
"""Writes the demo mailbox: a shared container with three accounts (one switched off), snapshots in
XML and binary form, contacts, and about 25 messages across Inbox, To Do, Memo and other folders.
Dates are set relative to the moment it runs, so that the newest rows show today's times.

    python3 tools/make-demo.py                 # rewrites resources/demo (committed)
    python3 tools/make-demo.py --out DIR       # a fresh copy elsewhere (the run script does this)
"""
import argparse
import os
import shutil
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import container_writer as cw  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_OUT = os.path.join(HERE, "..", "resources", "demo")

INBOX, TODO, MEMO, SENT, ARCHIVE = 1, 11, 12, 2, 5

ACCOUNTS = [
    {"mail": "maria.keller@example.org", "name": "Maria Keller", "type": 1, "enabled": 1,
     "aliases": [{"mail": "m.keller@example.org", "name": "M. Keller", "account": "maria.keller@example.org"}]},
    {"mail": "maria@studio-keller.example", "name": "Studio Keller", "type": 2, "enabled": "YES"},
    {"mail": "old.address@example.net", "name": "Old address", "type": 1, "enabled": 0},
]

# (minutes ago, sender, subject, folder kind, unread, avatar colour or None)
WORK = [
    (12, "Jonas Brandt", "Draft agenda for Thursday", INBOX, 1, (52, 120, 246)),
    (47, "Lea Vogel", "Re: Invoice 2026-114", INBOX, 1, None),
    (95, "Build server", "Nightly build finished", INBOX, 0, None),
    (140, "Tomás Ferreira", "Photos from the workshop", INBOX, 0, (230, 126, 34)),
    (210, "Lea Vogel", "Call the printer about proofs", TODO, 1, None),
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

STUDIO = [
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
OLD = [(60, "Someone", "You should not see this message", INBOX, 1, None)]


def messages(account, rows, now, prefix):
    out = []
    for i, (minutes, sender, subject, kind, unread, colour) in enumerate(rows):
        m = {"messageId": f"<{prefix}-{i}@example.org>", "account": account, "from": sender, "subject": subject,
             "folder": {INBOX: "INBOX", TODO: "To Do", MEMO: "Memo", SENT: "Sent", ARCHIVE: "Archive"}[kind],
             "folderStid": kind, "isUnread": unread, "date": now - minutes * 60}
        if colour:
            m["avatar"] = {"png": [32, 32, list(colour)]}
        out.append(m)
    return out


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--out", default=DEFAULT_OUT, help="container folder to (re)write")
    args = parser.parse_args()
    now = int(time.time())
    data = os.path.join(args.out, "SharedData")
    if os.path.isdir(data):
        shutil.rmtree(data)
    data = cw.data_folder(args.out)
    cw.write_accounts(data, ACCOUNTS)
    work, studio, old = (a["mail"] for a in ACCOUNTS)
    w = messages(work, WORK, now, "work")
    s = messages(studio, STUDIO, now, "studio")
    cw.write_snapshot(data, work, "inbox.plist", w[:4] + w[13:], "xml", folder="INBOX")
    cw.write_snapshot(data, work, "todo.plist", w[4:10], "binary", folder="To Do")
    cw.write_snapshot(data, work, "memo", w[10:13], "xml", folder="Memo")
    cw.write_snapshot(data, studio, "latest.plist", s, "binary")
    cw.write_snapshot(data, old, "inbox.plist", messages(old, OLD, now, "old"), "xml")
    cw.write_contacts(data, [
        {"mail": "jonas.brandt@example.org", "firstName": "Jonas", "lastName": "Brandt", "rank": 9},
        {"mail": "lea.vogel@example.org", "firstName": "Lea", "lastName": "Vogel", "rank": 7},
        {"mail": "orders@printshop-north.example", "company": "Print Shop North", "rank": 2},
    ], [{"idx": "1", "name": "Team", "addresses": [{"mail": "jonas.brandt@example.org"},
                                                     {"mail": "lea.vogel@example.org"}]}])
    # the lock sidecars belong to a running system, not to the committed copy
    for name in os.listdir(data):
        if name.endswith(".lock"):
            os.unlink(os.path.join(data, name))
    return 0


if __name__ == "__main__":
    sys.exit(main())
