"""What is asked, believed and kept of what servers give. usage: rules_test.py <crvctl> <source folder>"""
import datetime
import os
import pathlib
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from network_case import CRVCTL, KEYS, NetworkCase
from servers import Scripted, openssl, squid

CA_CONFIG = """
[ca]
default_ca = one
[one]
database = FOLDER/index
default_md = sha256
crlnumber = FOLDER/number
[idp]
issuingDistributionPoint = critical,@point
[point]
fullname = URI:http://127.0.0.1/
onlyuser = TRUE
[authority]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
[below]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
crlDistributionPoints = URI:http://127.0.0.1:PORT/point
[purposeful]
extendedKeyUsage = timeStamping
[other]
extendedKeyUsage = critical,timeStamping,clientAuth
[stamps]
extendedKeyUsage = critical,timeStamping
"""


def days(number):
    return (datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(days=number)).strftime("%Y%m%d%H%M%SZ")


class Rules(NetworkCase):
    def issue(self, name, section, signer="ca/ca"):
        """name.pem with name.key, with the extensions of a section, of an authority or (empty) of its own."""
        config = self.config()
        if not signer:
            openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "9", "-keyout", name + ".key", "-out", name + ".pem", "-subj", "/CN=" + name,
                    "-config", "/dev/null", "-extensions", section, "-config", config)
            return
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", name + ".key", "-out", name + ".req", "-subj", "/CN=" + name)
        openssl("x509", "-req", "-in", name + ".req", "-CA", signer + ".pem", "-CAkey", signer + ".key", "-CAcreateserial", "-days", "9", "-out", name + ".pem",
                "-extfile", config, "-extensions", section)

    def config(self, number="1000"):
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.home))
        (folder / "index").touch()
        (folder / "number").write_text(number + "\n")
        (folder / "ca.cnf").write_text(CA_CONFIG.replace("FOLDER", str(folder)).replace("PORT", str(self.web.port)) +
                                       "[req]\ndistinguished_name = dn\n[dn]\n")
        return str(folder / "ca.cnf")

    def crl_of(self, signer, *more, start=-1, number="1000"):
        out = self.home + "/made.crl"
        openssl("ca", "-batch", "-config", self.config(number), "-gencrl", "-keyfile", signer + ".key", "-cert", signer + ".pem", "-crl_lastupdate", days(start),
                "-crl_nextupdate", days(5), "-out", out, *more)
        return openssl("crl", "-in", out, "-outform", "DER")

    # Lists

    def test_who_has_no_server_and_who_asks_too_early_is_told(self):
        verdict, reason = self.verdict()
        self.assertEqual(verdict, "ECRV_TCP_NO_SRV")
        self.assertIn("add one", reason)
        for name in ("A", "B"):
            self.add(name, self.web.port, period="100000")
        self.assertEqual([item["server"] for item in self.refresh(0, "--due")], ["A"])
        self.assertEqual(self.refresh(0, "--due"), [], "the period counts for those behind the first, too")
        self.ctl("server", "remove", "A", "--yes")
        self.ctl("server", "remove", "B", "--yes")
        self.add("A", self.web.port, period="100000")
        self.assertEqual(len(self.refresh(0, "--due")), 1, "a removed server is forgotten")

    def test_one_list_of_two_authorities_is_not_asked_for_again(self):
        self.issue("sub", "authority")
        self.drop_crls()
        self.ctl("cert", "import", "sub.pem")
        self.add("S", self.web.port)
        self.assertEqual([item["verdict"] for item in self.refresh(0, "--due")], ["CRV_OK"])
        self.web.seen.clear()
        self.assertEqual(self.refresh(0, "--due"), [])
        self.assertEqual(self.web.seen, [], "it has nothing for the other")
        # Numbered anew, though later: the store would not take it.
        stored = self.stored()
        self.crl = self.crl_of("ca/ca", start=0, number="00")
        code = self.refresh(8, "--ca", "ca/ca.pem")[0]["verdict"]
        self.assertEqual((code, self.stored()), ("ECRV_OLD_CRL", stored))

    def test_lists_count_for_their_authority_and_scope(self):
        self.issue("alien", "authority", signer="")
        self.issue("sub", "below")
        self.ctl("cert", "import", "alien.pem")
        self.add("S", self.web.port)
        self.refresh()
        newest = self.crl
        self.crl = self.crl_of("alien", "-crlexts", "idp")
        self.assertIn("ECRV_SRV_BAD_CA", [item["verdict"] for item in self.refresh(8, "--ca", "ca/ca.pem")])
        self.assertEqual(self.stored(), [newest])
        self.crl = self.crl_of("ca/ca", start=-2, number="00")
        self.assertEqual(self.refresh(8, "--ca", "ca/ca.pem")[0]["verdict"], "ECRV_OLD_CRL")
        self.crl = part = self.crl_of("ca/ca", "-crlexts", "idp", start=-2)
        self.assertEqual(self.refresh(0, "--ca", "ca/ca.pem")[0]["verdict"], "CRV_OK")
        self.assertEqual(self.stored(), sorted([newest, part]))
        # Of an authority that the database does not know yet.
        self.issue("leaf", "stamps", signer="sub")
        self.crl = self.crl_of("sub")
        self.ctl("crl", "refresh", "--ca", "sub.pem", *KEYS)
        steps = self.ctl("cert", "verify", "leaf.pem", "--revocation", "required", "--offline", *KEYS)["items"]
        self.assertEqual((steps[0]["status"], len(steps)), ("good", 3))
        # Where certificates say: now that one of them names an address.
        self.ctl("server", "remove", "S", "--yes")
        self.web.seen.clear()
        self.web.routes["/point"] = lambda handler, _: handler.give(newest)
        self.ctl("server", "allow", f"127.0.0.1:{self.web.port}")
        self.assertEqual(self.refresh(8)[0]["verdict"], "ECRV_TCP_NO_SRV")
        self.ctl("setting", "set", "auto-crl-crt-download", "1", *KEYS)
        self.assertEqual([(item["verdict"], item["server"]) for item in self.refresh()], [("CRV_OK", "")])
        self.assertEqual(self.web.paths(), ["/point"])

    def test_nobody_waits_for_a_fetch(self):
        hold = threading.Event()
        self.addCleanup(hold.set)
        self.web.routes["/slow"] = lambda handler, _: (hold.wait(20), handler.give(self.crl))
        self.add("S", self.web.port, path="/slow")
        running = subprocess.Popen([CRVCTL, "crl", "refresh", *KEYS], env=self.env, stdout=subprocess.DEVNULL)
        self.helper_of(running.pid)
        self.run_it("--wait", "0", "setting", "set", "connect-timeout", "5", *KEYS)
        hold.set()
        self.assertEqual(running.wait(10), 0)

    def test_who_does_not_answer_is_given_up_in_time(self):
        hole = socket.socket()
        self.addCleanup(hole.close)
        hole.bind(("127.0.0.1", 0))
        hole.listen(0)
        for _ in range(4):  # the queue is full, and nobody takes from it
            filler = socket.socket()
            self.addCleanup(filler.close)
            filler.setblocking(False)
            filler.connect_ex(hole.getsockname())
        self.ctl("setting", "set", "connect-timeout", "1", *KEYS)
        for kind in ("http", "ldap"):
            self.add("HOLE", hole.getsockname()[1], kind)
            started = time.monotonic()
            self.assertEqual(self.verdict()[0], "ECRV_TCP_TIMEOUT")
            self.add("GOOD", self.web.port)
            self.assertEqual(self.refresh()[0]["server"], "GOOD")
            self.assertLess(time.monotonic() - started, 2 * 3)
            self.ctl("server", "remove", "HOLE", "--yes")
            self.ctl("server", "remove", "GOOD", "--yes")

    def test_a_proxy_that_wants_a_digest(self):
        name = os.uname().nodename
        outer = Scripted("0.0.0.0")
        self.addCleanup(outer.close)
        outer.routes = self.web.routes
        port = squid(self, "jan", "tajne")
        pathlib.Path("proxy-password").write_text("tajne\n")
        pathlib.Path("proxy-password").chmod(0o600)
        self.add("OUTER", outer.port, host=name)
        for user, status in (("jan", 0), ("ewa", 8)):
            outer.seen.clear()
            self.ctl("proxy", "set", "--address", "127.0.0.1", "--port", str(port), "--user", user, "--proxy-password-file", "proxy-password")
            self.refresh(status)
            self.assertEqual([headers.get("X-Forwarded-For", "") != "" for _, headers, _ in outer.seen], [True] * (status == 0))

    # Certificates

    def test_a_server_of_certificates_has_to_show_that_it_is_one(self):
        self.web.routes["/page"] = lambda handler, _: handler.give(b"<html>welcome</html>", "text/html")
        people = openssl("x509", "-in", "p0.pem", "-outform", "DER")
        self.web.routes["/people"] = lambda handler, _: handler.give(people)
        self.web.routes["/crowd"] = lambda handler, _: handler.give(people * 1001)
        for kind, port, path, code in (("http", self.web.port, "/page", "ECRV_TCP_PROT"), ("http", self.web.port, "/none", "ECRV_RECCRT"),
                                       ("http", self.web.port, "/people", "CRV_OK"), ("ldap", self.ldap, "/C=PL", "CRV_OK"),
                                       ("ldap", self.ldap, "/C=DE", "ECRV_TCP_PROT")):
            self.add("S", port, kind, "certificates", path)
            item = self.ctl("server", "test", "S", *KEYS, status=0 if code == "CRV_OK" else 8)["items"][0]
            self.assertEqual(item["verdict"], code, (path, item))
            self.ctl("server", "remove", "S", "--yes")
        self.add("S", self.web.port, "http", "certificates", "/crowd")
        told = self.ctl("cert", "fetch", "--name", "Jan", *KEYS, status=8)
        self.assertIn("1000", told["reason"])

    def test_a_recipient_is_fetched_when_the_setting_says_so(self):
        self.add("L", self.ldap, "ldap", "certificates", "/C=PL")
        pathlib.Path("text").write_text("treść\n")
        words = ("encrypt", "text", "out.p7m", "--for-email", "p0@firma.pl", "--force", *KEYS)
        self.ctl(*words, status=3)
        self.ctl("setting", "set", "enc-crt-from-net", "1", *KEYS)
        self.ctl(*words)
        self.assertTrue(openssl("cms", "-decrypt", "-inform", "DER", "-in", "out.p7m", "-inkey", self.road + "/p0.key").endswith("treść\n".encode()))
        self.ctl("server", "remove", "L", "--yes")
        self.ctl(*words)

    # Answers and stamps

    def test_an_answer_without_end_is_not_kept(self):
        index = pathlib.Path("ca/index.txt")
        serial = openssl("x509", "-in", "server.pem", "-noout", "-serial").decode().strip().split("=")[1]
        index.write_text(f"V\t301231235959Z\t\t{serial}\tunknown\t/CN=server\n")
        self.web.routes["/ocsp"] = self.answers.ocsp(str(index.resolve()), *[self.road + "/ca/ca." + end for end in ("pem", "pem", "key")], words=())
        self.add("O", self.web.port, use="ocsp", path="/ocsp")
        self.drop_crls()
        verify = ("cert", "verify", "server.pem", "--revocation", "required", *KEYS)
        self.assertEqual(self.ctl(*verify)["items"][0]["statusSource"], "ocsp")
        self.assertEqual(self.ctl(*verify, "--offline", status=1)["items"][0]["status"], "unknown")

    def test_stamps_that_are_not_what_was_asked_for(self):
        for name, section in (("soft", "purposeful"), ("both", "other"), ("right", "stamps")):
            self.issue(name, section)

        def other(place):  # an octet of the imprint or of the nonce behind it
            def change(query):
                at = query.index(b"\x04\x20") + 2 + place
                return query[:at] + bytes([query[at] ^ 1]) + query[at + 1:]
            return change

        late = lambda content: content.replace(content[content.index(b"\x18\x0f"):][:17], b"\x18\x0f" + days(-0.5).encode())
        same = lambda octets: octets
        self.add("T", self.web.port, use="time-stamp", path="/ts")
        for signer, query, content, ess, code, reason in (
                ("right", same, same, ["-cades"], "CRV_OK", ""), ("right", other(0), same, ["-cades"], "ECRV_TS_VERIF", "something else"),
                ("right", other(32 + 3), same, ["-cades"], "ECRV_TS_VERIF", "nonce"), ("right", same, same, [], "ECRV_TS_VERIF", "another signer"),
                ("soft", same, same, ["-cades"], "ECRV_TS_VERIF", "not only for"), ("both", same, same, ["-cades"], "ECRV_TS_VERIF", "not only for"),
                ("right", same, late, ["-cades"], "CRV_OK", "")):
            self.web.routes["/ts"] = self.answers.stamp_by(self.road + "/ts.cnf", signer, query, content, ess)
            item = self.ctl("server", "test", "T", *KEYS, status=0 if code == "CRV_OK" else 8)["items"][0]
            self.assertEqual(item["verdict"], code, (signer, reason, item))
            self.assertIn(reason, item["reason"])
        self.assertGreater(item["clockAhead"], 11 * 3600)
        whole = self.run_it("cert", "purge", "--yes", *KEYS)
        self.assertIn("more than five minutes", whole["warnings"][0])
        self.assertIn("not compared", self.run_it("--non-interactive", "cert", "purge", "--yes")["warnings"][0])
        self.assertEqual(self.run_it("cert", "purge", "--yes", "--offline")["warnings"], [])


if __name__ == "__main__":
    import sys
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=1)
