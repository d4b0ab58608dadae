#!/usr/bin/python3
"""Stores the password of a mailnag account where mailnag looks for it (bench/NotifyLatencyBench):
the Secret Service of the session bus, under mailnag's schema, with the id it derives from the
login name, the server and "True" for IMAP. The password comes on the standard input, never on
the command line.

    peer_password.py USER SERVER < password
"""
import hashlib
import sys

import gi

gi.require_version("Secret", "1")
from gi.repository import Secret  # noqa: E402


def main():
    user, server = sys.argv[1], sys.argv[2]
    password = sys.stdin.readline().rstrip("\n")
    schema = Secret.Schema.new("com.github.pulb.mailnag", Secret.SchemaFlags.NONE,
                               {"id": Secret.SchemaAttributeType.STRING})
    account = hashlib.md5((user + server + str(True)).encode("utf-8")).hexdigest()
    if not Secret.password_store_sync(schema, {"id": account}, Secret.COLLECTION_DEFAULT,
                                      "mailnag password for the benchmark", password, None):
        sys.exit("the Secret Service did not store the password")


if __name__ == "__main__":
    main()
