# SPDX-License-Identifier: Apache-2.0
# A real rspamd with the plugin and the configuration of the documentation, and a stand-in for the door.
import http.client
import json
import sys

import os

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from common import *
from door import Door

PLUGIN = os.path.join(SOURCES, "gateways/rspamd/zeph.lua")
luac = shutil.which("luac") or shutil.which("luac5.4")
if luac:
    subprocess.run([luac, "-p", PLUGIN], check=True)
RSPAMD, = need("rspamd")

CONFIGURATION = """
options {
  pidfile = "%(folder)s/pid"; filters = ""; url_tld = "/usr/share/rspamd/effective_tld_names.dat";
  control_socket = "%(folder)s/control mode=0600"; hs_cache_dir = "%(folder)s"; dns { nameserver = ["127.0.0.1:9"]; }
}
logging { type = "file"; filename = "%(folder)s/rspamd.log"; level = "info"; }
worker "normal" { bind_socket = "%(folder)s/socket mode=0666"; count = 1; }
modules { path = "%(folder)s/plugins"; }
actions { reject = 15; add_header = 6; }
"""

# The letter, its symbol, and what the options hold.
LETTERS = [
    ("spoof", "ZEPH_SPOOFING", 'PayPal,The address carries a brand\'s name, "paypal",link 2'),
    ("script", "ZEPH_SCRIPT_ATTACK", "Example  X-Bad: 1"),
    ("none", "ZEPH_NOT_JUDGED", "no link and no page in it"),
    ("honest", "ZEPH_TRUSTWORTHY", ""),
    ("odd", "ZEPH_FAIL", "no verdict in the answer"),
    ("list", "ZEPH_FAIL", "no verdict in the answer"),
]


class Connection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=120)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


def ask(folder, text):
    connection = Connection(folder + "/socket")
    connection.request("POST", "/checkv2", text.replace("\n", "\r\n").encode())
    answer = json.loads(connection.getresponse().read())
    connection.close()
    return {name: ",".join(one.get("options", [])) for name, one in answer["symbols"].items() if name.startswith("ZEPH")}


with scratch() as folder:
    door = Door()
    os.mkdir(folder + "/plugins")
    shutil.copy(PLUGIN, folder + "/plugins")
    documented = block("docs/gateways/rspamd.md", "hcl", "zeph {")
    with open(folder + "/rspamd.conf", "w") as file:
        file.write(CONFIGURATION % {"folder": folder})
        file.write(documented.replace("http://127.0.0.1:8080/v1/check", door.url())
                   .replace("timeout = 5.0", 'token = "a-token-of-sixteen";\n  timeout = 60.0'))
    for path in (folder, folder + "/plugins"):
        shutil.chown(path, "_rspamd")
    process = subprocess.Popen([RSPAMD, "-f", "-u", "_rspamd", "-g", "_rspamd", "-c", folder + "/rspamd.conf"],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_for(lambda: os.path.exists(folder + "/socket") or process.poll() is not None, "rspamd")
        for subject, symbol, options in LETTERS:
            found = ask(folder, letter(subject, mime("text/plain", SPOOF + "\n", "8bit")))
            check(found == {symbol: options}, subject, "gave", found)
        asked = len(door.asked)
        for subject, symbol, options in LETTERS[:4]:
            check(ask(folder, letter(subject, mime("text/plain", SPOOF + "\n", "8bit"))) == {symbol: options}, subject)
        check(len(door.asked) == asked, "an answer wasn't kept:", door.asked)
        for down in ("busy", "no JSON {"):
            door.down = down
            found = ask(folder, letter("spoof", mime("text/plain", down + "\n", "8bit")))
            check(list(found) == ["ZEPH_FAIL"], down, "gave", found)
        door.shutdown()
        door.server_close()
        found = ask(folder, letter("spoof", mime("text/plain", "away\n", "8bit")))
        check(list(found) == ["ZEPH_FAIL"], "without a door:", found)
        check(not door.wrong, door.wrong)
    except BaseException:
        if os.path.exists(folder + "/rspamd.log"):
            print(open(folder + "/rspamd.log").read()[-4000:])
        raise
    finally:
        process.terminate()
        process.wait(timeout=120)
