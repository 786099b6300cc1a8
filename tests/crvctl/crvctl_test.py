"""Runs crvctl as scripts do. usage: crvctl_test.py <crvctl> <source folder>"""
import hashlib
import json
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

CRVCTL, SOURCE = os.path.realpath(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
ENV = {"PATH": os.path.dirname(CRVCTL) + ":" + os.environ["PATH"], "LC_ALL": "C.UTF-8"}
STRANGE = "Jan 'K' $x;`y` (z)"
CA = "CN=Urząd pokazowy,OU=Pokaz,O=Corvane,C=PL"
MANUAL = (SOURCE / "docs/man/crvctl.1").read_text("utf-8").replace("\\-", "-")
VERBS = re.findall(r"^\.SS (.+)$", MANUAL, re.M)


LOCALES = tempfile.mkdtemp()


def setUpModule():
    for charset in ("UTF-8", "ISO8859-2"):
        subprocess.run(["localedef", "-i", "pl_PL", "-f", charset.replace("ISO8859", "ISO-8859"), f"{LOCALES}/pl_PL.{charset}"], check=True)
    unittest.addModuleCleanup(shutil.rmtree, LOCALES)


def tree(folder):
    """Every file with its content and mode."""
    files = sorted(p for p in pathlib.Path(folder).rglob("*"))
    return [(str(p), p.stat().st_mode, hashlib.sha256(p.read_bytes()).hexdigest() if p.is_file() else "") for p in files]


class Case(unittest.TestCase):
    def setUp(self):
        self.home = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.home)
        self.env = dict(ENV, HOME=self.home, CRV_PROFILE_FILE=self.home + "/list.conf")

    def run_it(self, *words, status=0, given=None, **env):
        done = subprocess.run([CRVCTL, *words], env=dict(self.env, **env), input=given, capture_output=True, timeout=120)
        self.assertEqual(done.returncode, status, (words, done.stdout, done.stderr))
        return done

    def answer(self, *words, status=0, **more):
        """The JSON of a run, which is the same in every locale."""
        return json.loads(self.run_it("--json", *words, status=status, **more).stdout)

    def changed(self, *words, dry=0, **more):
        """Does a change: first dry, which must tell the same changes and leave every octet."""
        before = tree(self.home)
        told = self.answer("--dry-run", *words, status=dry, **more)["changes"]
        self.assertEqual(tree(self.home), before, words)
        done = self.answer(*words, **more)
        self.assertEqual(done["changes"], told)
        self.assertTrue(told)
        return done

    def read(self, *words, **more):
        """Leaves every octet, and the answer is the same in every locale."""
        before = tree(self.home)
        now = rb'"at":"[^"]*"|"crlAge":[0-9]+'
        answers = [re.sub(now, b'"":0', self.run_it("--json", *words, LC_ALL=name, LANGUAGE="", LOCPATH=LOCALES, **more).stdout)
                   for name in ("C", "pl_PL.UTF-8", "pl_PL.ISO8859-2")]
        self.assertEqual(answers[1:], answers[:1] * 2)
        self.assertEqual(tree(self.home), before, words)
        return json.loads(answers[0])


class Table(Case):
    def test_every_verb_has_its_help_translation_manual_and_completion(self):
        polish = (SOURCE / "docs/man/pl/crvctl.1").read_text("utf-8").replace("\\-", "-")
        document = (SOURCE / "docs/json.md").read_text("utf-8")
        self.assertEqual(re.findall(r"^\.SS (.+)$", polish, re.M), VERBS)
        for verb in VERBS:
            words = verb.split()
            english, other = (self.run_it("--lang", lang, *words, "--help").stdout.decode().split("\n\n")
                              for lang in ("en", "pl"))
            self.assertNotEqual(english[1], other[1], verb)
            self.assertIn(english[1].split("\n")[0], MANUAL)
            self.assertIn(f"\n## {verb}\n", document)
            offered = self.run_it("completion", "words", "--", "crvctl", *words[:-1], words[-1][:2]).stdout.decode()
            self.assertIn(words[-1], [line.split("\t")[0] for line in offered.splitlines()])
            options = re.findall(r"^  (?:-., )?(--[a-z0-9-]+)", english[2], re.M)
            offered = self.run_it("completion", "words", "--", "crvctl", *words, "--").stdout.decode()
            self.assertEqual([line.split("\t")[0] for line in offered.splitlines()], options)

    def test_every_text_is_translated(self):
        catalogue = (SOURCE / "po/pl.po").read_text("utf-8")
        known = set(re.findall(r'^msgid "(.*)"$', catalogue, re.M))
        for file in sorted((SOURCE / "src/crvctl").glob("*.cpp")):
            text = re.sub(r'"\s*\n\s*"', "", file.read_text("utf-8"))
            used = re.findall(r'(?:\btr|note|paragraph|section|confirm|warn|CallError|emplace)\(\s*"((?:[^"\\]|\\.)+)"', text)
            if file.name == "statuses.cpp":
                used += re.findall(r', "([^"]+)"}', text)
            self.assertFalse(set(used) - known, file.name)
        results = re.findall(r'X\(kKm.*"([^"]+)"\)', (SOURCE / "src/keystore/key_manager_result.h").read_text("utf-8"))
        self.assertFalse(set(results) - known)

    def test_a_wrong_call_is_told_and_never_takes_a_secret(self):
        for words in (["--password", "x", "profile", "list"], ["profile", "list", "--new-password=x"], ["profile"], [],
                      ["profile", "shw"], ["profile", "create"], ["profile", "list", "--nonsense"], ["--wait", "x", "version"],
                      ["completion", "tcsh"], ["usage", "add", "1.a"], ["profile", "list", "more"]):
            self.run_it(*words, status=2)
        self.assertEqual(self.answer("profile", "shw", status=2)["fault"], "wrong-call")

    def test_every_verb_answers_in_json_whatever_happens(self):
        for verb in VERBS:
            done = subprocess.run([CRVCTL, "--json", "--non-interactive", *verb.split()], env=self.env, capture_output=True,
                                  stdin=subprocess.DEVNULL)
            answer = json.loads(done.stdout)
            self.assertEqual((answer["v"], answer["command"], answer["ok"]), (1, verb, done.returncode == 0))

    def test_output_that_nobody_reads_ends_quietly_and_a_full_disk_is_told(self):
        for target, status, said in (("| true", 0, b""), (">/dev/full", 7, b"crvctl: ")):
            done = subprocess.run(["bash", "-c", f"{CRVCTL} help --as man {target}"], env=self.env, capture_output=True)
            self.assertEqual((done.returncode, done.stderr[:8]), (status, said))


class Lists(Case):
    def test_a_profile_from_its_making_to_its_end(self):
        self.assertEqual(self.answer("profile", "list", status=3)["fault"], "file-missing")
        made = self.changed("profile", "create", STRANGE)["result"]
        self.assertEqual(pathlib.Path(self.home, "db").stat().st_mode & 0o777, 0o700)
        self.assertEqual(self.answer("profile", "create", STRANGE, status=6)["fault"], "profile-exists")
        shown = self.read("profile", "show", STRANGE)["result"]
        self.assertEqual(shown["key-file"], made["key-file"])
        self.assertEqual([item["finding"] for item in self.read("profile", "check", STRANGE, status=1)["result"]["items"]],
                         ["key-file-missing", "db-missing"])
        self.changed("profile", "set", STRANGE, "--roots-file", "/r.p12")
        self.changed("profile", "copy", STRANGE, "B", "--key-file", self.home + "/keys/b.p12")
        self.changed("profile", "rename", "B", "C")
        self.assertEqual(self.read("profile", "show", "C")["result"]["roots-file"], "/r.p12")
        self.run_it("profile", "remove", "C", status=6)
        self.changed("profile", "remove", "C", "--yes")
        self.assertEqual([i["name"] for i in self.read("profile", "list")["result"]["items"]], [STRANGE.upper()])
        self.assertEqual(self.answer("profile", "show", "C", status=3)["name"], "ECRV_CONF_NOT_PRES")

    def test_what_a_profile_lists(self):
        self.run_it("profile", "create", "A")
        profile = ("-p", "A")
        self.changed(*profile, "usage", "add", "1.3.6.1.5.5.7.3.1")
        self.answer(*profile, "usage", "add", "1.3.6.1.5.5.7.3.1", status=6)
        self.answer(*profile, "usage", "remove", "1.2", status=3)
        secret = pathlib.Path(self.home, "secret")
        secret.write_text("tajne\n")
        add = ("server", "add", "S 1", "--address", "ldap.pl", "--use", "crl", "--server-password-file", str(secret))
        secret.chmod(0o644)
        self.assertEqual(self.answer(*profile, *add, status=6)["fault"], "secret-exposed")
        secret.chmod(0o600)
        self.changed(*profile, *add)
        self.changed(*profile, "server", "set", "s 1", "--port", "389")
        self.changed(*profile, "server", "add", "T", "--address", "t", "--use", "ocsp", "--use", "time-stamp", "--type", "http")
        self.changed(*profile, "server", "move", "T", "first")
        servers = self.read(*profile, "server", "list")["result"]["items"]
        self.assertEqual([(s["name"], s["port"], s["use"]) for s in servers],
                         [("T", 0, ["ocsp", "time-stamp"]), ("S 1", 389, ["crl"])])
        answer = self.answer(*profile, "server", "set", "T", "--ca", str(SOURCE / "LICENSE"), status=1)
        self.assertEqual(answer["fault"], "bad-file")
        self.changed(*profile, "server", "remove", "T", "--yes")
        # The dry run and the run each take the secret from its variable.
        self.changed(*profile, "proxy", "set", "--address", "p", "--proxy-password-env", "SECRET", SECRET="tajne")
        shown = self.read(*profile, "proxy", "show")["result"]
        self.assertEqual(shown, {"system": False, "address": "p", "port": 8080, "user": "", "password": True})
        self.changed(*profile, "proxy", "clear")
        self.assertNotIn(b"tajne", pathlib.Path(self.home, "list.conf").read_bytes())

    def test_changes_at_the_same_time_are_all_there_once(self):
        self.run_it("profile", "create", "A")
        runs = [subprocess.Popen([CRVCTL, "-p", "A", "usage", "add", f"1.2.{i}", f"n{i}"], env=self.env,
                                 stderr=subprocess.DEVNULL) for i in range(20)]
        self.assertEqual([run.wait() for run in runs], [0] * 20)
        oids = [i["oid"] for i in self.read("-p", "A", "usage", "list")["result"]["items"]]
        self.assertEqual(sorted(oids), sorted(f"1.2.{i}" for i in range(20)))

    def test_a_lock_that_another_holds_is_waited_for_no_longer_than_said(self):
        self.run_it("profile", "create", "A")
        holder = "import fcntl,sys; f=open(sys.argv[1],'r+'); fcntl.lockf(f,fcntl.LOCK_EX); print('x',flush=True); input()"
        with subprocess.Popen([sys.executable, "-c", holder, self.home + "/list.conf.lck"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as other:
            other.stdout.readline()
            self.assertEqual(self.answer("--wait", "0", "-p", "A", "proxy", "clear", status=5)["fault"], "lock-busy")
            other.communicate(b"\n")

    def test_names_complete_in_every_shell(self):
        self.run_it("profile", "create", STRANGE)
        name = STRANGE.upper()
        words = ["crvctl", "profile", "show", ""]
        self.assertEqual(self.run_it("completion", "words", "--", *words).stdout.decode(), name + "\n")
        bash = (f'source <({CRVCTL} completion bash); COMP_WORDS=(crvctl profile show ""); COMP_CWORD=3; _crvctl 2>/dev/null; '
                'eval "set -- ${COMPREPLY[0]}"; printf %s "$1"')
        fish = f"{CRVCTL} completion fish | source; complete -C 'crvctl profile show '"
        zsh = (f'compdef() {{ :; }}; compadd() {{ print -rn -- "${{@[-1]}}"; }}; source <({CRVCTL} completion zsh); '
               'words=(crvctl profile show ""); CURRENT=4; _crvctl')
        for shell, script in (("bash", bash), ("fish", fish), ("zsh", zsh)):
            if shutil.which(shell):
                done = subprocess.run([shell, "-c", script], env=self.env, capture_output=True)
                self.assertEqual(done.stdout.decode().rstrip("\n"), name, (shell, done.stderr))


class Tokens(Case):
    MODULE = "/usr/lib/softhsm/libsofthsm2.so"

    def test_a_card_takes_a_key_a_setting_and_another_pin(self):
        pathlib.Path(self.home, "tokens").mkdir()
        conf = pathlib.Path(self.home, "softhsm2.conf")
        conf.write_text(f"directories.tokendir = {self.home}/tokens\n")
        self.env |= {"SOFTHSM2_CONF": str(conf), "CRV_PROFILE": "K", "P": "1234", "N": "98765", "W": "4321"}
        subprocess.run("softhsm2-util --init-token --free --label k --so-pin 12345678 --pin 1234", shell=True, check=True,
                       env=self.env, capture_output=True)
        self.run_it("profile", "create", "K", "--type", "token", "--pkcs11-library", self.MODULE, "--signing-token", "k",
                    "--keep-session-open", "1")
        pin, request = ["--pin-env", "P"], self.home + "/req.pem"
        self.assertEqual(self.answer("key", "list", "--non-interactive", status=4)["fault"], "secret-missing")
        self.assertEqual(self.answer("key", "list", "--pin-env", "W", status=4)["name"], "ECRV_PASSWORD")
        self.answer("key", "generate", "--use", "both", "--request", request, *pin)
        subprocess.run(["openssl", "req", "-in", request, "-verify", "-noout"], check=True, capture_output=True)
        self.assertEqual([k["use"] for k in self.answer("key", "list", *pin)["result"]["items"]], ["both"])
        self.answer("setting", "set", "connect-timeout", "77", *pin)
        self.answer("store", "passwd", *pin, "--new-password-env", "N")
        self.assertEqual(self.answer("setting", "get", "connect-timeout", "--pin-env", "N")["result"]["value"], 77)


class Stores(Case):
    """What needs keys and a database; they are made once, by the road of the manual."""
    KEYS = ("--password-file", "password")

    @classmethod
    def setUpClass(cls):
        cls.made = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.made)
        road = subprocess.Popen(["bash", str(SOURCE / "examples/road.sh"), cls.made + "/road"], env=dict(ENV, HOME=cls.made),
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        cls.seen = set()
        while road.poll() is None:
            for line in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
                try:
                    cls.seen.add(line.read_bytes())
                except OSError:
                    pass
        said = road.communicate()[1]
        assert road.returncode == 0, said
        cls.secret = pathlib.Path(cls.made, "road/password").read_bytes().strip()

    def setUp(self):
        super().setUp()
        shutil.copytree(self.made + "/road", self.home + "/road", symlinks=True)
        lists = pathlib.Path(self.home, "road/profiles.conf")
        lists.write_text(lists.read_text("utf-8").replace(self.made, self.home), "utf-8")
        self.env.update(CRV_PROFILE_FILE=str(lists), CRV_PROFILE="DROGA")
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.home + "/road")

    def test_no_secret_stands_in_arguments_or_files(self):
        self.assertTrue(any(b"crvctl" in line for line in self.seen))
        self.assertFalse([line for line in self.seen if self.secret in line])
        for file in pathlib.Path(".").rglob("*"):
            if file.is_file() and file.name != "password":
                self.assertNotIn(self.secret, file.read_bytes(), file)
        # A process that waits for its password: what belongs to root in /proc is not its user's to look at.
        program = pathlib.Path(shutil.copy(CRVCTL, self.home))
        root = os.geteuid() == 0
        for path in (pathlib.Path(self.home), *pathlib.Path(self.home).rglob("*")) if root else ():
            os.chown(path, 4321, 4321)
        waiting = subprocess.Popen([program, "store", "check", "--password-fd", "0"], env=self.env, stdin=subprocess.PIPE,
                                   **({"user": 4321, "group": 4321, "extra_groups": []} if root else {}))
        proc = pathlib.Path(f"/proc/{waiting.pid}")
        while not re.search(r"Max core file size +0 +0 ", (proc / "limits").read_text()) and waiting.poll() is None:
            time.sleep(0.01)
        time.sleep(0.1)
        self.assertTrue((proc / "mem").stat().st_uid == 0 or b"__asan_init" in program.read_bytes())
        waiting.communicate(self.secret, timeout=60)
        self.assertEqual(waiting.returncode, 0)

    def test_reading_leaves_every_octet_and_answers_alike_in_every_locale(self):
        verify = ("cert", "verify", "--role", "sign", "--at", "2027-01-01", "--revocation", "none")
        for words, status in ((["store", "check"], 0), (["key", "list"], 0), (["policy", "list"], 0), (["setting", "list"], 0),
                              (["setting", "get", "connect-timeout"], 0), (["setting", "get", "nope"], 3),
                              (["cert", "show", "--role", "sign", "--der"], 0), (["trust", "list"], 0),
                              ([*verify, "--ext-usage", "1.2.3", "--policy", "1.2", "--depth", "2", "--no-deltas"], 0),
                              ([*verify, "--explicit-policy"], 1), ([*verify, "--depth", "1"], 1),
                              (["cert", "verify", "moj.crt", "--at", "2020-01-01"], 1),
                              (["cert", "check", "moj.crt", "--at", "2027-01-01", "--revocation", "none"], 0), (["cert", "check", "--at", "2020-01-01"], 1), (["crl", "verify", "ca/ca.crl"], 0),
                              (["crl", "verify", "moj.crt"], 1), (["trust", "export", "x", "--subject", "nobody"], 3)):
            answer = self.read(*words, *self.KEYS, status=status)
            self.assertEqual(answer["command"], " ".join(words[:2]))
        told = self.run_it("cert", "show", "--role", "sign", *self.KEYS, LC_ALL="pl_PL.ISO8859-2", LOCPATH=LOCALES).stdout
        self.assertIn("Wystawca: CN=Urząd".encode("iso8859-2"), told)
        for words, status in ((["cert", "list"], 0), (["cert", "search", "--subject", "KOWALSKI"], 0), (["crl", "list"], 0),
                              (["cert", "search", "--email", "nobody"], 1), (["crl", "show", "1"], 0), (["crl", "show", "9"], 3),
                              (["db", "check"], 0), (["db", "stat"], 0), (["db", "dump", "certific"], 0)):
            self.read(*words, status=status)
        # What stands behind a damaged certificate was never looked at, so nothing may be said of the file.
        own, damaged = pathlib.Path("moj.crt").read_bytes(), bytes.fromhex("30063004020201 01")
        pathlib.Path("zly.crt").write_bytes(own + damaged + own)
        for words in (["cert", "check", "zly.crt"], ["cert", "verify", "zly.crt"], ["trust", "add", "zly.crt"], ["cert", "install", "zly.crt"]):
            self.assertEqual(self.answer(*words, *self.KEYS, status=1)["fault"], "bad-file")
        self.assertEqual(self.read("policy", "list", *self.KEYS)["result"]["items"][0]["name"], "Polityka firmy")
        self.assertEqual(self.answer("store", "check", "--password-env", "P", status=4, P="Falsz-123")["name"], "ECRV_PASSWORD")

    def test_keys_are_replaced_carried_and_deleted_and_files_come_back(self):
        def keys():
            return [(one["use"], one["keyId"] == old) for one in self.read("key", "list", *self.KEYS)["result"]["items"]]

        old = self.read("key", "list", *self.KEYS)["result"]["items"][0]["keyId"]
        self.changed("key", "replace", "nast.pem", "--algo", "ecdsa", "--signed", *self.KEYS)
        self.assertEqual(self.answer("key", "replace", "x.pem", *self.KEYS, status=6)["fault"], "object-exists")
        self.changed("key", "request", "nast2.pem", "--successor", *self.KEYS)
        subprocess.run([SOURCE / "examples/demo-ca/demo-ca", "sign", "ca", "nast2.pem", "nast.crt"], check=True, capture_output=True)
        self.assertEqual(keys(), [("both", True), ("none", False)])
        self.changed("cert", "install", "nast.crt", *self.KEYS)
        self.assertEqual(keys(), [("sign", False), ("decrypt", True)], "the old key still reads what was enciphered for it")
        for form in ("p12", "pem"):
            pathlib.Path("k." + form).touch(0o664)
            self.changed("key", "export", "k." + form, "--format", form, "--key-id", old[:8], "--new-password-file", "password", "--yes",
                         "--force", *self.KEYS)
            self.assertEqual(os.stat("k." + form).st_mode & 0o777, 0o600)
        delete = ("key", "delete", old, "--yes", *self.KEYS)
        self.assertEqual(self.answer(*delete, status=6)["fault"], "key-in-use")
        self.assertEqual(self.answer(*delete, "--in-use", status=6)["fault"], "not-confirmed", "twice")
        for form in ("p12", "pem"):
            self.changed(*delete, "--in-use", "--again", old)
            self.assertEqual(keys(), [("sign", False)])
            take = ("key", "import", "k." + form, "--import-password-file", "password", "--yes", *self.KEYS)
            self.answer(*take, "--key-id", "0" * 40, status=3)
            told = self.changed(*take, "--key-id", old[:8])["changes"]
            self.assertIn(CA, [one["name"] for one in told], "no certificate goes into the database unsaid")
            self.assertEqual(keys(), [("sign", False), ("decrypt", True)])
        self.changed(*delete, "--in-use", "--again", old)
        former = self.read("store", "history")["result"]["items"]
        self.answer("store", "restore", former[-1]["name"], "--yes", "--password-env", "P", status=4, P="Falsz-123")
        self.changed("store", "restore", former[-1]["name"], "--yes", *self.KEYS)
        self.assertEqual(len(keys()), 2, "with the key that was deleted")
        self.assertEqual(len(self.read("store", "history")["result"]["items"]), len(former) + 1, "the file of now is kept")
        for form in ("strong", "compatible"):
            self.changed("store", "protect", form, *self.KEYS)
            self.assertEqual(self.read("store", "check", *self.KEYS)["result"]["protection"], form)

    def test_watch_tells_what_ends_soon(self):
        def watched(*words, status=0):
            return {one["kind"]: one["state"] for one in self.answer("watch", *words, *self.KEYS, status=status)["result"].get("items", [])}

        everything = watched("--all", status=1)
        self.assertEqual(set(everything), {"certificate", "trust-point", "crl"})
        self.assertEqual(watched("--days", "40000", status=1), dict.fromkeys(everything, "soon"))
        self.assertEqual(watched("--days", "0"), {})
        metrics = self.run_it("watch", "--format", "prometheus", *self.KEYS, status=1).stdout.decode()
        self.assertEqual(len(re.findall(r'^corvane_end_timestamp_seconds\{profile="DROGA",kind="[a-z-]+",name="[^"]+"\} [0-9]+$', metrics, re.M)), 3)
        for keys, looked in ((self.KEYS, "1"), ((), "0")):
            told = self.run_it("watch", "--format", "prometheus", *keys, status=1).stdout.decode()
            self.assertIn('corvane_profile_looked_at{profile="DROGA"} ' + looked, told)
            self.assertIn('kind="crl"', told)  # the database is looked at although the keys are not
        self.assertEqual(self.answer("watch", "--days", "0", status=4)["ok"], False, "nothing ends, but nobody looked")
        for name, secret, status in (("corvane.password", b"Falsz-123", 4), ("corvane.password.Droga", self.secret, 0)):
            pathlib.Path("cred").mkdir(exist_ok=True)
            pathlib.Path("cred", name).write_bytes(secret)
            self.answer("watch", "--days", "0", status=status, CREDENTIALS_DIRECTORY="cred")
        self.changed("profile", "create", "NOWY")
        self.answer("watch", "--days", "0", *self.KEYS)  # what was never begun has nothing that ends
        pathlib.Path("NOWY.p12.lck").touch()
        self.answer("watch", "--days", "0", *self.KEYS)  # nor what somebody began in vain
        pathlib.Path("DROGA.p12").rename("weg")
        self.assertIn("DROGA.p12.d", str(self.answer("watch", "--days", "0", *self.KEYS, status=3)["warnings"]))
        pathlib.Path("weg").rename("DROGA.p12")
        with open("profiles.conf", "a", encoding="utf-8") as lists:
            lists.write('\\ZLY\\Type [s] = "1"\n')
        told = self.answer("watch", "--days", "0", *self.KEYS, status=7)["warnings"]
        self.assertRegex(told[0], "ZLY.* w linii: [0-9]+$")
        self.assertEqual(self.answer("profile", "list")["warnings"], told)
        self.assertEqual(self.answer("profile", "show", "ZLY", status=7)["fault"], "list-failed")
        self.answer("profile", "create", "ZLY", status=7)
        pathlib.Path(self.home, ".crvprofiles.conf").write_text('\\ZLY\\Type [s] = "1"\n', "utf-8")
        named = self.env.pop("CRV_PROFILE_FILE")
        self.assertEqual(self.answer("profile", "show", "ZLY", status=7)["fault"], "list-failed")
        self.env["CRV_PROFILE_FILE"] = named
        self.answer("profile", "set", "NOWY", "--db", "inna")
        self.assertIn(r'\ZLY\Type [s] = "1"', pathlib.Path("profiles.conf~").read_text("utf-8"))
        pathlib.Path("DROGA.p12").unlink()
        former = self.answer("store", "history", "-p", "DROGA")["result"]["items"][-1]["name"]
        self.changed("store", "restore", former, "--yes", *self.KEYS)
        self.read("key", "list", *self.KEYS)

    def test_changes_of_keys_certificates_and_lists(self):
        self.assertEqual(self.answer("store", "init", *self.KEYS, status=6)["fault"], "store-exists")
        self.assertEqual(self.answer("key", "generate", *self.KEYS, status=6)["fault"], "object-exists")
        self.changed("setting", "set", "no-net", "1", *self.KEYS)
        self.changed("setting", "reset", "no-net", *self.KEYS)
        self.assertEqual(self.read("setting", "get", "no-net", *self.KEYS)["result"]["value"], 0)
        for name, good, bad in (("algorithm-policy", "sha1 never; rsa<2048 2030-12-31", "nonsense"), ("text-option-36", "ąę", None),
                                ("hash-algo", "sha512", "sha3"), ("sym-algo", "aes128-cbc", "rot13"),
                                ("connect-timeout", "5", "5s")):
            self.changed("setting", "set", name, good, *self.KEYS)
            shown = self.read("setting", "get", name, *self.KEYS)["result"]
            self.assertEqual((str(shown["value"]), bad and self.answer("setting", "set", name, bad, *self.KEYS, status=2)["fault"]),
                             (good, bad and "bad-value"))
            self.changed("setting", "reset", name, *self.KEYS)
        self.answer("policy", "add", "2.5.29.32.0", "any", *self.KEYS, status=2)
        self.changed("policy", "remove", "1.3.6.1.4.1.32473.9", *self.KEYS)
        self.assertEqual(self.answer("policy", "remove", "1.3.6.1.4.1.32473.9", *self.KEYS, status=3)["fault"], "object-missing")
        self.assertEqual(self.answer("trust", "add", "ca/ca.pem", *self.KEYS, status=6)["detail"], "the trust point is there already")
        self.changed("trust", "export", "ufam.crt", "--subject", "pokazowy", *self.KEYS)
        self.assertEqual(self.answer("trust", "export", "ufam.crt", "--subject", "pokazowy", *self.KEYS, status=6)["fault"],
                         "file-exists")
        for own in ("profiles.conf", "DROGA.p12", "kopia.p12", "db/DROGA/x"):
            self.assertEqual(self.answer("cert", "export", own, "--all", "--force", status=6)["fault"], "file-protected")
        self.answer("trust", "remove", "--subject", "pokazowy", *self.KEYS, status=6)
        self.changed("trust", "remove", "--subject", "pokazowy", "--yes", *self.KEYS)
        answer = self.read(*self.KEYS, "cert", "verify", "moj.crt", "--explain", status=1)["result"]
        self.assertEqual([(c["path"], c["clause"], c["mend"], c["mendAbout"]) for c in answer["candidates"]],
                         [(["CN=Jan Kowalski,O=Firma,C=PL", CA], "6.1.1", "crvctl trust add FILE", CA)])
        self.assertEqual((answer["failedAt"], answer["exhausted"], answer["candidatesOmitted"]), (1, False, 0))
        self.changed("server", "set", "LDAP", "--ca", "ca/ca.pem")
        self.assertEqual(self.read("server", "list")["result"]["items"][0]["ca"], CA)
        self.changed("server", "set", "LDAP", "--any-ca")
        self.answer("cert", "delete", "--issuer", "pokazowy", "--yes", status=6)
        self.changed("cert", "delete", "--subject", "Kowalski", "--yes")
        self.changed("cert", "import", "moj.crt")
        self.changed("cert", "purge", "--now", "2028-06-01")
        self.assertEqual(self.read("cert", "list")["result"]["count"], 1)
        pathlib.Path("db/DROGA/ca.idx").unlink()
        self.assertEqual(self.answer("db", "check", status=1)["result"]["items"][0], {"file": "ca.idx", "finding": "missing"})
        self.changed("db", "repair", dry=1)
        self.read("db", "check")
        self.changed("key", "request", "nowe.pem", *self.KEYS)
        subprocess.run(["openssl", "req", "-verify", "-noout", "-in", "nowe.pem"], check=True, capture_output=True)
        new = pathlib.Path("nowe"); new.write_text("Nowe-Haslo7\n"); new.chmod(0o600)
        self.changed("store", "passwd", *self.KEYS, "--new-password-file", "nowe")
        self.read("store", "check", *self.KEYS, status=4)
        self.read("store", "check", "--password-file", "nowe")
        weak = self.answer("store", "passwd", "--password-file", "nowe", "--new-password-env", "W", status=6, W="slabe")
        self.assertEqual(weak["fault"], "weak-password")

    def test_the_second_profile_of_a_list(self):
        keys = ("-p", "DRUGI", *self.KEYS)
        self.changed("profile", "create", "DRUGI")
        self.changed("store", "init", *keys)
        self.changed("db", "create", "-p", "DRUGI")
        self.changed("key", "generate", "--algo", "ecdsa", "--request", "drugi.pem", "--subject", "CN=Drugi,C=PL", *keys)
        demo = [str(SOURCE / "examples/demo-ca/demo-ca"), "sign", "ca", "drugi.pem", "drugi.crt"]
        subprocess.run(demo, env=self.env, check=True, capture_output=True)
        self.changed("cert", "install", "drugi.crt", *keys)
        self.changed("trust", "add", "ca/ca.pem", *keys)
        self.changed("crl", "import", "ca/ca.crl", *keys)
        self.changed("policy", "add", "1.2.3", "trzy", *keys)
        self.changed("usage", "remove", "1.3.6.1.5.5.7.3.4")
        self.changed("store", "backup", "drugi.bak", *keys)
        self.changed("cert", "export", "drugi.out", "--role", "sign", *keys)
        self.changed("crl", "export", "1", "drugi.crl", "-p", "DRUGI")
        self.assertEqual(self.read("cert", "verify", "--role", "sign", *keys)["result"]["items"][0]["subject"], "CN=Drugi,C=PL")

    def test_additions_at_the_same_time_are_all_there_once(self):
        new = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", "/dev/null"]
        for i in range(20):
            subprocess.run([*new, "-subj", f"/CN=u{i}", "-out", f"u{i}"], check=True, capture_output=True)
        for before, verb in ((1, lambda i: ("policy", "add", f"1.2.{i}", f"n{i}")), (1, lambda i: ("trust", "add", f"u{i}"))):
            runs = [subprocess.Popen([CRVCTL, *verb(i), *self.KEYS], env=self.env, stderr=subprocess.DEVNULL) for i in range(20)]
            self.assertEqual([run.wait() for run in runs], [0] * 20)
            listed = [json.dumps(item) for item in self.read(verb(0)[0], "list", *self.KEYS)["result"]["items"]]
            self.assertEqual((len(listed), len(set(listed))), (before + 20, before + 20))

    def test_an_import_that_is_ended_leaves_a_sound_database(self):
        der = subprocess.run(["openssl", "x509", "-in", "ca/ca.pem", "-outform", "der"], check=True, capture_output=True).stdout
        serial = bytes.fromhex(self.read("cert", "search", "--subject", "pokazowy")["result"]["items"][0]["serial"])
        self.assertEqual(der.count(serial), 1)
        many = b"".join(der.replace(serial, b"\x01" + os.urandom(len(serial) - 1)) for _ in range(8000))
        pathlib.Path("wiele").write_bytes(many)
        data = pathlib.Path("db/DROGA/certific.dta")
        for number, status in ((signal.SIGINT, 130), (signal.SIGKILL, -9)):
            size = data.stat().st_size
            run = subprocess.Popen([CRVCTL, "cert", "import", "wiele"], env=self.env, stderr=subprocess.DEVNULL)
            while run.poll() is None and data.stat().st_size == size:
                time.sleep(0.001)
            run.send_signal(number)
            self.assertEqual(run.wait(), status)
            count = self.answer("cert", "list")["result"]["count"]  # the next opening mends
            self.assertTrue(2 < count < 8002, count)
            self.read("db", "check")

    def test_the_console_opens_what_was_made(self):
        child, terminal = pty.fork()
        if child == 0:
            os.execve(os.path.dirname(CRVCTL) + "/crvconfd", ["crvconfd"], dict(self.env, TERM="xterm", LINES="24", COLUMNS="80"))
        for shown, typed in (("Wprowadź hasło dostępu:", self.secret + b"\r"), ("Klucze użytkownika:", b"w")):
            seen = b""
            while shown.encode() not in seen:
                self.assertTrue(select.select([terminal], [], [], 20)[0], (shown, seen))
                seen += os.read(terminal, 65536)
            os.write(terminal, typed)
        os.close(terminal)
        os.waitpid(child, 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
