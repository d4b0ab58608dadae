#!/usr/bin/env python3
"""The Python peer of `corvina-today --list --json --all`: the same container read with plistlib
and printed as the same JSON, byte for byte, for the benchmark (scripts/bench checks that the two
outputs are identical and compares time and memory). Standard library only.

    list_peer.py CONTAINER

It does the same job for the snapshots the mail application writes, not every refusal of hostile
input the program makes. Dates are shown as the program shows them under LC_ALL=C.UTF-8 (the
benchmark's setting): "HH:mm" for a message of today, "d MMM yyyy" otherwise, local time.
"""
import base64
import datetime
import decimal
import json
import math
import os
import plistlib
import re
import struct
import sys
import time

MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]
MAXIMUM_AVATAR_TEXT = 1024 * 1024
MAXIMUM_AVATAR_PIXELS = 1024 * 1024
PNG_SIGNATURE = b"\x89PNG\r\n\x1a\n"


def host_bool(value):
    """A flag by the host's rules: numbers non-zero; texts Y, y, T, t or 1-9 after signs and zeros."""
    if isinstance(value, (bool, int, float)):
        return value != 0
    if isinstance(value, str):
        text = value.lstrip().lstrip("+-0")
        return bool(text) and (text[0] in "YyTt" or "1" <= text[0] <= "9")
    return False


def text_value(value):
    if isinstance(value, str):
        return value
    if isinstance(value, bool):
        return "1" if value else "0"
    if isinstance(value, int):
        return str(value)
    if isinstance(value, float):
        return "%.17g" % value
    return None


def number_value(value):
    if isinstance(value, (bool, int, float)):
        return value
    if isinstance(value, str):
        text = value.strip()
        try:
            return int(text)
        except ValueError:
            pass
        if re.fullmatch(r"[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?", text):
            return float(text)
    return None


def seconds_value(value):
    """The date's seconds as the program reads them: a single-precision number."""
    if value is None:
        return 0.0
    if isinstance(value, (bool, int, float)):
        number = float(value)
    elif isinstance(value, str):
        match = re.match(r"\s*([+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)", value)
        number = float(match.group(1)) if match else 0.0
    else:
        raise ValueError("date of the wrong type")
    return struct.unpack("<f", struct.pack("<f", number))[0]


def qt_double(value):
    """A double as the program's JSON writes it."""
    if not math.isfinite(value):
        return "null"
    if value == math.floor(value) and abs(value) <= 2 ** 53:
        return str(int(value))
    sign, digits, exponent = decimal.Decimal(repr(value)).normalize().as_tuple()
    digits = "".join(map(str, digits))
    point = len(digits) + exponent  # where the decimal point falls after the first digit
    if (point > 0 and point <= len(digits) + 4) or (point <= 0 and 1 - point <= 4):
        if point <= 0:
            text = "0." + "0" * -point + digits
        elif point >= len(digits):
            text = digits + "0" * (point - len(digits))
        else:
            text = digits[:point] + "." + digits[point:]
    else:
        power = point - 1
        text = digits[0] + ("." + digits[1:] if len(digits) > 1 else "")
        text += "e" + ("-" if power < 0 else "+") + "%02d" % abs(power)
    return ("-" if sign else "") + text


def has_avatar(text):
    if len(text) > MAXIMUM_AVATAR_TEXT:
        return False
    cleaned = re.sub(r"[^A-Za-z0-9+/]", "", text)
    try:
        data = base64.b64decode(cleaned + "=" * (-len(cleaned) % 4))
    except ValueError:
        return False
    if not data.startswith(PNG_SIGNATURE) or len(data) < 33 or data[12:16] != b"IHDR":
        return False
    width, height = struct.unpack(">II", data[16:24])
    return 0 < width and 0 < height and width * height <= MAXIMUM_AVATAR_PIXELS


class Dates:
    def __init__(self):
        today = datetime.date.today()
        start = datetime.datetime.combine(today, datetime.time()).timestamp()
        end = datetime.datetime.combine(today + datetime.timedelta(days=1), datetime.time()).timestamp()
        self.today = (start * 1000, end * 1000)

    def text(self, milliseconds):
        at = time.localtime(milliseconds // 1000)
        if self.today[0] <= milliseconds < self.today[1]:
            return "%02d:%02d" % (at.tm_hour, at.tm_min)
        return "%d %s %d" % (at.tm_mday, MONTHS[at.tm_mon - 1], at.tm_year)


def record(message, dates):
    """The row of one message: (sort key, JSON text)."""
    row = dict.fromkeys(["account", "date", "dateString", "folderPath", "folderStandardId", "from",
                         "messageId", "subject", "unread"], "null")
    row["hasAvatar"] = "false"
    if not isinstance(message, dict):
        return (1, 0), row
    subject = text_value(message.get("subject"))
    row["subject"] = json.dumps("No subject" if subject is None else subject, ensure_ascii=False)
    for key, field in (("messageId", "messageId"), ("from", "from"), ("account", "account"),
                       ("folder", "folderPath")):
        value = text_value(message.get(key))
        row[field] = json.dumps("" if value is None else value, ensure_ascii=False)
    stid = number_value(message.get("folderStid"))
    stid = 0 if stid is None else stid
    row["folderStandardId"] = qt_double(stid) if isinstance(stid, float) else str(int(stid))
    unread = number_value(message.get("isUnread"))
    row["unread"] = "true" if (unread or 0) != 0 else "false"
    try:
        seconds = seconds_value(message.get("date"))
    except ValueError:
        return (1, 0), row
    product = seconds * 1000.0
    milliseconds = int(math.copysign(math.floor(abs(product) + 0.5), product))
    row["date"] = qt_double(milliseconds / 1000.0)
    row["dateString"] = json.dumps(dates.text(milliseconds), ensure_ascii=False)
    avatar = message.get("avatar")
    if isinstance(avatar, str):
        row["hasAvatar"] = "true" if has_avatar(avatar) else "false"
    return (0, -milliseconds), row


def main():
    data = os.path.join(sys.argv[1], "SharedData")
    try:
        with open(os.path.join(data, "Accounts.plist"), "rb") as f:
            accounts = plistlib.load(f)
    except (OSError, plistlib.InvalidFileException, ValueError):
        accounts = []
    enabled = {a["mail"] for a in accounts
               if isinstance(a, dict) and isinstance(a.get("mail"), str) and host_bool(a.get("enabled"))}
    dates = Dates()
    rows = []
    today = os.path.join(data, "Today")
    for account in (os.listdir(today) if os.path.isdir(today) else []):
        folder = os.path.join(today, account)
        if account.startswith(".") or account not in enabled or not os.path.isdir(folder):
            continue
        for name in os.listdir(folder):
            if name.startswith("."):
                continue
            try:
                with open(os.path.join(folder, name), "rb") as f:
                    envelope = plistlib.load(f)
            except (OSError, plistlib.InvalidFileException, ValueError):
                continue
            if not isinstance(envelope, dict) or not all(k in envelope for k in ("folder", "account", "data")):
                continue
            if isinstance(envelope["data"], list):
                rows.extend(record(message, dates) for message in envelope["data"])
    rows.sort(key=lambda keyed: keyed[0])
    out = sys.stdout
    if not rows:
        out.write("[\n]\n")
        return
    out.write("[\n")
    for index, (_, row) in enumerate(rows):
        out.write("    {\n" + ",\n".join('        "%s": %s' % (key, row[key]) for key in sorted(row)) +
                  ("\n    },\n" if index + 1 < len(rows) else "\n    }\n"))
    out.write("]\n")


if __name__ == "__main__":
    main()
