"""Messages of crvctl and of other tools, each read by the other. usage: interop_test.py <crvctl> <make.sh>"""
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "net"))
from servers import Answers, Scripted  # noqa: E402

CRVCTL, MAKE = (os.path.realpath(a) for a in sys.argv[1:3])
SIGNERS = ("rsa", "pss", "ec", "ec5", "bp", "dsa")
RECEIVERS = ("rsa", "ec", "ec5", "bp")
CIPHERS = ("aes256-cbc", "aes192-cbc", "aes128-cbc", "aes256-gcm", "aes128-gcm", "3des-cbc")
# Short ones are DER, long ones have indefinite lengths; none at all, and a block's edges.
SIZES = (0, 1, 15, 16, 3000, 1 << 20, (1 << 20) + 1, 3 << 20)


class Interop(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.home = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.home)
        os.chdir(cls.home)
        cls.env = {"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "HOME": cls.home, "CRV_PROFILE_FILE": cls.home + "/list",
                   "OPENSSL_CONF": "/dev/null", "GNUPGHOME": cls.home + "/gnupg"}
        cls.tool("bash", MAKE)
        for name in SIGNERS + ("rsb",):
            cls.ours(name, "profile", "create", name, "--key-file", f"{cls.home}/{name}.p12", "--db", f"{cls.home}/db_{name}",
                     "--roots-file", cls.home + "/roots.p12", "--roots-empty-password", "1")
            cls.ours(name, "db", "create")
        for size in SIZES:
            pathlib.Path(f"c{size}").write_bytes(random.Random(size).randbytes(size))

    @classmethod
    def tool(cls, *words, status=0):
        done = subprocess.run(words, env=cls.env, capture_output=True, timeout=120)
        assert (done.returncode == 0) == (status == 0), (words, done.stdout[-500:], done.stderr[-2000:])
        return done

    @classmethod
    def ours(cls, profile, *words, status=0):
        secret = () if words[0] in ("profile", "db", "server") else ("--password-file", "pw")
        done = subprocess.run([CRVCTL, "--json", "-p", profile, *words, *secret], env=cls.env, capture_output=True, timeout=120)
        assert done.returncode == status, (words, done.stdout, done.stderr)
        answer = json.loads(done.stdout)
        return answer["result"] if status == 0 or words[0] == "verify" else answer

    def same(self, a, b):
        self.assertEqual(pathlib.Path(a).read_bytes(), pathlib.Path(b).read_bytes())

    def test_what_we_sign_others_verify(self):
        for signer in SIGNERS:
            for size in SIZES if signer == "rsa" else (3000, 3 << 20):
                for form in ((), ("--detached",), ("--pem",)):
                    with self.subTest(signer=signer, size=size, form=form):
                        scheme = ("--pss", "--digest", "sha512") if signer == "pss" else ("--digest", "sha384") if signer == "ec5" else ()
                        self.ours(signer, "sign", f"c{size}", "m", "--force", *form, *scheme)
                        shape = "PEM" if "--pem" in form else "DER"
                        apart = ("-content", f"c{size}") if "--detached" in form else ()
                        self.tool("openssl", "cms", "-verify", "-binary", "-inform", shape, "-in", "m", "-CAfile", "ca.pem", "-purpose",
                                  "any", "-cades", "-out", "out", *apart)
                        self.same("out", f"c{size}")

    def test_what_openssl_signs_we_verify(self):
        forms = {"plain": (), "stream": ("-stream",), "cades": ("-cades",), "key id": ("-keyid",), "bare": ("-noattr",),
                 "no certificate": ("-nocerts",)}
        for signer in SIGNERS + ("psk",):
            pss = ("-keyopt", "rsa_padding_mode:pss") if signer in ("pss", "psk") else ()
            for name, form in forms.items():
                if pss and name == "stream":
                    continue  # openssl fails to write them
                for detached in (False, True) if name != "stream" else (False,):
                    with self.subTest(signer=signer, form=name, detached=detached):
                        self.tool("openssl", "cms", "-sign", "-binary", "-in", "c3000", "-signer", signer + ".pem", "-inkey", signer + ".key",
                                  "-md", "sha256", "-outform", "DER", "-out", "m", *form, *pss, *(() if detached else ("-nodetach",)))
                        more = ("--content", "c3000") if detached else ("--out", "out", "--force")
                        verdict = self.ours("rsb", "verify", "m", "--certs", signer + ".pem", *more)
                        one = verdict["items"][0]
                        self.assertEqual((one["signature"], verdict["attached"]), ("good", not detached))
                        self.assertEqual("attributes" in one["notSigned"], name == "bare")
                        self.assertEqual("signing-certificate" in one["notSigned"], name != "cades")
                        if not detached:
                            self.same("out", "c3000")

    def test_many_signers_each_have_a_verdict(self):
        self.ours("rsa", "sign", "c3000", "m1", "--force")
        self.ours("ec", "sign", "m1", "m2", "--cosign", "--force")
        self.ours("pss", "sign", "m2", "m3", "--cosign", "--force", "--pem", "--pss")
        self.tool("openssl", "cms", "-verify", "-binary", "-inform", "PEM", "-in", "m3", "-CAfile", "ca.pem", "-purpose", "any", "-out", "out")
        self.same("out", "c3000")
        items = self.ours("rsb", "verify", "m3")["items"]
        self.assertEqual(sorted(i["signer"] for i in items), [f"CN={n},O=Test,C=PL" for n in ("ec", "pss", "rsa")])
        self.ours("rsa", "sign", "c3145728", "d1", "--force", "--detached")
        self.ours("ec", "sign", "c3145728", "d2", "--message", "d1", "--force")
        self.assertEqual(len(self.ours("rsb", "verify", "d2", "--content", "c3145728")["items"]), 2)
        self.assertEqual(self.ours("rsb", "verify", "d2", "--content", "c3000", status=1)["verdict"], "ECRV_MSGSIGN")
        # One that nobody here vouches for spoils the whole, and only its own verdict.
        self.tool("openssl", "cms", "-resign", "-binary", "-inform", "DER", "-in", "m2", "-signer", "ca2.pem", "-inkey", "ca2.key",
                  "-outform", "DER", "-nodetach", "-out", "m4")
        verdict = self.ours("rsb", "verify", "m4", "--out", "never", status=1)
        self.assertEqual(sorted(i["good"] for i in verdict["items"]), [False, True, True])
        self.assertFalse(os.path.exists("never"))

    def test_what_we_encrypt_others_decrypt(self):
        for receiver in RECEIVERS:
            for cipher in CIPHERS:
                for size in SIZES if receiver == "rsa" else (3000,):
                    for padding in ((), ("--oaep",)) if receiver == "rsa" else ((),):
                        with self.subTest(receiver=receiver, cipher=cipher, size=size, padding=padding):
                            self.ours("rsb", "encrypt", f"c{size}", "m", "--for-file", receiver + ".pem", "--self", "--cipher", cipher,
                                      "--force", *padding)
                            self.tool("openssl", "cms", "-decrypt", "-binary", "-inform", "DER", "-in", "m", "-recip", receiver + ".pem",
                                      "-inkey", receiver + ".key", "-out", "out")
                            self.same("out", f"c{size}")
        self.ours("rsb", "decrypt", "m", "out", "--force")
        self.same("out", "c3000")

    def test_what_openssl_encrypts_we_decrypt(self):
        for receiver in RECEIVERS:
            for cipher in ("-aes256", "-aes128", "-aes-256-gcm", "-camellia256", "-des3") + (("-rc2-128",) if receiver == "rsa" else ()):
                for more in ((), ("-keyid",), ("-stream",)):
                    oaep = (("-keyopt", "rsa_padding_mode:oaep"), ("-keyopt", "rsa_padding_mode:oaep", "-keyopt", "rsa_oaep_md:sha256"))
                    agree = (("-keyopt", "ecdh_kdf_md:sha256"), ("-keyopt", "ecdh_kdf_md:sha1"))
                    for option in ((),) + (oaep if receiver == "rsa" else agree):
                        with self.subTest(receiver=receiver, cipher=cipher, more=more, option=option):
                            self.tool("openssl", "cms", "-encrypt", "-binary", "-in", "c3000", cipher, "-outform", "DER", "-out", "m", *more,
                                      "-provider", "legacy", "-provider", "default", "-recip", receiver + ".pem", *option)
                            result = self.ours(receiver, "decrypt", "m", "out", "--force")
                            self.same("out", "c3000")
                            self.assertEqual(result["authenticated"], "gcm" in cipher)

    def test_a_message_for_others_or_damaged_leaves_no_file(self):
        self.ours("rsa", "encrypt", "c3000", "m", "--for-file", "ec.pem", "--cipher", "aes256-gcm", "--force")
        self.assertEqual(self.ours("rsb", "decrypt", "m", "never", status=3)["name"], "ECRV_NOTADDR")
        octets = bytearray(pathlib.Path("m").read_bytes())
        octets[-1] ^= 1
        pathlib.Path("m").write_bytes(octets)
        self.assertEqual(self.ours("ec", "decrypt", "m", "never", status=1)["name"], "ECRV_DEKKEY")
        self.assertFalse(os.path.exists("never"))
        self.ours("ec", "decrypt", "m", "-", status=2)
        # No path leads from it to a trust point.
        self.assertEqual(self.ours("rsa", "encrypt", "c1", "x", "--for-file", "ca2.pem", status=6)["fault"], "certificate-refused")

    def serve(self, profile, use, path):
        self.ours(profile, "server", "add", use, "--type", "http", "--use", use, "--address", "127.0.0.1", "--port", str(self.web.port), "--path",
                  path)

    def stamping(self, profile, config="tsa.cnf", change=lambda octets: octets):
        """A profile's only server of time stamps."""
        if not hasattr(self, "web"):
            self.web = Scripted()
            self.addCleanup(self.web.close)
            self.serve(profile, "time-stamp", "/ts")
        self.web.routes["/ts"] = Answers(self.home).stamp(f"{self.home}/{config}", change)

    def resigned(self, octets):
        """The answer with its stamp signed by somebody whose certificate does not say critically what it is for."""
        pathlib.Path("a").write_bytes(octets)
        self.tool("openssl", "ts", "-reply", "-in", "a", "-token_out", "-out", "token")
        self.tool("openssl", "cms", "-verify", "-noverify", "-inform", "DER", "-in", "token", "-out", "info")
        self.tool("openssl", "cms", "-sign", "-binary", "-nodetach", "-cades", "-md", "sha256", "-econtent_type", "1.2.840.113549.1.9.16.1.4", "-in",
                  "info", "-signer", "loose.pem", "-inkey", "loose.key", "-outform", "DER", "-out", "token")
        body = bytes.fromhex("3003020100") + pathlib.Path("token").read_bytes()
        return b"\x30\x82" + len(body).to_bytes(2, "big") + body

    def test_stamps_and_proofs(self):
        def sign(out, level, status=0, *more):
            return self.ours("rsa", "sign", "c3000", out, "--level", level, "--force", *more, status=status)

        def judge(message, good, *more):
            return self.ours("pss", "verify", message, *more, status=0 if good else 1)["items"][0]

        self.assertEqual(sign("never", "T", 3)["name"], "ECRV_TS_NO_SERVER_DEF")
        self.stamping("rsa")
        missing = sign("never", "LT", 6)
        self.assertEqual(missing["name"], "ECRV_CRL_NOT_FOUND", missing)
        self.ours("rsa", "crl", "import", "good.crl")
        # What a server does wrong is told with its reason, and nothing is written.
        for name, (config, change, reason) in {
                "of nobody": ("stranger.cnf", lambda octets: octets, "path of the signer"),
                "loose purpose": ("tsa.cnf", self.resigned, "not only for time stamps"),
                "altered": ("tsa.cnf", lambda octets: octets[:-1] + bytes([octets[-1] ^ 1]), "signature"),
                "no answer": ("tsa.cnf", lambda octets: b"<html>", "no answer")}.items():
            with self.subTest(answer=name):
                self.stamping("rsa", config, change)
                told = sign("never", "T", 8)
                self.assertIn(told["name"], ("ECRV_TS_VERIF", "ECRV_TS_NETWORK_FAIL"))
                self.assertIn(reason, json.dumps(told))
        self.assertFalse(os.path.exists("never"))
        self.stamping("rsa")
        for level, out, more in (("T", "t", ()), ("LT", "lt", ()), ("LT", "ltd", ("--detached",)), ("B", "b", ())):
            sign(out, level, 0, *more)
        self.ours("rsa", "sign", "c3145728", "ltl", "--level", "LT", "--force")
        # By OCSP where there is no CRL.
        self.serve("ec", "time-stamp", "/ts")
        self.serve("ec", "ocsp", "/ocsp")
        self.web.routes["/ocsp"] = Answers(self.home).ocsp("index", "ca.pem", "ca.pem", "ca.key")
        self.ours("ec", "sign", "c3000", "lto", "--level", "LT", "--force")
        for message, apart, content in (("t", (), "c3000"), ("lt", (), "c3000"), ("ltd", ("-content", "c3000"), "c3000"), ("ltl", (), "c3145728"),
                                        ("lto", (), "c3000")):
            self.tool("openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", message, "-CAfile", "ca.pem", "-purpose", "any", "-cades",
                      "-out", "out", *apart)
            self.same("out", content)
        # What stands inside is enough where nothing else is known, and not where it is missing.
        for message, source in (("lt", "crl"), ("ltl", "crl"), ("lto", "ocsp")):
            one = judge(message, True, "--revocation", "required")
            self.assertEqual((one["momentSource"], one["stampAuthority"]), ("stamp", "C=PL, CN=tsa"))
            self.assertEqual([(s["status"], s["source"]) for s in one["status"] + one["stampStatus"]], [("good", source)] * 2)
        self.assertIn("stamp", judge("t", False, "--revocation", "required")["stampFault"])
        # A token of another signature counts for nothing.
        def cut(message):
            octets = pathlib.Path(message).read_bytes()
            return octets[:octets.rindex(mark)], octets[octets.rindex(mark):]

        mark = bytes.fromhex("060b2a864886f70d010910020e")
        (before, own), other = cut("t"), b""
        while len(other) != len(own):  # the length of a nonce may differ
            self.ours("rsa", "sign", "c1", "t2", "--level", "T", "--force")
            other = cut("t2")[1]
        pathlib.Path("x").write_bytes(before + other)
        self.assertIn("something else", judge("x", True)["stampFault"])
        time.sleep(1.1)
        for who, reason, good in (("rsa", "keyCompromise", {"t": True, "lt": True, "b": False}),
                                  ("tsa", "keyCompromise", {"t": False, "lt": False, "b": False})):
            self.tool("openssl", "ca", "-config", "ca.cnf", "-revoke", who + ".pem", "-crl_reason", reason)
            self.tool("openssl", "ca", "-config", "ca.cnf", "-gencrl", "-out", "bad.crl")
            self.ours("pss", "crl", "import", "bad.crl")
            for message, outlives in good.items():
                with self.subTest(revoked=who, message=message):
                    self.assertEqual(judge(message, outlives)["revokedSince"], True)
        self.assertEqual(self.ours("pss", "verify", "t", "--now", status=1)["verdict"], "ECRV_CRTREV")

    def test_lists_that_lapse_and_lists_of_the_expired(self):
        """A stored list that is out of date does not end stamping; one issued after a certificate expired does not clear it."""
        self.tool("openssl", "ca", "-config", "ca.cnf", "-gencrl", "-crl_lastupdate", "20250101000000Z", "-crl_nextupdate", "20250201000000Z", "-out", "late.crl")
        self.tool("openssl", "crl", "-in", "good.crl", "-outform", "DER", "-out", "good.der")
        self.stamping("rsb")
        for profile, level in (("bp", "T"), ("ec5", "LT")):
            with self.subTest(level=level):
                self.ours(profile, "crl", "import", "late.crl", "--yes")
                self.serve(profile, "time-stamp", "/ts")
                self.serve(profile, "crl", "/crl")
                self.web.routes["/crl"] = lambda handler, _: handler.give(pathlib.Path("good.der").read_bytes())
                self.ours(profile, "sign", "c3000", "lapsed" + level, "--level", level)
                self.assertEqual(self.web.paths().count("/crl"), 1)
                self.web.seen.clear()
        pathlib.Path("brief.cnf").write_text(pathlib.Path("ca.cnf").read_text().replace("=index", "=briefs\nserial=briefno") +
                                             "[p]\nC=optional\nO=optional\nCN=optional\n[x]\nkeyUsage=digitalSignature\n")
        pathlib.Path("briefs").touch()
        end = time.strftime("%Y%m%d%H%M%SZ", time.gmtime(time.time() + 8))
        self.tool("openssl", "ca", "-batch", "-notext", "-config", "brief.cnf", "-policy", "p", "-create_serial", "-outdir", ".", "-extensions", "x", "-in",
                  "rsb.csr", "-enddate", end, "-out", "brief.pem")
        self.tool("openssl", "pkcs12", "-export", "-inkey", "rsb.key", "-in", "brief.pem", "-out", "brief.p12", "-passout", "file:pw")
        self.ours("brief", "profile", "create", "brief", "--key-file", self.home + "/brief.p12", "--db", self.home + "/db_brief", "--roots-file",
                  self.home + "/roots.p12", "--roots-empty-password", "1")
        self.ours("brief", "db", "create")
        self.serve("brief", "time-stamp", "/ts")
        self.ours("brief", "sign", "c3000", "brief", "--level", "T")
        time.sleep(10)
        self.tool("openssl", "ca", "-config", "ca.cnf", "-gencrl", "-out", "dropped.crl")
        self.ours("brief", "crl", "import", "dropped.crl")
        one = self.ours("brief", "verify", "brief", "--revocation", "required", status=1)["items"][0]
        self.assertEqual([s["status"] for s in one["status"] + one["stampStatus"]], ["unknown", "good"])

    def test_several_keys_sign_at_once(self):
        self.ours("two", "profile", "create", "two", "--key-file", self.home + "/two.p12", "--db", self.home + "/db_two")
        self.ours("two", "store", "init")
        for name in ("rsa", "ec"):
            self.ours("two", "key", "import", name + ".p12", "--use", "none", "--import-password-file", "pw", "--yes")
        keys = [item["keyId"][:10] for item in self.ours("two", "key", "list")["items"]]
        self.ours("two", "sign", "c3000", "m", "--force", *(word for key in keys for word in ("--key", key)))
        self.tool("openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in", "m", "-CAfile", "ca.pem", "-purpose", "any", "-out", "out")
        items = self.ours("pss", "verify", "m")["items"]
        self.assertEqual(sorted(i["signer"] for i in items), ["CN=ec,O=Test,C=PL", "CN=rsa,O=Test,C=PL"])

    def test_gpgsm_and_certtool(self):
        os.makedirs(self.home + "/gnupg", mode=0o700, exist_ok=True)
        pathlib.Path(self.home, "gnupg/gpgsm.conf").write_text("disable-crl-checks\n")
        pathlib.Path(self.home, "gnupg/gpg-agent.conf").write_text("allow-preset-passphrase\nallow-mark-trusted\n")
        self.addCleanup(subprocess.run, ["gpgconf", "--kill", "all"], env=self.env, capture_output=True)
        print_of = self.tool("openssl", "x509", "-in", "ca.pem", "-noout", "-fingerprint", "-sha1").stdout.decode().split("=")[1].strip()
        pathlib.Path(self.home, "gnupg/trustlist.txt").write_text(print_of + " S relax\n")
        gpgsm = ("gpgsm", "--batch", "--yes", "--pinentry-mode", "loopback", "--passphrase-fd", "0")
        self.tool("gpgsm", "--batch", "--import", "ca.pem", "rsa.pem", "rsb.pem")
        self.tool("openssl", "pkcs12", "-export", "-inkey", "rsa.key", "-in", "rsa.pem", "-out", "old.p12", "-passout", "pass:Haslo.12345",
                  "-keypbe", "PBE-SHA1-3DES", "-certpbe", "PBE-SHA1-3DES", "-macalg", "sha1")
        subprocess.run([*gpgsm, "--import", "old.p12"], env=self.env, input=b"Haslo.12345", capture_output=True, check=True)
        self.ours("rsa", "sign", "c3000", "m", "--force")
        self.tool("gpgsm", "--batch", "--verify", "m")
        self.ours("rsb", "encrypt", "c3000", "m", "--for-file", "rsa.pem", "--cipher", "aes256-cbc", "--force")
        subprocess.run([*gpgsm, "--output", "out", "--decrypt", "m"], env=self.env, input=b"Haslo.12345", capture_output=True, check=True)
        self.same("out", "c3000")
        self.tool("gpgsm", "--batch", "--yes", "--output", "m", "--encrypt", "--recipient", "rsb@example.org", "c3000")
        self.ours("rsb", "decrypt", "m", "out", "--force")
        self.same("out", "c3000")
        subprocess.run([*gpgsm, "--output", "m", "--local-user", "rsa@example.org", "--sign", "c3000"], env=self.env, input=b"Haslo.12345",
                       capture_output=True, check=True)
        self.ours("rsb", "verify", "m", "--out", "out", "--force")
        self.same("out", "c3000")
        self.tool("certtool", "--p7-sign", "--load-certificate", "rsa.pem", "--load-privkey", "rsa.key", "--infile", "c3000", "--outder",
                  "--outfile", "m")
        self.ours("rsb", "verify", "m", "--out", "out", "--force")
        self.same("out", "c3000")
        self.ours("ec", "sign", "c3000", "m", "--force", "--pem")
        text = pathlib.Path("m").read_text().replace(" CMS-", " PKCS7-")
        pathlib.Path("m").write_text(text)
        self.tool("certtool", "--p7-verify", "--load-ca-certificate", "ca.pem", "--infile", "m")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:])
