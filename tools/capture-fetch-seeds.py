#!/usr/bin/env python3
"""Captures the seeds of fuzz_fetch (fuzz/corpus/fetch): real answers of a Dovecot to the FETCH the
bridge's sync sends, for messages that hold what a message may hold (encoded words, control
characters, no sender, bare 8-bit text with and without a declared charset, groups, folded lines,
flags). Starts a Dovecot of its own in a temporary folder, as the tests' fixture does (so it runs as
root, and hands the mail to nobody), and writes each answer as the server sent it, without the
command's tagged end, which the fuzz target adds itself. Run it from the repository root; the output
is committed.

    sudo python3 tools/capture-fetch-seeds.py
"""
import os
import pwd
import shutil
import socket
import subprocess
import tempfile
import time

OUT = os.path.join(os.path.dirname(__file__), "..", "fuzz", "corpus", "fetch")
# The sync's attribute list (MessageHeaders::fetchType), as libetpan writes it.
ATTRIBUTES = b"(UID FLAGS INTERNALDATE ENVELOPE BODY.PEEK[HEADER.FIELDS (CONTENT-TYPE)])"

DATE = b"Date: Tue, 14 Nov 2023 22:13:20 +0000\r\n"

# name: (Maildir flags, header lines); each seed is one answer, some of several messages.
SEEDS = {
    "plain": [("S", [b"From: Grace Lindholm <grace@example.org>", b"Subject: Lunch?",
                     b"Content-Type: text/plain; charset=utf-8"])],
    "encoded-words": [("", [b"From: =?ISO-8859-1?Q?J=F6rg_M=FCller?= <joerg@example.org>",
                            b"Subject: =?UTF-8?B?R3LDvMOfZSBhdXMgS8O2bG4=?= and =?utf-8?q?caf=C3=A9?="])],
    "control-characters": [("", [b"From: \"Eve\x1b[1m Evil\x07\" <eve@example.org>",
                                 b"Subject: Red \x1b[31malert\x07 end"]),
                           ("F", [b"From: =?UTF-8?Q?Mallory=1B=0C?= <mallory@example.org>",
                                  b"Subject: =?UTF-8?Q?x=1By=0Cz_=EF=BF=BF?="])],
    "no-sender": [("", [b"Sender: List Owner <owner@example.org>", b"Subject: Only a Sender"]),
                  ("", [b"Reply-To: replies@example.org", b"Subject: Only a Reply-To"]),
                  ("", [b"Subject: Nobody"]),
                  ("", [b"From: undisclosed-recipients:;", b"Subject: A group"])],
    "eight-bit": [("", [b"From: J\xf6rg <joerg@example.org>", b"Subject: latin-1 Gr\xfc\xdfe",
                        b"MIME-Version: 1.0", b"Content-Type: text/plain; charset=\"ISO-8859-1\""]),
                  ("", [b"From: a@example.org", b"Subject: koi8-r \xf0\xd2\xc9\xd7\xc5\xd4",
                        b"Content-Type: text/plain;\r\n\tcharset=koi8-r; format=flowed"]),
                  ("", [b"From: =?koi8-r?B?8NLJ18XU?= <b@example.org>",
                        b"Subject: multipart \xf0\xd2\xc9\xd7\xc5\xd4",
                        b"Content-Type: multipart/mixed; boundary=xyz"]),
                  ("", [b"From: c@example.org", b"Subject: undeclared caf\xe9 \x96 \x80" b"5"])],
    "folded-and-odd": [("FS", [b"From: \"Doe, Jane\" <jane@example.org>, bob@example.org",
                               b"Subject: a long subject\r\n folded over\r\n\tthree lines",
                               b"Content-Type: text/plain; charset*=utf-8''%E2%82%AC"]),
                       ("", [b"From: <>", b"Subject:", b"Date: sometime last week"])],
}


def wait_for_port(port):
    for _ in range(200):
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=1) as s:
                if s.recv(100).startswith(b"* OK"):
                    return
        except OSError:
            time.sleep(0.05)
    raise SystemExit("Dovecot did not greet")


def read_answer(sock, tag):
    """Everything up to the tagged line of `tag`; the untagged part, and the tagged line."""
    data = b""
    while True:
        if data.startswith(tag + b" "):
            at = 0
        else:
            at = data.find(b"\r\n" + tag + b" ")
            at = at + 2 if at >= 0 else -1
        if at >= 0:
            end = data.find(b"\r\n", at)
            if end >= 0:
                return data[:at], data[at:end]
        chunk = sock.recv(65536)
        if not chunk:
            raise SystemExit("connection closed: %r" % data[-200:])
        data += chunk


def main():
    nobody = pwd.getpwnam("nobody")
    work = tempfile.mkdtemp()
    os.chmod(work, 0o755)
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    with open(os.path.join(work, "passwd"), "w") as f:
        f.write("ada:{PLAIN}secret::::::\n")
    with open(os.path.join(work, "dovecot.conf"), "w") as f:
        f.write(f"""base_dir = {work}/run
state_dir = {work}/state
log_path = {work}/dovecot.log
protocols = imap
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
auth_mechanisms = plain login
default_login_user = dovenull
default_internal_user = dovecot
mail_location = maildir:~/Maildir
passdb {{
  driver = passwd-file
  args = scheme=PLAIN username_format=%u {work}/passwd
}}
userdb {{
  driver = static
  args = uid=nobody gid=nogroup home={work}/mail/%u
}}
service imap-login {{
  inet_listener imap {{
    address = 127.0.0.1
    port = {port}
  }}
}}
""")
    os.makedirs(OUT, exist_ok=True)
    dovecot = subprocess.Popen(["dovecot", "-F", "-c", os.path.join(work, "dovecot.conf")])
    try:
        wait_for_port(port)
        for name, messages in SEEDS.items():
            maildir = os.path.join(work, "mail", "ada", "Maildir")
            shutil.rmtree(os.path.join(work, "mail"), ignore_errors=True)
            for sub in ("cur", "new", "tmp"):
                os.makedirs(os.path.join(maildir, sub))
            for i, (flags, header) in enumerate(messages, 1):
                text = b"\r\n".join(header) + b"\r\nMessage-ID: <%d@example.org>\r\n" % i
                if not any(line.startswith(b"Date:") for line in header):
                    text += DATE
                path = os.path.join(maildir, "cur", "%010d.M%dP1.seed:2,%s" % (i, i, flags))
                with open(path, "wb") as f:
                    f.write(text + b"\r\nBody.\r\n")
            for root, dirs, files in os.walk(os.path.join(work, "mail")):
                for entry in dirs + files:
                    os.chown(os.path.join(root, entry), nobody.pw_uid, nobody.pw_gid)
            os.chown(os.path.join(work, "mail"), nobody.pw_uid, nobody.pw_gid)
            with socket.create_connection(("127.0.0.1", port)) as s:
                read_answer(s, b"*")
                for tag, command in ((b"1", b"LOGIN ada secret"), (b"2", b"EXAMINE INBOX")):
                    s.sendall(tag + b" " + command + b"\r\n")
                    _, status = read_answer(s, tag)
                    assert status.startswith(tag + b" OK"), status
                s.sendall(b"3 FETCH 1:* " + ATTRIBUTES + b"\r\n")
                answer, status = read_answer(s, b"3")
                assert status.startswith(b"3 OK"), status
                s.sendall(b"4 LOGOUT\r\n")
            with open(os.path.join(OUT, name), "wb") as f:
                f.write(answer)
            print(name, len(answer), "bytes")
    finally:
        dovecot.terminate()
        dovecot.wait(10)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
