#!/usr/bin/env python3
"""A scripted IMAP server that misbehaves on purpose: a stand-in for a broken or hostile server in the
bridge's tests, never a real one (the honest server of the tests is Dovecot).

It serves one mailbox of three messages (UIDs 1 to 3, UIDNEXT 4) and answers just enough of IMAP for
the bridge's sync and check, then does what --mode says:

  normal             behave
  reset              reset the connection (RST) halfway through the answer to FETCH (or to the
                     command --at names: EXAMINE)
  trickle            answer LOGIN one byte a second, without end
  flood              after the three answers to FETCH, --count more for messages never asked for,
                     each with --recipients addresses in its To
  lines              before the end of the answer to FETCH, --count untagged lines of noise
  uid                give message 2 the UID --uid (as written: -5, 100000000000000000000)
  words              answer LOGIN with CAPABILITY lines of --count one-letter words in all
  close              close each connection at once, before any greeting
  cut                in the answer to FETCH, announce a literal of 79 bytes, send 5 of them and
                     close the connection
  huge-literal       in the answer to FETCH, announce a literal of --count bytes, send 5 of them
                     and wait without end
  folders            answer LIST with INBOX and --count more folders
  endless-list       answer LIST with folder after folder, without end
  control-names      answer LIST with folders whose names hold control characters (a tab, a bell,
                     DEL, a line break in a literal) beside INBOX, Work, Notes and a folder that cannot be opened

Without one of the LIST modes, LIST names no folder at all.

With --cert and --key it speaks TLS (implicit, as on port 993) and, with --record, writes every byte
received after the handshake to that file, and makes FILE.ended when the client has gone. It prints its port on the first line of standard output
once it listens, and serves until it is killed.
"""
import argparse
import socket
import ssl
import struct
import sys
import threading
import time

FIRST_UID = 1
MESSAGES = 3


def envelope(number, recipients=1):
    address = '(("Grace" NIL "grace" "example.org"))'
    to = '(' + ' '.join(f'("Ada {n}" NIL "ada{n}" "example.org")' for n in range(recipients)) + ')'
    return (f'("Tue, 14 Nov 2023 22:13:20 +0000" "Message {number}" {address} {address} {address} '
            f'{to} NIL NIL NIL "<m{number}@example.org>")')


def fetch_answer(number, uid, recipients=1):
    return (f'* {number} FETCH (UID {uid} FLAGS (\\Seen) INTERNALDATE "14-Nov-2023 22:13:20 +0000" '
            f'ENVELOPE {envelope(number, recipients)})\r\n').encode()


class Session:
    def __init__(self, conn, options):
        self.conn = conn
        self.options = options
        self.buffer = b''

    def send(self, data):
        self.conn.sendall(data)

    def line(self):
        while b'\r\n' not in self.buffer:
            chunk = self.conn.recv(65536)
            if not chunk:
                return None
            self.buffer += chunk
        line, self.buffer = self.buffer.split(b'\r\n', 1)
        # A literal ({n}) follows on the next line: the bridge sends a password so when it must.
        while line.endswith(b'}') and b'{' in line:
            size = int(line[line.rindex(b'{') + 1:-1].rstrip(b'+'))
            if not line.endswith(b'+}'):
                self.send(b'+ go on\r\n')
            while len(self.buffer) < size:
                chunk = self.conn.recv(65536)
                if not chunk:
                    return None
                self.buffer += chunk
            literal, self.buffer = self.buffer[:size], self.buffer[size:]
            rest = self.line()
            if rest is None:
                return None
            line = line + literal + rest
        return line

    def reset(self):
        # A linger of zero makes close() send RST instead of FIN.
        self.conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))
        self.conn.close()

    def serve(self):
        mode = self.options.mode
        self.send(b'* OK [CAPABILITY IMAP4rev1 IDLE] hostile test server ready\r\n')
        while True:
            line = self.line()
            if line is None:
                return
            parts = line.split(b' ', 2)
            tag = parts[0]
            command = parts[1].upper() if len(parts) > 1 else b''
            arguments = parts[2] if len(parts) > 2 else b''
            if command == b'UID' and arguments:
                command = b'UID ' + arguments.split(b' ', 1)[0].upper()
            done = tag + b' OK done\r\n'
            if command == b'CAPABILITY':
                self.send(b'* CAPABILITY IMAP4rev1 IDLE\r\n' + done)
            elif command == b'LOGIN':
                if mode == 'words':
                    # Lines of 100 000 words each: libetpan reads a line whole before it parses it.
                    words = b'* CAPABILITY IMAP4rev1' + b' A' * 100000 + b'\r\n'
                    for _ in range(self.options.count // 100000):
                        self.send(words)
                    self.send(done)
                    continue
                if mode == 'trickle':
                    while True:
                        for byte in b'* OK still thinking\r\n':
                            self.send(bytes([byte]))
                            time.sleep(1)
                self.send(b'* CAPABILITY IMAP4rev1 IDLE\r\n' + done)
            elif command in (b'EXAMINE', b'SELECT'):
                if mode == 'reset' and self.options.at == 'EXAMINE':
                    self.send(f'* {MESSAGES} EXISTS\r\n* 0 RE'.encode())
                    time.sleep(0.2)
                    self.reset()
                    return
                self.send(f'* {MESSAGES} EXISTS\r\n* 0 RECENT\r\n* OK [UIDVALIDITY 7] ok\r\n'
                          f'* OK [UIDNEXT {FIRST_UID + MESSAGES}] ok\r\n* FLAGS (\\Seen \\Flagged)\r\n'
                          .encode() + tag + b' OK [READ-ONLY] done\r\n')
            elif command == b'FETCH':
                answers = b''.join(fetch_answer(n, FIRST_UID + n - 1) for n in range(1, MESSAGES + 1))
                if mode == 'reset' and self.options.at == 'FETCH':
                    self.send(answers[:len(answers) // 2])
                    time.sleep(0.2)
                    self.reset()
                    return
                if mode == 'cut':
                    self.send(b'* 1 FETCH (UID 1 BODY[HEADER.FIELDS (CONTENT-TYPE)] {79}\r\nshort')
                    self.conn.shutdown(socket.SHUT_RDWR)
                    return
                if mode == 'huge-literal':
                    self.send(b'* 1 FETCH (UID 1 BODY[HEADER.FIELDS (CONTENT-TYPE)] {%d}\r\nshort'
                              % self.options.count)
                    while True:
                        time.sleep(60)
                if mode == 'uid':
                    answers = answers.replace(b'UID 2 ', b'UID ' + self.options.uid.encode() + b' ')
                self.send(answers)
                if mode == 'flood':
                    batch = []
                    for n in range(MESSAGES + 1, MESSAGES + 1 + self.options.count):
                        batch.append(fetch_answer(n, n, self.options.recipients))
                        if len(batch) == 1000:
                            self.send(b''.join(batch))
                            batch = []
                    self.send(b''.join(batch))
                if mode == 'lines':
                    noise = b'* OK noise\r\n' * 1000
                    for _ in range(self.options.count // 1000):
                        self.send(noise)
                self.send(done)
            elif command == b'LIST':
                if mode == 'folders':
                    self.send(b'* LIST () "/" "INBOX"\r\n')
                    batch = []
                    for n in range(self.options.count):
                        batch.append(f'* LIST () "/" "Folder {n}"\r\n'.encode())
                        if len(batch) == 1000:
                            self.send(b''.join(batch))
                            batch = []
                    self.send(b''.join(batch))
                elif mode == 'endless-list':
                    n = 0
                    while True:
                        self.send(b''.join(f'* LIST () "/" "Spam {n + i}"\r\n'.encode() for i in range(1000)))
                        n += 1000
                elif mode == 'control-names':
                    self.send(b'* LIST () "/" "INBOX"\r\n'
                              b'* LIST () "/" "Tab\tName"\r\n'
                              b'* LIST () "/" "Work"\r\n'
                              b'* LIST () "/" "Bell\x07Name"\r\n'
                              b'* LIST (\\Noselect) "/" "Parent"\r\n'
                              b'* LIST () "/" "Del\x7fName"\r\n'
                              b'* LIST () "/" {9}\r\nTwo\r\nLine\r\n'
                              b'* LIST () "/" "Notes"\r\n')
                self.send(done)
            elif command == b'UID SEARCH':
                self.send(b'* SEARCH\r\n' + done)
            elif command == b'UID FETCH':
                self.send(done)
            elif command == b'LOGOUT':
                self.send(b'* BYE bye\r\n' + done)
                return
            else:
                self.send(done)


def handle(conn, options, context):
    try:
        if options.mode == 'close':
            conn.close()
            return
        if context is not None:
            conn = context.wrap_socket(conn, server_side=True)
            if options.record:
                # Everything the client says after the handshake, and nothing else.
                conn.sendall(b'* OK [CAPABILITY IMAP4rev1] hostile test server ready\r\n')
                try:
                    with open(options.record, 'ab') as record:
                        while True:
                            chunk = conn.recv(65536)
                            if not chunk:
                                break
                            record.write(chunk)
                            record.flush()
                finally:
                    open(options.record + '.ended', 'w').close()
                return
        Session(conn, options).serve()
    except (OSError, ssl.SSLError):
        pass
    finally:
        try:
            conn.close()
        except OSError:
            pass


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--mode', default='normal',
                        choices=['normal', 'reset', 'trickle', 'flood', 'lines', 'uid', 'words', 'close', 'cut', 'huge-literal',
                                 'folders', 'endless-list', 'control-names'])
    parser.add_argument('--count', type=int, default=200000)
    parser.add_argument('--uid', default='2')
    parser.add_argument('--recipients', type=int, default=1)
    parser.add_argument('--at', default='FETCH', choices=['FETCH', 'EXAMINE'])
    parser.add_argument('--cert')
    parser.add_argument('--key')
    parser.add_argument('--record')
    options = parser.parse_args()
    context = None
    if options.cert:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(options.cert, options.key)
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(('127.0.0.1', 0))
    listener.listen(16)
    print(listener.getsockname()[1], flush=True)
    while True:
        conn, _ = listener.accept()
        threading.Thread(target=handle, args=(conn, options, context), daemon=True).start()


if __name__ == '__main__':
    sys.exit(main())
