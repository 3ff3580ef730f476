# SPDX-License-Identifier: Apache-2.0
"""The lines of docs/gateways/squid.md in a real Squid, in front of a server with an honest page and a phishing kit."""
import html
import http.client
import http.server
import os
import pwd
import re
import shutil
import subprocess
import sys
import threading
import time
import unittest

from Gateway import *

SQUID = shutil.which("squid", path="/usr/sbin:/usr/bin:/usr/local/sbin")
DOCUMENT = open(SOURCES + "/docs/gateways/squid.md").read()
BLOCKS = re.findall(r"```squid\n(.*?)```", DOCUMENT, re.S)
BIG = bytes(range(256)) * 8000


class Origin(http.server.BaseHTTPRequestHandler):
    """/honest?ENCODING and /kit?ENCODING, chunked with /chunked in front."""
    protocol_version = "HTTP/1.1"
    asked = []

    def do_GET(self):
        Origin.asked.append(self.headers["Host"].split(":")[0] + self.path)
        path, _, encoding = self.path.partition("?")
        body = BIG if path.endswith("big") else ENCODERS[encoding](KIT if path.endswith("kit") else HONEST)
        self.send_response(200)
        self.send_header("Content-Type", "image/x-test" if path.endswith("big") else "text/html")
        if encoding:
            self.send_header("Content-Encoding", {"raw": "deflate"}.get(encoding, encoding))
        if path.startswith("/chunked"):
            self.send_header("Transfer-Encoding", "chunked")
            body = chunked(body, 10000)
        else:
            self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


class Squid:
    def __init__(self, folder, lines, origin_port):
        self.folder = folder
        os.mkdir(folder)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        hosts = folder + "/hosts"
        with open(hosts, "w") as file:
            file.write("127.0.0.1 bakery.test paypal.com.signin.evil.test\n")
        own = """http_port 127.0.0.1:%d
pid_filename %s/pid
cache_log %s/cache.log
access_log stdio:%s/access.log squid
coredump_dir %s
hosts_file %s
cache deny all
cache_mem 8 MB
pinger_enable off
max_filedescriptors 1024
shutdown_lifetime 1 second
%s
http_access allow all
""" % (self.port, folder, folder, folder, folder, hosts, lines)
        with open(folder + "/squid.conf", "w") as file:
            file.write(own)
        if os.getuid() == 0:
            user = pwd.getpwnam("proxy")
            for path in [folder] + [os.path.join(folder, name) for name in os.listdir(folder)]:
                os.chown(path, user.pw_uid, user.pw_gid)
        self.origin_port = origin_port
        self.process = subprocess.Popen([SQUID, "-N", "-n", "zeph%d" % self.port, "-f", folder + "/squid.conf"],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        end = time.monotonic() + WAIT
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return
            except OSError:
                if time.monotonic() > end or self.process.poll() is not None:
                    raise AssertionError("squid doesn't start:\n" + self.log())
                time.sleep(0.05)

    def log(self):
        try:
            return open(self.folder + "/cache.log").read()
        except OSError:
            return ""

    def get(self, url):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=WAIT)
        connection.request("GET", url, headers={"Host": url.split("/")[2], "Accept-Encoding": "gzip, deflate, br, zstd"})
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer.status, answer.getheader("Content-Encoding"), body

    def end(self):
        self.process.terminate()
        self.process.wait(WAIT)


class SquidTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = scratch()
        os.chmod(cls.folder.name, 0o755)
        # Squid's helpers run as its own user, who need not reach where this was built.
        os.mkdir(cls.folder.name + "/bin")
        for name in ("zeph", "zeph.zip"):
            shutil.copy(os.path.join(os.path.dirname(PROGRAM), name), cls.folder.name + "/bin/" + name)
        cls.origin = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Origin)
        threading.Thread(target=cls.origin.serve_forever, daemon=True).start()
        cls.port = ":%d" % cls.origin.server_address[1]

    @classmethod
    def tearDownClass(cls):
        cls.origin.shutdown()
        cls.origin.server_close()
        cls.folder.cleanup()

    def squid(self, name, lines):
        folder = self.folder.name + "/" + name
        squid = Squid(folder, lines, self.port)
        self.addCleanup(squid.end)
        return squid

    def honest_pages_pass(self, squid):
        for encoding, encode in ENCODERS.items():
            for path in ("/honest", "/chunked/honest"):
                got = squid.get("http://bakery.test%s%s?%s" % (self.port, path, encoding))
                self.assertEqual(got, (200, {"raw": "deflate"}.get(encoding, encoding) or None, encode(HONEST)), path)
        self.assertEqual(squid.get("http://bakery.test%s/big" % self.port)[2], BIG)

    def test_acl(self):
        errors = self.folder.name + "/errors"
        os.mkdir(errors)
        with open(errors + "/ERR_ZEPH", "w") as file:
            file.write(re.search(r"```html\n(.*?)```", DOCUMENT, re.S).group(1))
        lines = BLOCKS[0].replace("/usr/bin/zeph", self.folder.name + "/bin/zeph").replace("/etc/squid/zeph", errors)
        squid = self.squid("acl", lines)
        Origin.asked.clear()
        status, _, body = squid.get(SPOOF % self.port + "?a=%22b%2520c")
        self.assertEqual(status, 403, squid.log())
        self.assertRegex(html.unescape(body.decode()), "<p>imitates PayPal: .+</p>")
        self.assertEqual(Origin.asked, [])
        tunnel = Client(squid.port)
        tunnel.send(b"CONNECT paypal.com.signin.evil.test:443 HTTP/1.1\r\nHost: x\r\n\r\n")
        self.assertIn("403", tunnel.head()[0])
        # Nobody is there, but that is for Squid to find out.
        self.assertEqual(squid.get("http://[::1]:9/")[0], 503)
        self.honest_pages_pass(squid)

    def test_icap(self):
        icap_service = Icap()
        squid = self.squid("icap", BLOCKS[1].replace("127.0.0.1:1344", "127.0.0.1:%d" % icap_service.port))
        Origin.asked.clear()
        status, _, body = squid.get(SPOOF % self.port)
        self.assertEqual((status, b"<strong>PayPal</strong>" in body), (403, True), squid.log())
        self.assertEqual(Origin.asked, [])
        for encoding in ENCODERS:
            for path in ("/kit", "/chunked/kit"):
                status, _, body = squid.get("http://bakery.test%s%s?%s" % (self.port, path, encoding))
                self.assertEqual((status, b"<strong>PayPal</strong>" in body), (403, True), (encoding, path))
        self.honest_pages_pass(squid)
        status, said = icap_service.end()
        self.assertEqual(status, 0)
        self.assertIn("passed unjudged: too long 0, no memory left 0, unknown encoding 0, not judged 0", said)
        self.assertIn("malformed 0", said)

    @unittest.skipUnless(shutil.which("c-icap-client"), "c-icap-client is not installed")
    def test_another_client_agrees(self):
        icap_service = Icap()
        client = [shutil.which("c-icap-client"), "-i", "127.0.0.1", "-p", str(icap_service.port), "-v", "-d", "3"]
        for name, page, held in (("kit.html", KIT, True), ("honest.html", HONEST, False), ("big.html", HONEST * 5000, False)):
            path = self.folder.name + "/" + name
            with open(path, "wb") as file:
                file.write(page)
            for more in ([], ["-no204"], ["-nopreview"], ["-nopreview", "-no204"], ["-w", "64"]):
                out = path + ".out"
                if os.path.exists(out):
                    os.remove(out)
                done = subprocess.run(client + ["-s", "respmod", "-f", path, "-o", out, "-resp", INNOCENT % "",
                                                "-rhx", "Content-Type: text/html"] + more,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=WAIT)
                back = open(out, "rb").read() if os.path.exists(out) else b""
                if held:
                    self.assertIn(b"<strong>PayPal</strong>", back, (name, more, done.stdout))
                else:
                    self.assertIn(back, (b"", page), (name, more, done.stdout))
                    if b"No modification needed" not in done.stdout and b"204" not in done.stdout:
                        self.assertEqual(back, page, (name, more, done.stdout))
        status, said = icap_service.end()
        self.assertEqual(status, 0)
        self.assertIn("malformed 0", said)


if __name__ == "__main__":
    if SQUID is None:
        print("skipped: Squid is not installed (Debian package squid)")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], warnings="ignore")
