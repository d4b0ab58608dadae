#!/usr/bin/env python3
"""Writes the property-list reader's fixtures under tests/fixtures/plist: valid lists of every value
type written by Python's plistlib (a writer independent of ours), and hostile lists assembled byte by
byte. Run it from the repository root; the output is committed.

    python3 tools/make-plist-fixtures.py
"""
import datetime
import os
import plistlib
import struct

OUT = os.path.join(os.path.dirname(__file__), "..", "tests", "fixtures", "plist")

EVERY_TYPE = {
    "text": "plain",
    "unicode": "Grüße 🌧 日本",
    "empty": "",
    "integer": 42,
    "negative": -7,
    "large": 2**62,
    "smallest": -(2**63),
    "real": 2.5,
    "negativeReal": -0.125,
    "yes": True,
    "no": False,
    "date": datetime.datetime(2023, 11, 14, 22, 13, 20),
    "data": b"\x00\x01binary\xff",
    "list": [1, "two", [3.0], {}],
    "nested": {"inner": {"deeper": []}},
}


def bplist(objects, top=0, ref_size=1, offset_size=2, count=None, table_offset=None):
    """A binary list from raw encoded objects (bytes); the trailer fields can be falsified."""
    body = b"bplist00"
    offsets = []
    for obj in objects:
        offsets.append(len(body))
        body += obj
    table = len(body) if table_offset is None else table_offset
    body += b"".join(o.to_bytes(offset_size, "big") for o in offsets)
    count = len(objects) if count is None else count
    body += b"\x00" * 6 + bytes([offset_size, ref_size]) + struct.pack(">QQQ", count, top, table)
    return body


def array(*refs, ref_size=1):
    assert len(refs) < 15
    return bytes([0xA0 | len(refs)]) + b"".join(r.to_bytes(ref_size, "big") for r in refs)


def long_array(refs):
    """An array of up to 255 one-byte references, its length in a length field."""
    return bytes([0xAF, 0x10, len(refs)]) + bytes(refs)


HOSTILE_BINARY = {
    # an array that holds itself
    "self-reference": bplist([array(0)]),
    # two arrays that hold each other
    "cycle": bplist([array(1), array(0)]),
    # a reference past the object table
    "reference-out-of-range": bplist([array(5)]),
    # an offset that points into the trailer
    "offset-out-of-range": bplist([array(1), b"\x09"], table_offset=None)[:-34] + b"\xff\xff" + bplist([array(1), b"\x09"])[-32:],
    # a data object claiming 2^62 bytes
    "absurd-length": bplist([b"\x4f\x13" + (2**62).to_bytes(8, "big") + b"abc"]),
    # a text claiming more characters than there are bytes
    "text-longer-than-file": bplist([b"\x5f\x10\xff" + b"abc"]),
    # an array claiming 2^40 elements
    "absurd-array": bplist([b"\xaf\x13" + (2**40).to_bytes(8, "big") + b"\x00"]),
    # a trailer claiming a billion objects
    "absurd-object-count": bplist([b"\x09"], count=10**9),
    # the top object outside the table
    "top-out-of-range": bplist([b"\x09"], top=3),
    # a trailer with an offset width of zero
    "bad-offset-size": bplist([b"\x09"], offset_size=2)[:-26] + b"\x00" + bplist([b"\x09"])[-25:],
    # an object type no writer uses
    "unknown-type": bplist([b"\x70"]),
    # another version of the format
    "unknown-version": b"bplist01" + bplist([b"\x09"])[8:],
    # a dictionary whose key is a number
    "key-not-text": bplist([b"\xd1\x01\x02", b"\x10\x05", b"\x09"]),
    # a UTF-16 text with a lone surrogate, as a key
    "lone-surrogate": bplist([b"\xd1\x01\x02", b"\x62\xd8\x00\x00\x41", b"\x09"]),
    # a UTF-16 key holding a NUL character
    "utf16-nul": bplist([b"\xd1\x01\x02", b"\x62\x00\x41\x00\x00", b"\x09"]),
    # 1000 arrays, each inside the previous one
    "deep": bplist([array(i + 1, ref_size=2) for i in range(999)] + [b"\xa0"], ref_size=2),
    # 40 arrays, each holding the next twice: 2^40 objects once copied out
    "expansion": bplist([array(i + 1, i + 1) for i in range(40)] + [b"\x09"]),
    # 21 arrays, each holding the next twice, down to an empty dictionary: 4 194 303 objects in
    # about 150 bytes
    "doubling": bplist([array(i + 1, i + 1) for i in range(21)] + [b"\xd0"]),
    # a 4 KiB text, 64 times in an array that is itself there 65 times: 17 MB of text once copied
    # out, from some 4 KB and 4 226 objects
    "text-expansion": bplist([long_array([1] * 65), long_array([2] * 64), b"\x5f\x11\x10\x00" + b"t" * 4096]),
}

# the first bytes of a valid list
HOSTILE_BINARY["truncated"] = plistlib.dumps(EVERY_TYPE, fmt=plistlib.FMT_BINARY)[:30]

XML_HEAD = b'<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n'

HOSTILE_XML = {
    "deep": XML_HEAD + b"<array>" * 1000 + b"</array>" * 1000 + b"</plist>\n",
    "entities": b'<?xml version="1.0"?>\n<!DOCTYPE plist [\n<!ENTITY a "aaaaaaaaaa">\n<!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">\n'
    b'<!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;">\n]>\n<plist version="1.0"><string>&c;</string></plist>\n',
    "unclosed": XML_HEAD + b"<dict><key>a</key><string>b</string>\n",
    "prose": b"Dear reader, this is not a property list at all.\n",
}


def main():
    os.makedirs(OUT, exist_ok=True)

    def put(name, data):
        with open(os.path.join(OUT, name), "wb") as f:
            f.write(data)

    put("every-type.xml.plist", plistlib.dumps(EVERY_TYPE, fmt=plistlib.FMT_XML))
    put("every-type.bin.plist", plistlib.dumps(EVERY_TYPE, fmt=plistlib.FMT_BINARY))
    # dates with fractions of a second, before and after 2001 (the binary form keeps the fraction)
    put("dates.bin.plist", plistlib.dumps([datetime.datetime(1969, 12, 30, 13, 42, 23, 211000),
                                           datetime.datetime(2023, 11, 14, 22, 13, 20, 123000)], fmt=plistlib.FMT_BINARY))
    # the same object referenced from two places: shared in the binary form
    shared = {"x": "shared text"}
    put("shared.bin.plist", plistlib.dumps([shared, shared, shared], fmt=plistlib.FMT_BINARY))
    # 128 levels is the most the reader takes; 129 is one too many
    for levels in (128, 129):
        value = []
        for _ in range(levels - 1):
            value = [value]
        put(f"depth-{levels}.bin.plist", plistlib.dumps(value, fmt=plistlib.FMT_BINARY))
        put(f"depth-{levels}.xml.plist", plistlib.dumps(value, fmt=plistlib.FMT_XML))
    for name, data in HOSTILE_BINARY.items():
        put(f"hostile-{name}.bin.plist", data)
    for name, data in HOSTILE_XML.items():
        put(f"hostile-{name}.xml.plist", data)
    # many references to one dictionary, and one XML element repeated, both within what the
    # reader takes: read whole, in time linear in their size
    put("shared-dict-30000.bin.plist", bplist([bytes([0xAF, 0x11]) + (30000).to_bytes(2, "big") + b"\x00\x01" * 30000, b"\xd0"], ref_size=2))
    put("repeated-dict-9000.xml.plist", XML_HEAD + b"<array>" + b"<dict/>" * 9000 + b"</array></plist>\n")


if __name__ == "__main__":
    main()
