# SPDX-License-Identifier: Apache-2.0
# What the tests of gateways share: the programs under test, letters, and the lines that the documentation gives.
import base64
import contextlib
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SOURCES = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SPOOF = "http://paypal.com.account-verify.example.net/webscr"
HONEST = "https://www.paypal.com/signin"
SKIPPED = 77


def need(*programs):
    """The paths of programs, which gateways keep in places for the superuser too. Without them the test is skipped."""
    path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    found = [shutil.which(program, path=path) for program in programs]
    for program, where in zip(programs, found):
        if where is None:
            print("skipped: %s isn't installed" % program)
            sys.exit(SKIPPED)
    return found


def check(condition, *what):
    if not condition:
        raise AssertionError(" ".join(str(one) for one in what))


def wait_for(condition, what, seconds=120):
    """For processes that take their time on a busy machine; no speed is asked for."""
    end = time.monotonic() + seconds
    while not condition():
        check(time.monotonic() < end, "waited in vain:", what)
        time.sleep(0.02)


@contextlib.contextmanager
def scratch():
    """A folder that other users may walk through, with a short name: sockets stand in it."""
    folder = tempfile.mkdtemp(prefix="zg-")
    os.chmod(folder, 0o755)
    try:
        yield folder
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def block(page, language, mark):
    """The one block of a documentation page that holds a text."""
    with open(os.path.join(SOURCES, page), encoding="utf-8") as file:
        blocks = re.findall(r"```%s\n(.*?)```" % language, file.read(), re.S)
    found = [text for text in blocks if mark in text]
    check(len(found) == 1, page, "has", len(found), "blocks with", mark)
    return found[0]


def mime(kind, text, encoding="base64", name=None):
    data = text.encode()
    body = base64.encodebytes(data).decode() if encoding == "base64" else text
    lines = ["Content-Type: %s; charset=utf-8" % kind, "Content-Transfer-Encoding: " + encoding]
    if name:
        lines.append('Content-Disposition: attachment; filename="%s"' % name)
    return "\n".join(lines) + "\n\n" + body


def letter(subject, body, headers=()):
    """A letter with line feeds alone. body: one part, or several."""
    head = ["From: Sender <sender@example.org>", "To: receiver@example.com", "Subject: " + subject,
            "Message-ID: <%s@example.org>" % re.sub(r"\W", "-", subject), "MIME-Version: 1.0", *headers]
    if isinstance(body, str):
        return "\n".join(head) + "\n" + body
    head.append('Content-Type: multipart/mixed; boundary="bound"')
    return "\n".join(head) + "\n\n" + "".join("--bound\n%s\n" % part for part in body) + "--bound--\n"


def spoof_letter(subject, headers=()):
    html = '<html><body><p>Dear customer,</p><a href="%s">Confirm your account</a></body></html>' % SPOOF
    return letter(subject, mime("text/html", html), headers)


def honest_letter(subject, headers=()):
    text = "As the bank writes: \"Never follow a link in a letter. Type https://www.paypal.com/ yourself.\"\n"
    html = '<html><body><blockquote>%s<a href="%s">PayPal</a></blockquote></body></html>' % (text, HONEST)
    return letter(subject, [mime("text/plain", text, "8bit"), mime("text/html", html)], headers)


class Milter:
    """zeph milter at a unix socket in a folder."""

    def __init__(self, zeph, folder, *arguments):
        self.zeph, self.folder, self.arguments = zeph, folder, arguments
        self.socket = os.path.join(folder, "milter")
        self.metrics = os.path.join(folder, "metrics")
        self.log = os.path.join(folder, "milter.log")
        self.machine = os.path.join(folder, "machine")
        os.makedirs(self.machine, exist_ok=True)
        self.process = None

    def command(self):
        return [self.zeph, "milter", "--listen", "unix:" + self.socket, "--metrics", self.metrics, *self.arguments]

    def environment(self):
        return dict(os.environ, ZEPH_MACHINE_DIR=self.machine, ZEPH_USER_DIR=os.path.join(self.folder, "user"),
                    NOTIFY_SOCKET=os.path.join(self.folder, "notify"))

    def start(self):
        """Returns when it says that it is ready, in the words of a service manager."""
        path = os.path.join(self.folder, "notify")
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notified, open(self.log, "ab") as log:
            notified.bind(path)
            notified.settimeout(120)
            self.process = subprocess.Popen(self.command(), stderr=log, env=self.environment(), umask=0)
            check(notified.recv(100) == b"READY=1", "not ready")
        return self

    def kill(self):
        self.process.kill()
        self.process.wait()

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        check(self.process.wait(timeout=120) == 0, "ended with", self.process.returncode, self.text())

    def text(self):
        with open(self.log, encoding="utf-8") as file:
            return file.read()

    def figure(self, name):
        with open(self.metrics, encoding="utf-8") as file:
            found = re.search(r"^%s (\d+)$" % re.escape(name), file.read(), re.M)
        check(found, "no figure", name)
        return int(found.group(1))

    def refused(self, *arguments):
        """What it says when it doesn't even start."""
        run = subprocess.run([self.zeph, "milter", *arguments], env=self.environment(), capture_output=True, text=True,
                             timeout=120)
        check(run.returncode == 2, arguments, "gave", run.returncode)
        return run.stderr


def unfold(text):
    return re.sub(r"\r?\n[ \t]", " ", text)
