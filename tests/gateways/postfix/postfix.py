# SPDX-License-Identifier: Apache-2.0
# Real letters through a real Postfix with zeph milter, all on sockets of one folder.
# Usage: postfix.py ZEPH PACKAGE [LETTERS]
import collections
import queue
import random
import smtplib
import sys
import threading

import os

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from common import *

POSTFIX, SINK = need("postfix", "smtp-sink")
SENDERS = 8

SERVICES = """
relay.test unix  n       -       n       -       -       smtpd
cleanup    unix  n       -       n       -       0       cleanup
qmgr       unix  n       -       n       300     1       qmgr
rewrite    unix  -       -       n       -       -       trivial-rewrite
bounce     unix  -       -       n       -       0       bounce
defer      unix  -       -       n       -       0       bounce
trace      unix  -       -       n       -       0       bounce
lmtp       unix  -       -       n       -       -       lmtp
error      unix  -       -       n       -       -       error
retry      unix  -       -       n       -       -       error
showq      unix  n       -       n       -       -       showq
anvil      unix  -       -       n       -       1       anvil
proxymap   unix  -       -       n       -       -       proxymap
proxywrite unix  -       -       n       -       1       proxymap
postlog    unix-dgram n  -       n       -       1       postlogd
"""


class Client(smtplib.SMTP):
    """SMTP over a unix socket."""

    def _get_socket(self, host, port, timeout):
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(timeout)
        connection.connect(host)
        return connection


class Postfix:
    def __init__(self, folder, milter):
        self.folder, self.config = folder, os.path.join(folder, "config")
        self.queue = os.path.join(folder, "queue")
        self.sink = os.path.join(folder, "sink")
        self.mail = os.path.join(folder, "mail")
        data = os.path.join(folder, "data")
        for path in (self.config, self.queue, data):
            os.makedirs(path)
        shutil.chown(data, "postfix")
        documented = block("docs/gateways/postfix.md", "ini", "smtpd_milters")
        with open(self.config + "/main.cf", "w") as file:
            file.write(documented.replace("inet:127.0.0.1:8891", "unix:" + milter))
            file.write("compatibility_level = 3.6\nqueue_directory = %s\ndata_directory = %s\n" % (self.queue, data))
            file.write("myhostname = mail.example.com\nmydestination =\nmynetworks = 127.0.0.0/8\nalias_maps =\n")
            file.write("default_transport = lmtp:unix:%s\nrelay_transport = $default_transport\n" % self.sink)
            file.write("maillog_file = %s/log\nmaillog_file_prefixes = %s\n" % (folder, folder))
            file.write("import_environment = MAIL_CONFIG\nsmtpd_client_connection_count_limit = 0\n")
            file.write("relay_domains = example.com\nsmtpd_relay_restrictions = reject_unauth_destination\nsmtpd_error_sleep_time = 0\nsmtpd_hard_error_limit = 1000000\n")
            file.write("smtpd_soft_error_limit = 1000000\ninet_interfaces = 127.0.0.1\n")
        with open(self.config + "/master.cf", "w") as file:
            file.write(SERVICES)
        self.sinking = subprocess.Popen([SINK, "-u", "root", "-L", "-D", self.mail, "unix:" + self.sink, "200"], umask=0, cwd=folder,
                                        stderr=subprocess.DEVNULL)
        wait_for(lambda: os.path.exists(self.sink), "the sink")

    def run(self, command):
        run = subprocess.run([POSTFIX, "-c", self.config, command], capture_output=True, text=True, timeout=300)
        check(run.returncode == 0, "postfix", command, run.stdout, run.stderr, self.log())

    def log(self):
        path = os.path.join(self.folder, "log")
        return open(path, errors="replace").read()[-4000:] if os.path.exists(path) else ""

    def connect(self):
        return Client(os.path.join(self.queue, "public", "relay.test"), 1, "client.example.org", timeout=300)

    def letters(self):
        """What arrived: headers by subject."""
        if not os.path.exists(self.mail):
            return []
        with open(self.mail, errors="replace") as file:
            text = file.read()
        found = []
        for one in re.split(r"^X-Client-Addr:", text, flags=re.M)[1:]:
            head = unfold(one.split("\n\n")[0])
            subject = re.search(r"^Subject: (.*)$", head, re.M)
            found.append((subject.group(1) if subject else "", head))
        return found

    def hold(self):
        return sum(len(files) for _, _, files in os.walk(os.path.join(self.queue, "hold")))

    def stop(self):
        subprocess.run([POSTFIX, "-c", self.config, "stop"], capture_output=True, timeout=300)
        self.sinking.kill()
        self.sinking.wait()


def send(client, text):
    client.sendmail("sender@example.org", ["receiver@example.com"], text.replace("\n", "\r\n").encode())


def marks(head):
    return re.findall(r"^X-Zeph: (.*)$", head, re.M | re.I)


@contextlib.contextmanager
def running(folder, zeph, *arguments):
    milter = Milter(zeph, folder, *arguments)
    postfix = Postfix(folder, milter.socket)
    try:
        milter.start()
        postfix.run("start")
        wait_for(lambda: os.path.exists(os.path.join(postfix.queue, "public", "relay.test")), "Postfix")
        yield milter, postfix
    except BaseException:
        print(postfix.log(), milter.text()[-2000:], sep="\n")
        raise
    finally:
        postfix.stop()
        if milter.process is not None and milter.process.poll() is None:
            milter.kill()


def marks_letters(folder, zeph):
    with running(folder, zeph) as (milter, postfix):
        with postfix.connect() as client:
            forged = ["X-Zeph: trustworthy", "x-zeph : trustworthy;\n\tscore=0.0"]
            send(client, spoof_letter("spoof", forged))
            send(client, honest_letter("honest", forged))
        wait_for(lambda: len(postfix.letters()) == 2, "both letters")
        heads = dict(postfix.letters())
        check(len(marks(heads["spoof"])) == 1 and marks(heads["spoof"])[0].startswith('spoofing; brand="PayPal"; reason="'),
              heads["spoof"])
        check(len(marks(heads["honest"])) == 1 and not marks(heads["honest"])[0].startswith("spoofing"), heads["honest"])
        check("trustworthy;" not in heads["spoof"], heads["spoof"])
        milter.stop()


def rejects_and_sets_aside(folder, zeph):
    for action in ("reject", "quarantine"):
        sub = os.path.join(folder, action)
        os.mkdir(sub)
        with running(sub, zeph, "--action", action) as (_, postfix), postfix.connect() as client:
            try:
                send(client, spoof_letter("spoof"))
                check(action == "quarantine", "a spoof wasn't rejected")
                wait_for(lambda: postfix.hold() == 1, "the letter on hold")
            except smtplib.SMTPDataError as error:
                check(action == "reject" and error.smtp_code == 550 and b"imitates PayPal" in error.smtp_error, error)
            send(client, honest_letter("honest"))
            wait_for(lambda: [subject for subject, _ in postfix.letters()] == ["honest"], "the honest letter alone")


def loses_nothing(folder, zeph, package, count):
    """Packages are swapped and the milter is killed while letters pass; senders try again when they are told to."""
    with running(folder, zeph) as (milter, postfix):
        waiting, errors, accepted, told = queue.SimpleQueue(), [], [0], [0]
        lock = threading.Lock()
        for number in range(count):
            waiting.put(number)

        def work():
            client = None
            try:
                while True:
                    try:
                        number = waiting.get_nowait()
                    except queue.Empty:
                        break
                    make = spoof_letter if number % 3 == 0 else honest_letter
                    text = make("letter %d" % number, ["X-Zeph: trustworthy"])
                    for _ in range(10000):
                        try:
                            client = client or postfix.connect()
                            send(client, text)
                            break
                        except (smtplib.SMTPResponseException, smtplib.SMTPSenderRefused, smtplib.SMTPRecipientsRefused,
                                smtplib.SMTPServerDisconnected) as error:
                            code = getattr(error, "smtp_code", 400)
                            check(400 <= code < 500, "letter", number, error)
                            with lock:
                                told[0] += 1
                            client.close()
                            client = None
                            time.sleep(0.05)
                    else:
                        check(False, "letter", number, "was never taken")
                    with lock:
                        accepted[0] += 1
            except BaseException as error:
                errors.append(error)

        threads = [threading.Thread(target=work, daemon=True) for _ in range(SENDERS)]
        for thread in threads:
            thread.start()
        with open(package, "rb") as file:
            whole = file.read()
        place = os.path.join(milter.machine, PACKAGE_PLACE)
        os.makedirs(os.path.dirname(place), exist_ok=True)
        kills = 5
        for kill in range(1, kills + 1):
            wait_for(lambda: errors or accepted[0] >= kill * count // (kills + 2), "letters to pass", 600)
            # Not even written in one piece: what can't be loaded leaves the old one in force.
            for bytes_ in (whole[:len(whole) // 2], whole):
                with open(place, "wb") as file:
                    file.write(bytes_)
                time.sleep(random.random() / 10)
            milter.kill()
            time.sleep(random.random() / 10)
            milter.start()
        for thread in threads:
            thread.join(600)
        check(not errors and accepted[0] == count, errors, accepted)
        wait_for(lambda: len(postfix.letters()) >= count, "all letters to arrive", 600)
        arrived = postfix.letters()
        numbers = collections.Counter(subject for subject, _ in arrived)
        check(sorted(numbers) == sorted("letter %d" % number for number in range(count)), "letters are missing")
        check(max(numbers.values()) == 1, "letters came twice")
        for subject, head in arrived:
            is_spoof = int(subject.split()[1]) % 3 == 0
            check(len(marks(head)) == 1 and marks(head)[0].startswith("spoofing") == is_spoof, head)
        milter.stop()
        print("%d letters, %d kills, told to come again %d times, none lost" % (count, kills, told[0]))


zeph, package = sys.argv[1:3]
count = int(sys.argv[3]) if len(sys.argv) > 3 else 500
PACKAGE_PLACE = "zeph.zip"
if os.geteuid() != 0:
    print("skipped: Postfix is started by the superuser alone")
    sys.exit(SKIPPED)
with scratch() as folder:
    marks_letters(folder, zeph)
with scratch() as folder:
    rejects_and_sets_aside(folder, zeph)
with scratch() as folder:
    loses_nothing(folder, zeph, package, count)
