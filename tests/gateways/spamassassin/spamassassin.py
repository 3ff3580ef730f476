# SPDX-License-Identifier: Apache-2.0
# A real SpamAssassin with the plugin and the rules of the documentation, and a stand-in for the door.
import sys

import os

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from common import *
from door import Door

PLUGIN = os.path.join(SOURCES, "gateways/spamassassin/Zeph.pm")
SPAMASSASSIN, PERL = need("spamassassin", "perl")
subprocess.run([PERL, "-c", PLUGIN], check=True)

LETTERS = [
    ("spoof", "ZEPH_SPOOFING", 'PayPal: The address carries a brand\'s name, "paypal"'),
    ("script", "ZEPH_SCRIPT_ATTACK", "Example X-Bad: 1"),
    ("none", "ZEPH_NOT_JUDGED", "no link and no page in it"),
    ("honest", None, ""),
    ("list", "ZEPH_FAIL", "no verdict in the answer"),
]

with scratch() as folder:
    door = Door()
    shutil.copy(PLUGIN, folder)
    documented = block("docs/gateways/rspamd.md", "perl", "loadplugin")
    with open(folder + "/zeph.cf", "w") as file:
        file.write(documented.replace("http://127.0.0.1:8080/v1/check", door.url())
                   .replace("zeph_timeout 5", "zeph_timeout 60\n  zeph_token a-token-of-sixteen"))
        file.write("report_safe 0\nuse_bayes 0\nskip_rbl_checks 1\ndns_available no\n")
        file.write("add_header all Rules _TESTS_\n")
        file.write("loadplugin Mail::SpamAssassin::Plugin::Check\n")

    def ask(subject):
        text = letter(subject, mime("text/plain", SPOOF + "\n", "8bit"))
        run = subprocess.run([SPAMASSASSIN, "--local", "--test-mode", "--configpath=" + folder, "--siteconfigpath=" + folder,
                              "--prefspath=" + folder + "/none"], input=text, capture_output=True, text=True, timeout=300,
                             env=dict(os.environ, HOME=folder, http_proxy="http://127.0.0.1:9"))
        check(run.returncode == 0, run.stderr)
        return run.stdout

    for subject, rule, told in LETTERS:
        found = ask(subject)
        rules = set(re.findall(r"\bZEPH_[A-Z_]+", unfold(found)))
        check(rules == ({rule} if rule else set()), subject, "gave", rules, found)
        check(told in re.sub(r"\s+", " ", unfold(found)), subject, "doesn't tell", told, found)
    check(door.asked == [subject for subject, _, _ in LETTERS], "asked:", door.asked)
    door.shutdown()
    door.server_close()
    check("ZEPH_FAIL" in ask("spoof"), "without a door")
    check(not door.wrong, door.wrong)
