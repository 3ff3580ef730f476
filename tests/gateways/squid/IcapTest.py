# SPDX-License-Identifier: Apache-2.0
"""zeph icap and zeph squid-helper, spoken to as a proxy speaks to them."""
import os
import re
import subprocess
import sys
import unittest

from Gateway import *

ALLOW = "Allow: 204\r\n"
PREVIEW = "Preview: 1024\r\n"
IEOF = b"0; ieof\r\n\r\n"
GET = request_head(INNOCENT % "")


class Table(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.icap = Icap("--body-limit", "1")

    @classmethod
    def tearDownClass(cls):
        status, said = cls.icap.end()
        print(said)
        assert status == 0, said

    def ask(self, request):
        client = Client(self.icap.port)
        client.send(request)
        return client.answer()

    def test_requests(self):
        page = response_head()
        opts = "OPTIONS icap://h/%s ICAP/1.0\r\nHost: h\r\n\r\n"
        spoof = request_head(SPOOF % "")
        rows = [
            # what, request, status, what the answer holds
            ("options", (opts % "reqmod").encode(), 200, "Methods: REQMOD"),
            ("options", (opts % "respmod?x=y").encode(), 200, "Preview: 1024"),
            ("no service", (opts % "other").encode(), 404, "Connection: close"),
            ("wrong method", icap("RESPMOD", [GET, page], service="reqmod"), 405, ""),
            ("http", b"GET / HTTP/1.1\r\nHost: h\r\n\r\n", 400, ""),
            ("nothing encapsulated", b"REQMOD icap://h/reqmod ICAP/1.0\r\nHost: h\r\n\r\n", 400, ""),
            ("offsets fall", b"RESPMOD icap://h/respmod ICAP/1.0\r\nEncapsulated: req-hdr=0, res-hdr=9, res-body=3\r\n\r\n", 400, ""),
            ("heads of a gigabyte", b"REQMOD icap://h/reqmod ICAP/1.0\r\nEncapsulated: req-hdr=0, null-body=1000000000\r\n\r\n", 400, ""),
            ("endless head", b"REQMOD icap://h/reqmod ICAP/1.0\r\nX: " + b"x" * 20000, 400, ""),
            ("folded", b"OPTIONS icap://h/reqmod ICAP/1.0\r\nX: y\r\n z\r\n\r\n", 400, ""),
            ("no chunk", icap("RESPMOD", [GET, page], b"zz\r\n"), 400, ""),
            ("longer than it says", icap("RESPMOD", [GET, page], b"2\r\nabc\r\n"), 400, ""),
            ("honest address", icap("REQMOD", [GET], fields=ALLOW), 204, ""),
            ("honest address, must be repeated", icap("REQMOD", [GET]), 200, GET.decode()),
            ("address by its host", icap("REQMOD", [b"GET /login HTTP/1.1\r\nHost: paypal.com.signin.evil.test\r\n\r\n"]), 200, "PayPal"),
            ("spoof", icap("REQMOD", [spoof], fields=ALLOW), 200, "HTTP/1.1 403"),
            ("spoof with a body", icap("REQMOD", [spoof], chunked(b"a=b" * 500), ALLOW), 200, "PayPal"),
            ("tunnel", icap("REQMOD", [request_head("paypal.com.signin.evil.test:443", "CONNECT")]), 200, "HTTP/1.1 403"),
            ("evil marks", icap("REQMOD", [request_head(SPOOF % "" + "?<script>alert(1)</script>&a='")]), 200, "script"),
            ("kit", icap("RESPMOD", [GET, page], chunked(KIT)), 200, "PayPal"),
            ("kit in small pieces", icap("RESPMOD", [GET, page], chunked(KIT, 7), ALLOW), 200, "HTTP/1.1 403"),
            ("kit whole in the preview", icap("RESPMOD", [GET, page], chunked(KIT, end=IEOF), "Preview: 4096\r\n"), 200, "HTTP/1.1 403"),
            ("kit at an address that can't be used", icap("RESPMOD", [request_head("http://[::1]/"), page], chunked(KIT)), 200, "HTTP/1.1 403"),
            ("kit without a type", icap("RESPMOD", [GET, response_head("")], chunked(KIT)), 200, "HTTP/1.1 403"),
            ("kit that is no page", icap("RESPMOD", [GET, response_head("text/plain")], chunked(KIT), ALLOW), 204, ""),
            ("page without a body", icap("RESPMOD", [GET, page], fields=ALLOW), 204, ""),
            ("unknown encoding", icap("RESPMOD", [GET, response_head(encoding="zstd")], chunked(KIT), ALLOW), 204, ""),
            ("damaged, as far as a browser shows it", icap("RESPMOD", [GET, response_head(encoding="gzip")], chunked(gzip.compress(KIT)[:-9])), 200, "HTTP/1.1 403"),
            ("bomb", icap("RESPMOD", [GET, response_head(encoding="gzip")], chunked(gzip.compress(bytes(1 << 26))), ALLOW), 204, ""),
            ("bomb in a bomb", icap("RESPMOD", [GET, response_head(encoding="gzip, gzip")], chunked(gzip.compress(gzip.compress(bytes(1 << 26)))), ALLOW), 204, ""),
            ("too long, discarded", icap("RESPMOD", [GET, page], chunked(bytes(2 << 20)), ALLOW), 204, ""),
            ("too long, announced", icap("RESPMOD", [GET, response_head(more="Content-Length: 99999999999999999999\r\n")], chunked(b"a", end=IEOF), PREVIEW), 204, ""),
        ]
        for encoding, encode in ENCODERS.items():
            head = response_head(encoding=encoding)
            rows.append(("kit, " + encoding, icap("RESPMOD", [GET, head], chunked(encode(KIT)), ALLOW), 200, "PayPal"))
            rows.append(("honest, " + encoding, icap("RESPMOD", [GET, head], chunked(encode(HONEST)), ALLOW), 204, ""))
        for what, request, status, holds in rows:
            with self.subTest(what):
                answer = self.ask(request)
                self.assertIsNotNone(answer)
                self.assertEqual(answer[0], status)
                text = "".join("%s: %s\n" % field for field in answer[1].items()) + (answer[2] + answer[3]).decode()
                self.assertIn(holds, text)
                self.assertNotIn("<script", text)
                self.assertRegex(answer[1]["ISTag"], r'^"[0-9a-f]{16}"$')

    def test_what_passes_is_the_same_byte_for_byte(self):
        for encoding, encode in ENCODERS.items():
            for media_type, body in (("text/html", HONEST), ("image/png", bytes(range(256)) * 500), ("text/html", bytes(3 << 20))):
                if encoding == "br" and len(body) > 1 << 16:
                    continue
                data = encode(body)
                head = response_head(media_type, encoding)
                status, _, heads, back = self.ask(icap("RESPMOD", [GET, head], chunked(data, 50000)))
                self.assertEqual((status, heads, back == data), (200, head, True), (encoding, media_type, len(body)))

    def test_preview(self):
        client = Client(self.icap.port)
        # A page goes on behind its preview; what is none doesn't, whatever its type leaves open.
        rows = [("text/html", KIT, 100, 200), ("", KIT, 100, 200), ("", HONEST, 100, 200), ("", b"\x89PNG" + bytes(90), 204, 0), ("image/png", KIT, 204, 0)]
        for media_type, body, first, last in rows:
            for preview in (0, 60):
                if not media_type and not preview:
                    continue  # nothing to look at
                client.send(icap("RESPMOD", [GET, response_head(media_type)], chunked(body[:preview]), "Preview: %d\r\n" % preview))
                self.assertEqual(client.answer()[0], first, (media_type, preview))
                if first == 100:
                    client.send(chunked(body[preview:]))
                    answer = client.answer()
                    self.assertEqual(answer[0], last)
                    self.assertEqual(answer[3] == body, body == HONEST)

    def test_a_connection_serves_many_and_in_order(self):
        client = Client(self.icap.port)
        requests = [icap("REQMOD", [request_head(url % "")], fields=ALLOW) for url in (SPOOF, INNOCENT)] * 20
        data = b"".join(requests) + icap("REQMOD", [GET], fields=ALLOW + "Connection: close\r\n")
        for i in range(0, len(data), 1000):
            client.send(data[i:i + 1000])
        self.assertEqual([client.answer()[0] for _ in range(41)], [200, 204] * 20 + [204])
        self.assertIsNone(client.answer())


class Service(unittest.TestCase):
    def test_one_client_has_no_more_than_its_seats_and_a_slow_one_loses_its(self):
        icap_service = Icap("--connections", "4", "--timeout", "1")
        seated = [Client(icap_service.port) for _ in range(2)]
        options = b"OPTIONS icap://h/reqmod ICAP/1.0\r\n\r\n"
        for client in seated:
            client.send(options)
            self.assertEqual(client.answer()[0], 200)
        self.assertEqual(Client(icap_service.port).answer()[0], 503)
        for client in seated:
            client.send(options[:9])
        for client in seated:
            self.assertIsNone(client.answer())
        again = Client(icap_service.port)
        again.send(options)
        self.assertEqual(again.answer()[0], 200)
        status, said = icap_service.end()
        self.assertEqual(status, 0)
        self.assertIn("clients refused 1, malformed 0, timed out 2", said)

    def test_what_is_under_way_ends_well_and_a_hangup_loses_nothing(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind("\0zeph-test-%d" % os.getpid())
            manager.settimeout(WAIT)
            icap_service = Icap(environment={**os.environ, "NOTIFY_SOCKET": "@zeph-test-%d" % os.getpid()})
            self.assertEqual(manager.recv(100), b"READY=1")
        client, idle = Client(icap_service.port), Client(icap_service.port)
        request = icap("RESPMOD", [GET, response_head()], chunked(KIT, 100))
        client.send(request[:-40])
        client.send(request[-40:-30])
        idle.send(b"OPTIONS icap://h/reqmod ICAP/1.0\r\n\r\n")
        idle.answer()
        icap_service.process.send_signal(signal.SIGHUP)
        self.assertIn(b"judged 0", icap_service.process.stderr.readline())
        icap_service.process.send_signal(signal.SIGTERM)
        self.assertIsNone(idle.answer())
        client.send(request[-30:])
        answer = client.answer()
        self.assertEqual((answer[0], answer[1]["Connection"]), (200, "close"))
        self.assertIn(b"PayPal", answer[3])
        self.assertIsNone(client.answer())
        self.assertEqual(icap_service.process.wait(WAIT), 0)
        icap_service.process.stderr.close()


class Helper(unittest.TestCase):
    def answers(self, lines, *arguments):
        done = subprocess.run([PROGRAM, "squid-helper", *arguments], input=lines, stdout=subprocess.PIPE, timeout=WAIT)
        self.assertEqual(done.returncode, 0)
        return done.stdout.decode().splitlines()

    def test_lines(self):
        spoof = SPOOF % ""
        held = r'OK tag="spoofing" log="spoofing:PayPal" message="imitates PayPal: .+"'
        rows = [
            # line, answer without its channel
            (spoof, held), (spoof + " GET 10.0.0.1", held), ('"%s" extra' % spoof, held),
            (spoof.replace("/login", "%2Flogin%3Fa=%22%20b"), held), ("paypal.com.signin.evil.test:443", held),
            (INNOCENT % "", "ERR"), ("bakery.test:443", "ERR"), ("https://www.paypal.com/signin", "ERR"),
            ("", 'BH message="not judged: no address"'), ("-", "BH .*"), ('"', "BH .*"),
            ("file:///etc/passwd", "BH .*"), ("/etc/passwd", "BH .*"), (PROGRAM, "BH .*"), ("[::1]:443", "BH .*"),
            ("http://a.test/" + "a" * 70000, 'BH message="not judged: a line longer.*"'),
        ]
        lines = "".join("%d %s\n" % (i, line) for i, (line, _) in enumerate(rows)) + "nonsense\n"
        got = dict(line.split(" ", 1) for line in self.answers(lines.encode()) if not line.startswith("0 BH"))
        for i, (line, answer) in enumerate(rows):
            self.assertRegex(got.get(str(i), ""), "^%s$" % answer, line[:80])
        self.assertEqual(len(got), len(rows))
        self.assertRegex(self.answers(b"7 -\n", "--pass-unjudged")[0], '^7 ERR log="not-judged" message="not judged: no address"$')
        plain = self.answers("".join(line + "\r\n" for line, _ in rows[:-1]).encode(), "--no-channels")
        self.assertEqual(len(plain), len(rows) - 1)
        for line, (asked, answer) in zip(plain, rows):
            self.assertRegex(line, "^%s$" % answer, asked)

    def test_many_at_once_and_an_answer_before_the_next_question(self):
        count = 5000
        got = self.answers(b"".join(b"%d %s\n" % (i, (SPOOF if i % 3 == 0 else INNOCENT).encode() % b"") for i in range(count)))
        self.assertEqual({(int(line.split()[0]), line.split()[1]) for line in got},
                         {(i, "OK" if i % 3 == 0 else "ERR") for i in range(count)})
        helper = subprocess.Popen([PROGRAM, "squid-helper"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        for i in range(3):
            helper.stdin.write(b"%d bakery.test:443\n" % i)
            helper.stdin.flush()
            self.assertEqual(helper.stdout.readline(), b"%d ERR\n" % i)
        helper.stdout.close()
        helper.stdin.write(b"4 bakery.test:443\n5 bakery.test:443\n")
        helper.stdin.close()
        self.assertEqual(helper.wait(WAIT), 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], warnings="ignore")
