#!/usr/bin/env python3
"""Writes the record fixtures under tests/fixtures/records with Python's plistlib, a property-list
writer independent of ours, in XML and in binary form. Run it from the repository root; the output
is committed, so the tests need no Python.

    python3 tools/make-fixtures.py
"""
import base64
import os
import plistlib
import struct
import zlib

OUT = os.path.join(os.path.dirname(__file__), "..", "tests", "fixtures", "records")


def png(width, height, rgb):
    """A small solid-colour PNG, made by hand so that no imaging library is needed."""
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)
    raw = b"".join(b"\x00" + bytes(rgb) * width for _ in range(height))
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b"")


def wrapped_base64(data, width=20):
    """Base64 with line breaks and spaces, as some writers produce it."""
    text = base64.b64encode(data).decode("ascii")
    return "\n ".join(text[i:i + width] for i in range(0, len(text), width))


AVATAR = png(3, 2, (200, 40, 90))

MESSAGES = [
    # 0: every key, as the mail application writes them
    {
        "subject": "Quarterly report",
        "messageId": "<m1@example.org>",
        "from": "Ada Lovelace",
        "account": "ada@example.org",
        "folder": "INBOX",
        "folderStid": 1,
        "isUnread": 1,
        "date": 1700000063,
        "avatar": wrapped_base64(AVATAR),
        "unknownKey": "ignored",
    },
    # 1: nothing at all
    {},
    # 2: the date as a numeric text
    {"messageId": "m2", "account": "ada@example.org", "date": "1700000063"},
    # 3: a date that is a list: the record stops there
    {
        "subject": "Broken date",
        "messageId": "m3",
        "from": "Grace Hopper",
        "account": "grace@example.org",
        "folder": "Todo",
        "folderStid": 2,
        "isUnread": 0,
        "date": [1, 2],
        "avatar": base64.b64encode(AVATAR).decode("ascii"),
    },
    # 4: an avatar without any Base64 content
    {"messageId": "m4", "account": "ada@example.org", "avatar": "!!!", "date": 1700000100.0},
    # 5: a text field given as a number, a folder kind given as a text
    {"subject": 42, "messageId": "m5", "account": "ada@example.org", "folderStid": "3", "isUnread": True},
    # 6: non-ASCII texts, kept exactly
    {"subject": "Grüße aus Köln 🌧", "messageId": "m6", "from": "Jürgen Groß", "account": "jg@example.de",
     "date": 1699999999},
    # 7: an avatar that decodes to bytes that are no image
    {"messageId": "m7", "account": "ada@example.org", "avatar": base64.b64encode(b"not an image").decode("ascii")},
    # 8: dictionary values where texts belong count as absent
    {"subject": {"nested": 1}, "from": ["x"], "messageId": "m8", "account": "ada@example.org"},
]

ACCOUNTS = [
    {"mail": "ada@example.org", "name": "Ada", "type": 1, "enabled": 1,
     "aliases": [{"mail": "countess@example.org", "name": "The Countess", "account": "ada@example.org"},
                 {"mail": "a.l@example.org", "name": "A. L."}]},
    {},
    {"mail": "yes@example.org", "enabled": "YES", "type": "3"},
    {"mail": "true@example.org", "enabled": "true", "type": "3.9"},
    {"mail": "zero@example.org", "enabled": 0},
    {"mail": "no@example.org", "enabled": "NO"},
    {"mail": "false@example.org", "enabled": "false"},
    {"mail": "mixed@example.org", "enabled": True,
     "aliases": [{"mail": "first@example.org"}, "not a dictionary", {"mail": "third@example.org"}]},
    {"mail": "text@example.org", "name": "Text aliases", "type": 7, "enabled": 1, "aliases": "not a list"},
    {"mail": "dict@example.org", "enabled": 1, "aliases": {"k1": {"mail": "x@example.org"}, "k2": 2}},
]

ADDRESSES = [
    {},
    {"mail": "ada@example.org", "firstName": "Ada", "lastName": "Lovelace", "company": "Analytical Engines",
     "nickname": "Countess", "rank": 12},
    {"mail": "first@example.org", "firstName": "Ada"},
    {"mail": "sales@example.com", "firstName": "", "lastName": "", "company": "Example Ltd"},
    {"mail": "", "firstName": "No", "lastName": "Address"},
    {"mail": "rank@example.org", "rank": "7"},
    {"mail": "bad@example.org", "firstName": "Bad", "rank": [1]},
]

GROUPS = [
    {},
    {"idx": "g1", "name": "Alone"},
    {"idx": "g2", "name": "Friends",
     "addresses": [{"mail": "a@example.org", "firstName": "A"}, {"mail": "b@example.org", "firstName": "B"}]},
    {"idx": "g3", "name": "Odd members", "addresses": [{"mail": "c@example.org"}, "not a dictionary"]},
    {"idx": "g4", "name": "Text members", "addresses": "not a list"},
]


def write(name, value):
    os.makedirs(OUT, exist_ok=True)
    for suffix, fmt in (("xml", plistlib.FMT_XML), ("bin", plistlib.FMT_BINARY)):
        with open(os.path.join(OUT, f"{name}.{suffix}.plist"), "wb") as f:
            plistlib.dump(value, f, fmt=fmt, sort_keys=True)


if __name__ == "__main__":
    write("messages", MESSAGES)
    write("accounts", ACCOUNTS)
    write("addresses", ADDRESSES)
    write("groups", GROUPS)
    with open(os.path.join(OUT, "avatar.png"), "wb") as f:
        f.write(AVATAR)
