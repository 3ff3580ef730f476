# SPDX-License-Identifier: Apache-2.0
# A stand-in for the HTTP door: answers as POST /v1/check does, and keeps what it was asked.
import http.server
import json
import threading

from common import SPOOF, check

HELD = {"verdict": "spoofing", "siteName": "PayPal", "spooficity": 0.99, "reason": None}
REASON = {"rule": "brand-in-host", "sentence": "The address carries a brand's name, \"paypal\"", "weight": 0.9}
ANSWERS = {
    "spoof": dict(HELD, input="", reasons=[], parts=[
        {"where": "link 1", "verdict": "unclassified", "siteName": None, "spooficity": 0.5, "reason": None, "reasons": [],
         "parts": []},
        dict(HELD, where="link 2", reasons=[REASON], parts=[])]),
    "script": {"verdict": "script-attack", "siteName": "Example\r\nX-Bad: 1", "spooficity": 1.0, "reason": None, "parts": []},
    "none": {"verdict": "not-judged", "siteName": None, "spooficity": None, "reason": "no link and no page in it", "parts": []},
    "honest": {"verdict": "trustworthy", "siteName": "PayPal", "spooficity": 0.0, "reason": None, "parts": []},
    "odd": {"verdict": "something new"},
    "list": [1, 2],
}


class Door(http.server.ThreadingHTTPServer):
    """asked: subjects; down: what it answers instead, if anything. wrong: what was wrong with a question."""

    def __init__(self):
        super().__init__(("127.0.0.1", 0), Handler)
        self.asked, self.down, self.wrong = [], None, []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def url(self):
        return "http://127.0.0.1:%d/v1/check" % self.server_address[1]


class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        text = self.rfile.read(int(self.headers["Content-Length"])).decode()
        subject = text.split("Subject: ")[1].split()[0]
        self.server.asked.append(subject)
        asked = (self.path, self.headers["Content-Type"], self.headers.get("Authorization"))
        if asked != ("/v1/check?explain=1", "message/rfc822", "Bearer a-token-of-sixteen"):
            self.server.wrong.append(asked)
        body = self.server.down or json.dumps(ANSWERS[subject])
        self.send_response(503 if self.server.down == "busy" else 200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body.encode())

    def log_message(self, *_):
        pass
