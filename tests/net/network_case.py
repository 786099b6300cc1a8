"""What the tests of the network share: a profile of its own for each, and servers on loopback for all."""
import base64
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

from servers import Answers, Scripted, directory, ftp, openssl

CRVCTL, SOURCE = os.path.realpath(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
ENV = {"PATH": os.path.dirname(CRVCTL) + ":" + os.environ["PATH"], "LC_ALL": "C.UTF-8"}
CA_DN = "CN=Urząd pokazowy,OU=Pokaz,O=Corvane,C=PL"
KEYS = ("--password-file", "password")
EXTENSIONS = """
[server]
subjectAltName = DNS:localhost,IP:127.0.0.1
[tsa]
extendedKeyUsage = critical,timeStamping
keyUsage = critical,digitalSignature
[points]
crlDistributionPoints = @list
authorityInfoAccess = OCSP;URI:http://127.0.0.1:PORT/ocsp
[list]
"""
TS_CONFIG = """
[tsa]
default_tsa = one
[one]
serial = FOLDER/tsserial
crypto_device = builtin
signer_cert = FOLDER/tsa.pem
certs = FOLDER/ca/ca.pem
signer_key = FOLDER/tsa.key
signer_digest = sha256
default_policy = 1.2.3.4
digests = sha256
accuracy = secs:1, millisecs:500
ess_cert_id_alg = sha256
"""


def b64(path):
    return base64.b64encode(pathlib.Path(path).read_bytes()).decode()


class NetworkCase(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.made = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.made, ignore_errors=True)
        cls.road = cls.made + "/road"
        subprocess.run(["bash", str(SOURCE / "examples/road.sh"), cls.road], env=dict(ENV, HOME=cls.made), check=True,
                       capture_output=True)
        cls.web = Scripted()
        cls.addClassCleanup(cls.web.close)
        extensions = EXTENSIONS.replace("PORT", str(cls.web.port))
        extensions += "".join(f"URI.{i} = http://127.0.0.1:{cls.web.port}/point{i}\n" for i in range(200))
        pathlib.Path(cls.road, "ext.cnf").write_text(extensions, "utf-8")
        for name in ("server", "tsa", "points"):
            cls.certify(name)
        ca_entry = (f"dn: {CA_DN}\nobjectClass: applicationProcess\nobjectClass: pkiCA\ncn: Urz\ncertificateRevocationList;binary::"
                    f" {b64(cls.road + '/ca/ca.crl')}\ncACertificate;binary:: {cls.der('ca/ca.pem')}\n")
        cls.people = {"Jan (*\\) Kowalski": "server", "Jan Inny": "tsa"}
        ldif = f"dn: C=PL\nobjectClass: country\nc: PL\n\ndn: O=Corvane,C=PL\nobjectClass: organization\no: Corvane\n\n" \
               f"dn: OU=Pokaz,O=Corvane,C=PL\nobjectClass: organizationalUnit\nou: Pokaz\n\n" + \
               "dn:: " + base64.b64encode(CA_DN.encode()).decode() + ca_entry[ca_entry.index("\n"):].replace("cn: Urz\n", "cn:: " + base64.b64encode("Urząd pokazowy".encode()).decode() + "\n")
        cls.named = {}
        for number, name in enumerate(("Jan (*\\) Kowalski", "Jan Inny")):
            cls.certify(f"p{number}", subject=f"/C=PL/O=Corvane/OU=Pokaz/CN={name}/emailAddress=p{number}@firma.pl".replace("\\", "\\\\"))
            ldif += (f"\ndn: employeeNumber={number},OU=Pokaz,O=Corvane,C=PL\nobjectClass: inetOrgPerson\ncn: {name}\nsn: {name}\n"
                     f"mail: p{number}@firma.pl\nuserCertificate;binary:: {cls.der(f'p{number}.pem')}\n")
        server = (cls.road + "/server.pem", cls.road + "/server.key")
        cls.ldap, cls.ldaps = directory(cls, cls.made, ldif, server)
        cls.ftp = ftp(cls, cls.road + "/ca")
        cls.tls = Scripted(certificate=server)
        cls.addClassCleanup(cls.tls.close)
        answers = Answers(cls.road)
        pathlib.Path(cls.road, "ts.cnf").write_text(TS_CONFIG.replace("FOLDER", cls.road), "utf-8")
        pathlib.Path(cls.road, "tsserial").write_text("01\n")
        cls.stamp = staticmethod(answers.stamp(cls.road + "/ts.cnf"))
        cls.answers = answers

    @classmethod
    def certify(cls, name, subject=None):
        at = f"{cls.road}/{name}"
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-utf8", "-keyout", at + ".key", "-out", at + ".req", "-subj",
                subject or f"/C=PL/CN={name}")
        words = ["-extfile", cls.road + "/ext.cnf", "-extensions", name] if subject is None else []
        openssl("x509", "-req", "-in", at + ".req", "-CA", cls.road + "/ca/ca.pem", "-CAkey", cls.road + "/ca/ca.key",
                "-CAcreateserial", "-days", "9", "-out", at + ".pem", *words)

    @classmethod
    def der(cls, name):
        return base64.b64encode(openssl("x509", "-in", f"{cls.road}/{name}", "-outform", "DER")).decode()

    def setUp(self):
        self.home = tempfile.mkdtemp(dir=self.made)
        shutil.copytree(self.road, self.home + "/road")
        lists = pathlib.Path(self.home, "road/profiles.conf")
        lists.write_text(lists.read_text("utf-8").replace(self.made + "/road", self.home + "/road"), "utf-8")
        self.env = dict(ENV, HOME=self.home, CRV_PROFILE_FILE=str(lists), CRV_PROFILE="DROGA")
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.home + "/road")
        self.web.seen.clear()
        self.crl = pathlib.Path("ca/ca.crl").read_bytes()
        self.web.routes = {"/crl": lambda h, _: h.give(self.crl)}
        self.ctl("server", "remove", "LDAP", "--yes")

    def run_it(self, *words, status=0):
        done = subprocess.run([CRVCTL, "--json", *words], env=self.env, capture_output=True, timeout=60)
        self.assertEqual(done.returncode, status, (words, done.stdout.decode(), done.stderr.decode()))
        return json.loads(done.stdout)

    def ctl(self, *words, status=0):
        return self.run_it(*words, status=status)["result"]

    def add(self, name, port, kind="http", use="crl", path="/crl", host="127.0.0.1", **more):
        options = [word for key, value in more.items() for word in ("--" + key, value)]
        self.ctl("server", "add", name, "--address", host, "--port", str(port), "--type", kind, "--use", use,
                 "--path", path, *options)

    def refresh(self, status=0, *words):
        return self.ctl("crl", "refresh", *words, *KEYS, status=status)["items"]

    def stored(self):
        folder = pathlib.Path("db/DROGA")
        return sorted(path.read_bytes() for path in folder.glob("*.crl"))

    def drop_crls(self):
        shutil.rmtree("db")
        self.ctl("db", "create")
        self.ctl("cert", "import", "ca/ca.pem")

    def verdict(self, status=8):
        items = self.refresh(status)
        self.assertEqual(len(items), 1, items)
        return items[0]["verdict"], items[0]["reason"]

    def self_signed(self):
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "9", "-keyout", self.home + "/f.key", "-out", self.home + "/f.pem",
                "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1")
        return self.home + "/f.pem", self.home + "/f.key"

    def helper_of(self, pid):
        for _ in range(200):
            for at in pathlib.Path("/proc").glob("[0-9]*/stat"):
                try:
                    fields = at.read_text().rsplit(")", 1)[1].split()
                    if int(fields[1]) == pid and "crvfetch" in at.read_text() and self.web.seen:
                        return int(at.parent.name)
                except OSError:
                    pass
            time.sleep(0.02)
        raise RuntimeError("no helper")
