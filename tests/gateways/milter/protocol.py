# SPDX-License-Identifier: Apache-2.0
# Speaks the milter protocol with zeph milter as a mail server does, well and badly.
# Usage: protocol.py ZEPH
import os
import re
import signal
import socket
import struct
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from common import *

ALL_ACTIONS, ALL_STEPS = 0x1FF, 0x1FFFFF
NO_REPLIES = 0x80 | 0x4000 | 0x40000


def frame(command, data=b""):
    return struct.pack(">I", len(data) + 1) + command + data


class Client:
    def __init__(self, path, actions=ALL_ACTIONS, steps=ALL_STEPS):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(120)
        self.socket.connect(path)
        self.send(b"O", struct.pack(">III", 6, actions, steps))
        command, data = self.receive()
        check(command == b"O", "negotiation gave", command)
        self.steps = struct.unpack(">III", data[:12])[2]

    def close(self):
        self.socket.close()

    def send(self, command, data=b""):
        self.socket.sendall(frame(command, data))

    def exactly(self, size):
        data = b""
        while len(data) < size:
            more = self.socket.recv(size - len(data))
            if not more:
                raise EOFError
            data += more
        return data

    def receive(self):
        size = struct.unpack(">I", self.exactly(4))[0]
        data = self.exactly(size)
        return data[:1], data[1:]

    def step(self, command, data=b""):
        self.send(command, data)
        if not self.steps & NO_REPLIES:
            check(self.receive()[0] == b"c", "no leave to go on behind", command)

    def begin(self, text):
        head, _, body = text.partition("\n\n")
        self.step(b"M", b"<sender@example.org>\0")
        for line in re.split(r"\n(?![ \t])", head):
            name, _, value = line.partition(":")
            if not self.steps & 0x100000:
                value = value.lstrip()
            self.step(b"L", name.encode() + b"\0" + value.encode() + b"\0")
        self.step(b"N")
        data = body.replace("\n", "\r\n").encode()
        for at in range(0, len(data), 65000):
            self.send(b"B", data[at:at + 65000])
            answer = self.receive()[0]
            if answer == b"s":
                check(self.steps & 0x400, "skipped unasked")
                break
            check(answer == b"c", "body gave", answer)

    def judge(self, text):
        """What is asked of the mail server, and the answer: (headers taken out, header put in, quarantined, answer)."""
        self.begin(text)
        self.send(b"E")
        removed, inserted, quarantine = [], None, None
        while True:
            command, data = self.receive()
            if command == b"m":
                index = struct.unpack(">I", data[:4])[0]
                check(data[4:] == b"X-Zeph\0\0", data)
                removed.append(index)
            elif command == b"i":
                name, value = data[4:].split(b"\0")[:2]
                check(name == b"X-Zeph" and inserted is None, data)
                inserted = value.decode("ascii")
                check(inserted.startswith(" ") == bool(self.steps & 0x100000), "the blank behind the colon:", inserted)
                inserted = inserted.lstrip(" ")
            elif command == b"q":
                quarantine = data.rstrip(b"\0").decode()
            else:
                return removed, inserted, quarantine, (command, data.rstrip(b"\0").decode())


PAGE = "<html><head><title>PayPal: Login</title></head><body><a href='%s'>Log in</a></body></html>" % SPOOF
DEEP = "plain"
for _ in range(60):
    DEEP = 'Content-Type: multipart/mixed; boundary="b%d"\n\n--b%d\n%s\n--b%d--' % (_, _, DEEP, _)

# What the letter is, the letter, and how its header begins.
LETTERS = [
    ("HTML in base64", spoof_letter("one"), 'spoofing; brand="PayPal"; reason="'),
    ("an honest quotation", honest_letter("two"), r"(trustworthy|unclassified)"),
    ("no link", letter("three", mime("text/plain", "Nothing here.\n", "8bit")), "not-judged; reason="),
    ("a link in plain text", letter("four", mime("text/plain", "See <%s>.\n" % SPOOF, "8bit")), "spoofing"),
    ("an attached page", letter("five", [mime("text/plain", "Open it.\n", "8bit"),
                                         mime("application/octet-stream", PAGE, name="invoice.html")]), "spoofing"),
    ("a forwarded letter", letter("six", ["Content-Type: message/rfc822\n\n" + spoof_letter("inner")]), "spoofing"),
    ("empty", "Subject: empty\n\n", "not-judged"),
    ("levels without end", "Subject: deep\n" + DEEP, "not-judged"),
    ("folded headers", "Subject: a\n\tfolded one\n" + spoof_letter("seven"), "spoofing"),
]


def check_shape(header):
    lines = ("X-Zeph: " + header).split("\n")
    check(all(len(line) <= 79 for line in lines), "a line is too long:", lines)
    check(all(line.startswith("\t") for line in lines[1:]), "a line isn't folded:", lines)
    check(re.fullmatch(r"[\t\n\x20-\x7e]*", header), "an odd character:", repr(header))


def judges_a_table_of_letters(zeph, folder):
    milter = Milter(zeph, folder).start()
    # With all that the protocol has, and with what mail servers of old had.
    for steps in (ALL_STEPS, 0x7F):
        client = Client(milter.socket, steps=steps)
        for what, text, expected in LETTERS:
            removed, header, quarantine, answer = client.judge(text)
            check(header and re.match(expected, unfold(header)), what, "gave", header)
            check(removed == [] and quarantine is None and answer[0] == b"c", what, removed, quarantine, answer)
            check_shape(header)
        forged = ["X-Zeph: trustworthy", "x-ZEPH: trustworthy;\n\tscore=0.0", "X-Zeph-Like: mine"]
        removed, header, _, _ = client.judge(spoof_letter("eight", forged))
        check(removed == [2, 1] and header.startswith("spoofing"), "forged headers:", removed, header)
        _, _, _, answer = client.judge(honest_letter("nine", ["X-Zeph: %d" % i for i in range(101)]))
        check(answer == (b"y", "550 5.7.1 too many headers named X-Zeph"), answer)
        # A letter that is given up leaves nothing to the next.
        client.begin(spoof_letter("ten"))
        client.send(b"A")
        removed, header, _, _ = client.judge(honest_letter("eleven"))
        check(not header.startswith("spoofing"), "an aborted letter counted:", header)
        client.close()
    milter.stop()
    check(milter.figure("zeph_milter_broken_total") == 2, "broken letters")
    check(milter.figure("zeph_milter_letters_in_hand") == 0, "letters in hand")
    check(milter.figure("zeph_milter_forged_headers_total") == 2 * 103, "forged headers")
    check(SPOOF not in milter.text() and "account-verify" not in milter.text(), "the log tells what was sent to whom")


def does_with_held_letters_as_told(zeph, folder):
    for action, expected in (("reject", (None, None, b"y", "550 5.7.1 this letter isn't taken: it imitates PayPal")),
                             ("quarantine", ("spoofing", "it imitates PayPal", b"c", ""))):
        milter = Milter(zeph, folder, "--action", action).start()
        client = Client(milter.socket)
        _, header, quarantine, answer = client.judge(spoof_letter("held"))
        check((header and header.split(";")[0], quarantine, *answer) == expected, action, header, quarantine, answer)
        _, header, quarantine, answer = client.judge(honest_letter("honest"))
        check(header and quarantine is None and answer[0] == b"c", action, "an honest letter:", quarantine, answer)
        client.close()
        milter.stop()


def judges_no_more_than_its_size(zeph, folder):
    milter = Milter(zeph, folder, "--max-size", "4KiB").start()
    late = letter("late", mime("text/plain", "x" * 70 + "\n", "8bit") + ("y" * 70 + "\n") * 3000 + SPOOF + "\n")
    for steps in (ALL_STEPS, 0x7F):  # the second knows no way to decline the rest
        client = Client(milter.socket, steps=steps)
        _, header, _, answer = client.judge(late)
        check(answer[0] == b"c" and 'note="only the first 4096 bytes were judged"' in unfold(header), header)
        client.close()
    milter.stop()
    check(milter.figure("zeph_milter_cut_total") == 2, "cut letters")


def outlives_bad_frames(zeph, folder):
    milter = Milter(zeph, folder).start()
    good = frame(b"O", struct.pack(">III", 6, ALL_ACTIONS, ALL_STEPS))
    frames = [b"", b"\0", b"\0\0\0\0", b"\xff\xff\xff\xffO", b"GET / HTTP/1.0\r\n\r\n", frame(b"O"), frame(b"O", b"\0" * 5),
              frame(b"O", struct.pack(">III", 1, 0, 0)), frame(b"O", struct.pack(">III", 6, 0, 0)), frame(b"E"),
              good + frame(b"E"), good + frame(b"B", b"x"), good + frame(b"L", b"no end"), good + frame(b"L", b"\0\0"),
              good + frame(b"M", b""), good + frame(b"M", b"<a>\0") + frame(b"L", b"only a name\0"),
              good + frame(b"M", b"<a>\0") + frame(b"Z", b"?"), good + frame(b"D", b"M"), good + frame(b"D", b"Mi\0"),
              good + frame(b"M", b"<a>\0") + b"\x7f\xff\xff\xffB" + b"x" * 100000, good + good,
              good + frame(b"M", b"<a>\0") + frame(b"N") + frame(b"L", b"Late\0 x\0") + frame(b"E")]
    for data in frames:
        for cut in {len(data), len(data) // 2}:
            with socket.socket(socket.AF_UNIX) as client:
                client.connect(milter.socket)
                with contextlib.suppress(OSError):
                    client.sendall(data[:cut])
                    client.shutdown(socket.SHUT_WR)
                    client.settimeout(120)
                    while client.recv(4096):
                        pass
        check(milter.process.poll() is None, "ended by", data[:80])
    half = [Client(milter.socket) for _ in range(50)]
    for client in half:
        client.step(b"M", b"<a>\0")
    client = Client(milter.socket)
    check(client.judge(spoof_letter("after"))[1].startswith("spoofing"), "no answer after bad frames")
    for one in [client, *half]:
        one.close()
    milter.stop()


def passes_or_defers_without_an_answer(zeph, folder):
    # Sixteen letters of the greatest length have room; what is beyond them hasn't.
    for choice, expected in (("pass", (b"c", "")), ("wait", (b"y", "451 4.7.1 "))):
        milter = Milter(zeph, folder, "--on-failure", choice, "--max-size", "64KiB").start()
        filler = ("x" * 70 + "\n") * 1000
        big = [Client(milter.socket) for _ in range(16)]
        for number, client in enumerate(big):
            client.begin(letter("big %d" % number, "\n" + filler))
        client = Client(milter.socket)
        _, header, _, answer = client.judge(letter("beyond", "\n" + filler))
        check(answer[0] == expected[0] and answer[1].startswith(expected[1]), choice, answer)
        check((header or "").startswith("not-judged" if choice == "pass" else ""), choice, header)
        for one in [client, *big]:
            one.close()
        milter.stop()
        check(milter.figure('zeph_milter_failures_total{cause="memory"}') == 1, "failures")
        counted = "zeph_milter_passed_unjudged_total" if choice == "pass" else "zeph_milter_deferred_total"
        check(milter.figure(counted) == 1, counted)


def takes_a_dead_servers_place_alone(zeph, folder):
    milter = Milter(zeph, folder).start()
    check("another server listens there" in milter.refused("--listen", "unix:" + milter.socket), "two at one socket")
    milter.kill()
    check(os.path.exists(milter.socket), "the test needs a socket that stayed")
    milter.start()
    milter.process.send_signal(signal.SIGUSR1)
    wait_for(lambda: "letters=0" in milter.text(), "figures upon SIGUSR1")
    milter.stop()
    page = os.path.join(folder, "a-file")
    open(page, "w").close()
    for listen, word in (("unix:" + page, "no socket"), ("unix:relative", "whole path"), ("inet:0@127.0.0.1", "PORT@HOST"),
                         ("inet:99999@127.0.0.1", "PORT@HOST"), ("inet:8891", "PORT@HOST"), ("8891", "neither"),
                         ("unix:" + folder + "/none/socket", "No such file"), ("unix:/" + "x" * 200, "at most")):
        check(word in milter.refused("--listen", listen), listen, "isn't refused with", word)
    check("from 1KiB" in milter.refused("--listen", "unix:" + milter.socket, "--max-size", "3"), "a size of 3")


for test in (judges_a_table_of_letters, does_with_held_letters_as_told, judges_no_more_than_its_size, outlives_bad_frames,
             passes_or_defers_without_an_answer, takes_a_dead_servers_place_alone):
    with scratch() as folder:
        try:
            test(sys.argv[1], folder)
        except BaseException:
            if os.path.exists(folder + "/milter.log"):
                print(open(folder + "/milter.log").read()[-3000:])
            print("failed:", test.__name__)
            raise
        print("done:", test.__name__)
