"""Profiles as tokens in the hands of other programs. usage: module_test.py <crvctl> <libcorvane-pkcs11.so>"""
import contextlib
import ctypes
import fcntl
import getpass
import hashlib
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from ctypes import byref, c_char_p, c_ulong

import cryptoki as ck

CRVCTL, MODULE = (os.path.realpath(a) for a in sys.argv[1:3])
CHILD = sys.argv[3:]  # what a process of this test is to do, started by itself
PIN = bytes(10) if CHILD[:1] == ["wipe"] else b"-".join([b"Haslo", b"1234"])  # not in the memory that is looked through
URL = "pkcs11:token=%s;object=%s;type=%s"


def run(*words, **more):
    done = subprocess.run(words, capture_output=True, timeout=60, **{"stdin": subprocess.DEVNULL, **more})
    said = (done.stdout + done.stderr).decode("utf-8", "replace")
    assert done.returncode == 0, (words, said)
    return said


def ctl(*words, pin=PIN):
    return run(CRVCTL, "--password-env", "P", "--non-interactive", *words, env=dict(os.environ, P=pin.decode()))


def make_profiles(home):
    """RSA (signs and decrypts), EC and DSA, each with a certificate of one authority, which they trust."""
    os.environ.update(HOME=home, CRV_PROFILE_FILE=home + "/list.conf", P=PIN.decode(), GNUTLS_PIN=PIN.decode(), LC_ALL="C.UTF-8")
    os.chdir(home)
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out", "ca.pem", "-subj", "/CN=CA")
    for name, algo in ("rsa", ["--use", "both"]), ("ec", ["--algo", "ecdsa"]), ("dsa", ["--algo", "dsa", "--bits", "1024"]):
        ctl("profile", "create", name)
        ctl("-p", name, "db", "create")
        ctl("-p", name, "store", "init")
        ctl("-p", name, "key", "generate", *algo, "--request", name + ".csr")
        run("openssl", "x509", "-req", "-in", name + ".csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-copy_extensions", "copy", "-out",
            name + ".pem")
        ctl("-p", name, "cert", "install", name + ".pem")
        ctl("-p", name, "trust", "add", "ca.pem")


def setUpModule():
    global HOME
    HOME = tempfile.mkdtemp()
    unittest.addModuleCleanup(shutil.rmtree, HOME, ignore_errors=True)
    make_profiles(HOME)


def tree():
    return {str(p): (p.stat().st_mode, hashlib.sha256(p.read_bytes()).hexdigest()) for p in pathlib.Path(HOME).rglob("*") if p.is_file()}


@contextlib.contextmanager
def held(path):
    """The lock in the hands of a child."""
    with open(path, "r+") as lock:
        holder = os.fork()
        if holder == 0:
            fcntl.lockf(lock, fcntl.LOCK_EX)
            time.sleep(60)
            os._exit(0)
        time.sleep(0.3)
        try:
            yield
        finally:
            os.kill(holder, signal.SIGKILL)
            os.waitpid(holder, 0)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return str(s.getsockname()[1])


@contextlib.contextmanager
def server(port, *words):
    process = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
    try:
        for _ in range(500):
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", int(port)), 1):
                break
            time.sleep(0.02)
        yield
    finally:
        process.terminate()
        process.wait()


class Programs(unittest.TestCase):
    def test_pkcs11_tool_finds_no_fault(self):
        for slot in "012":
            said = run("pkcs11-tool", "--module", MODULE, "--slot", slot, "--test", "--login", "--pin", PIN.decode())
            self.assertIn("No errors", said)
            self.assertNotIn("ERR", said)

    def test_crvctl_tells_what_the_module_shows(self):
        told = json.loads(ctl("--json", "module", "status"))["result"]
        self.assertEqual([t["label"] for t in told["items"]], ["DSA", "EC", "RSA"])

    def test_crvctl_tells_how_p11_kit_finds_the_module(self):
        root = pathlib.Path(tempfile.mkdtemp())  # an installation that was moved, for a user who is not the superuser
        self.addCleanup(shutil.rmtree, root)
        for source, place in (CRVCTL, "bin"), (MODULE, "lib"):
            (root / place).mkdir()
            shutil.copy(source, root / place)
        root.chmod(0o755)
        user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if os.geteuid() == 0 else []
        module, home, other = (str(root / name) for name in ("lib/libcorvane-pkcs11.so", "home", "set by\tXDG"))
        for folder, env, text, registered, warned in (
            (home + "/.config", {}, None, False, "mkdir -p"),
            (home + "/.config", {"XDG_CONFIG_HOME": ""}, "# x\nmodule: %s \n" % module, True, ""),
            (other, {"XDG_CONFIG_HOME": other}, None, False, "mkdir -p"),
            (other, {"XDG_CONFIG_HOME": other}, "\tmodule :\t%s\r\nmodule: /x" % module, True, ""),
            (other, {"XDG_CONFIG_HOME": other}, "module: opensc.so\nremote: |p11-kit remote %s\n" % module, True, ""),
            (other, {"XDG_CONFIG_HOME": other}, "module:\n#module: %s\n" % module, False, "mkdir -p"),
            (other, {"XDG_CONFIG_HOME": other}, None, False, "cannot be read"),
            (other, {"XDG_CONFIG_HOME": other}, "module: /gone/libcorvane-pkcs11.so\n", False, "names a module that is not there")):
            file = pathlib.Path(folder, "pkcs11/modules/corvane.module")
            shutil.rmtree(folder, ignore_errors=True)
            if text:
                file.parent.mkdir(parents=True)
                file.write_text(text)
            elif warned == "cannot be read":
                file.mkdir(parents=True)
            done = subprocess.run([*user, str(root / "bin/crvctl"), "--json", "module", "status"], capture_output=True, timeout=60, text=True,
                                  env={"HOME": home, "CRV_PROFILE_FILE": str(root / "none"), "PATH": os.environ["PATH"], **env})
            answer = json.loads(done.stdout)
            told = answer["result"]
            self.assertEqual((told["library"], told["registration"]), (module, str(file) if registered else ""))
            self.assertEqual(bool(answer["warnings"]), not registered)
            self.assertIn(warned, "".join(answer["warnings"]))
            if warned == "mkdir -p":  # the command does what it says
                run("sh", "-c", answer["warnings"][0].split(": ", 1)[1])
                self.assertEqual(file.read_text(), "module: %s\n" % module)

    def test_gnutls_lists_and_signs(self):
        said = run("p11tool", "--provider", MODULE, "--login", "--list-all", "pkcs11:token=RSA")
        self.assertEqual([said.count("Type: " + t) for t in ("Private", "Public", "X.509")], [1, 1, 2])
        for token, name in ("RSA", "rsa"), ("EC", "ec"), ("DSA", "dsa"):
            said = run("p11tool", "--provider", MODULE, "--login", "--test-sign", URL % (token, name, "private"))
            self.assertEqual(said.count("... ok"), 3, said)

    def test_ssh_logs_in(self):
        ask = pathlib.Path(HOME, "ask")
        ask.write_text('#!/bin/sh\necho "$P"\n')
        ask.chmod(0o700)
        port, env = free_port(), dict(os.environ, SSH_ASKPASS=str(ask), SSH_ASKPASS_REQUIRE="force")
        run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", "hostkey")
        pathlib.Path("/run/sshd").mkdir(exist_ok=True)
        with server(port, "/usr/sbin/sshd", "-D", "-f", "/dev/null", "-p", port, "-h", HOME + "/hostkey", "-o", "ListenAddress=127.0.0.1",
                    "-o", f"AuthorizedKeysFile={HOME}/keys", "-o", "StrictModes=no", "-o", "UsePAM=no", "-o", "PidFile=none"):
            for token, name in ("RSA", "rsa"), ("EC", "ec"):
                own = dict(env, CRV_PROFILE=token)
                keys = run("ssh-keygen", "-D", MODULE, env=own).splitlines()
                pathlib.Path("keys").write_text("".join(k + "\n" for k in keys if k.endswith(" " + name)))
                said = run("ssh", "-F", "none", "-p", port, "-o", "StrictHostKeyChecking=no", "-o", "UserKnownHostsFile=/dev/null", "-o",
                           "PKCS11Provider=" + MODULE, getpass.getuser() + "@127.0.0.1", "echo in as " + token, env=own)
                self.assertIn("in as " + token, said)

    def test_openssl_signs_and_serves_curl_and_gnutls(self):
        pathlib.Path("engine.cnf").write_text(
            f"openssl_conf = a\n[a]\nengines = b\n[b]\npkcs11 = c\n[c]\nengine_id = pkcs11\nMODULE_PATH = {MODULE}\n"
            f"PIN = {PIN.decode()}\ninit = 0\n[req]\ndistinguished_name = d\n[d]\n")
        env = dict(os.environ, OPENSSL_CONF=HOME + "/engine.cnf")
        engine = ["-engine", "pkcs11", "-keyform", "engine", "-key"]
        for token, name in ("RSA", "rsa"), ("EC", "ec"):
            run("openssl", "req", "-new", *engine, URL % (token, name, "private"), "-subj", "/CN=x", "-out", "x.csr", env=env)
            run("openssl", "req", "-in", "x.csr", "-verify", "-noout")
        port = free_port()
        os.environ.update(env)
        self.addCleanup(os.environ.pop, "OPENSSL_CONF")
        with server(port, "openssl", "s_server", *engine, URL % ("EC", "ec", "private"), "-cert", "ec.pem", "-CAfile", "ca.pem", "-Verify",
                    "1", "-verify_return_error", "-accept", port, "-www"):
            said = run("curl", "-s", "-S", "--engine", "pkcs11", "--cacert", "ca.pem", "--resolve", f"ec:{port}:127.0.0.1", "--key-type",
                       "ENG", "--key", URL % ("RSA", "rsa", "private"), "--cert", "rsa.pem", f"https://ec:{port}/")
            self.assertIn("New, TLSv1.3", said)
            said = run("gnutls-cli", "--provider=" + MODULE, "--x509cafile", "ca.pem", "--x509keyfile", URL % ("RSA", "rsa", "private"),
                       "--x509certfile", URL % ("RSA", "rsa", "cert"), "-p", port, "--verify-hostname=ec", "127.0.0.1",
                       stdin=None, input=b"GET / HTTP/1.0\r\n\r\n")
            self.assertIn("New, TLSv1.3", said)  # the page, behind the server's verdict on the certificate

    def test_nss_lists_signs_and_decrypts(self):
        pathlib.Path("pw").write_text("".join(f"{t}:{PIN.decode()}\n" for t in ("RSA", "EC", "DSA")))
        pathlib.Path("msg").write_text("hello\n")
        pathlib.Path("nss").mkdir()
        run("certutil", "-N", "-d", "sql:nss", "--empty-password")
        run("modutil", "-dbdir", "sql:nss", "-add", "corvane", "-libfile", MODULE, "-force")
        listed = run("certutil", "-L", "-d", "sql:nss", "-h", "all", "-f", "pw")
        self.assertRegex(listed, r"RSA:rsa +u,u,u")
        run("certutil", "-A", "-d", "sql:nss", "-n", "CA", "-t", "CT,C,C", "-i", "ca.pem", "-f", "pw")
        for token, name in ("RSA", "rsa"), ("EC", "ec"):
            run("cmsutil", "-S", "-d", "sql:nss", "-N", f"{token}:{name}", "-f", "pw", "-i", "msg", "-o", "msg.p7")
            run("openssl", "cms", "-verify", "-inform", "DER", "-in", "msg.p7", "-CAfile", "ca.pem", "-purpose", "any")
        run("openssl", "cms", "-encrypt", "-aes256", "-outform", "DER", "-in", "msg", "-out", "env.p7", "rsa.pem")
        self.assertIn("hello", run("cmsutil", "-D", "-d", "sql:nss", "-f", "pw", "-i", "env.p7"))


class Calls(unittest.TestCase):
    def setUp(self):
        self.m = ck.Module(MODULE)
        self.m.must(self.m.Initialize(None))
        self.addCleanup(self.m.Finalize, None)
        self.slot = self.m.labels()

    def opened(self, label, write=False, pin=PIN):
        session = self.m.open(self.slot[label], write)
        self.assertEqual(self.m.login(session, pin), ck.OK)
        return session

    def keys(self, session):
        return self.m.find(session, ck.PRIVATE_KEY)[0], self.m.find(session, ck.PUBLIC_KEY)[0]

    def test_reading_writes_nothing_and_shows_nothing_before_log_in(self):
        before = tree()
        session = self.m.open(self.slot["RSA"])
        self.assertEqual([self.m.find(session, kind) for kind in (1, 2, 3)], [[], [], []])
        self.assertEqual(self.m.login(session, b"Haslo-1235"), ck.PIN_INCORRECT)
        self.assertEqual(self.m.login(session, PIN), ck.OK)
        self.assertEqual(self.m.login(session, PIN), ck.USER_ALREADY_LOGGED_IN)
        private, public = self.keys(session)
        self.assertEqual(self.m.attribute(session, private, 0x103), (ck.OK, b"\x01"))  # CKA_SENSITIVE
        for kind in (0x123, 0x124, 0x128):  # d, p, the coefficient
            self.assertEqual(self.m.attribute(session, private, kind), (ck.ATTRIBUTE_SENSITIVE, 2**64 - 1))
            self.assertEqual(self.m.attribute(session, public, kind)[0], ck.ATTRIBUTE_TYPE_INVALID)
        self.assertEqual(self.m.attribute(session, private, 0x120, room=255), (ck.BUFFER_TOO_SMALL, 2**64 - 1))
        trusted = [self.m.attribute(session, c, 0x86)[1] for c in self.m.find(session, ck.CERTIFICATE)]
        self.assertEqual(sorted(trusted), [b"\x00", b"\x01"])
        self.m.must(self.m.Logout(session))
        self.assertEqual(self.m.attribute(session, private, 0)[0], ck.OBJECT_HANDLE_INVALID)
        self.assertEqual(self.m.SignInit(session, byref(ck.mechanism(1)), private), ck.USER_NOT_LOGGED_IN)
        self.assertEqual(tree(), before)

    def test_the_database_shows_its_certificates_when_asked(self):
        self.m.must(self.m.Finalize(None))
        os.environ["CRV_PKCS11_DATABASE"] = "1"
        self.addCleanup(os.environ.pop, "CRV_PKCS11_DATABASE")
        self.m.must(self.m.Initialize(None))
        session = self.m.open(self.slot["RSA"])
        before = self.m.find(session, ck.CERTIFICATE)
        self.assertEqual(len(before), 1)  # the user's own, which its installation put there
        ctl("-p", "rsa", "cert", "import", "ec.pem")
        after = self.m.find(session, ck.CERTIFICATE)
        self.assertEqual((after[:1], len(after)), (before, 2))
        self.assertEqual([self.m.attribute(session, one, 0x86) for one in after], [(ck.OK, b"\0")] * 2)
        lock = next(p for p in pathlib.Path(HOME).rglob("db.lck") if "rsa" in str(p).lower())
        self.addCleanup(lock.write_bytes, lock.read_bytes())
        self.m.must(self.m.Finalize(None))
        self.m.must(self.m.Initialize(None))
        session = self.opened("RSA")
        with held(lock):  # the keys do not wait for it more than once
            begun = time.monotonic()
            self.assertEqual([len(self.m.find(session, kind)) for kind in (1, 2, 3, 1, 2, 3)], [2, 1, 1] * 2)
            self.assertLess(time.monotonic() - begun, 4)
        self.assertEqual(len(self.m.find(session, ck.CERTIFICATE)), 3)
        lock.write_bytes(b"CRVMARK2\n")  # a change was cut off
        left = tree()
        self.m.must(self.m.Finalize(None))
        self.m.must(self.m.Initialize(None))
        session = self.opened("RSA")
        self.assertEqual([len(self.m.find(session, kind)) for kind in (1, 2, 3)], [2, 1, 1])  # those of the file
        self.assertEqual(tree(), left)

    def test_a_list_that_cannot_be_read_keeps_its_tokens(self):
        session, listed = self.opened("EC"), pathlib.Path("list.conf")
        kept = listed.read_bytes()
        self.addCleanup(listed.write_bytes, kept)
        listed.unlink()
        listed.mkdir()
        self.assertEqual(self.m.labels(), self.slot)
        listed.rmdir()
        listed.write_bytes(b"no list")
        self.assertEqual(self.m.labels(), self.slot)
        self.m.must(self.m.Logout(session))
        session = self.opened("EC", write=True)
        for old, new in (PIN, b"Nowe-haslo-1"), (b"Nowe-haslo-1", PIN):
            self.m.must(self.m.SetPIN(session, c_char_p(old), len(old), c_char_p(new), len(new)))
            self.assertEqual(len(self.m.find(session, ck.PRIVATE_KEY)), 1)
        listed.write_bytes(kept)
        self.assertEqual((self.m.labels(), len(self.m.find(session, ck.PRIVATE_KEY))), (self.slot, 1))

    def test_additional_trust_points_are_trusted(self):
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "far.key", "-out", "far.pem", "-subj", "/CN=Far")
        run("openssl", "pkcs12", "-export", "-nokeys", "-in", "far.pem", "-passout", "pass:", "-out", "roots.p12")
        ctl("-p", "dsa", "profile", "set", "--roots-file", HOME + "/roots.p12", "--roots-empty-password", "1")
        session = self.m.open(self.m.labels()["DSA"])
        self.m.must(self.m.login(session, PIN))
        trusted = lambda: [self.m.attribute(session, c, 0x86)[1] for c in self.m.find(session, ck.CERTIFICATE)].count(b"\x01")
        self.assertEqual(trusted(), 2)
        pathlib.Path("roots.p12").write_bytes(b"no trust points")
        self.assertEqual(trusted(), 1)

    def test_relative_paths_do_not_follow_the_process(self):
        self.m.must(self.m.Finalize(None))
        listed = os.environ["CRV_PROFILE_FILE"]
        self.addCleanup(os.environ.update, CRV_PROFILE_FILE=listed)
        self.addCleanup(os.chdir, HOME)
        text = pathlib.Path(listed).read_text()
        self.addCleanup(pathlib.Path(listed).write_text, text)
        pathlib.Path(listed).write_text(text.replace(HOME + "/ec.p12", "ec.p12"))
        os.environ["CRV_PROFILE_FILE"] = "list.conf"
        self.m.must(self.m.Initialize(None))
        os.chdir("/")
        self.assertEqual(len(self.m.find(self.opened("EC"), ck.PRIVATE_KEY)), 1)

    def test_who_brings_mutexes_must_allow_ours(self):
        self.m.must(self.m.Finalize(None))
        for words, wanted in (([1, 1, 1, 0, 2, 0], ck.ARGUMENTS_BAD), ([0, 0, 0, 0, 2, 1], ck.ARGUMENTS_BAD), ([1, 1, 1, 1, 0, 0], 0xA),
                              ([1, 1, 1, 1, 2, 0], ck.OK)):
            self.assertEqual(self.m.Initialize(byref((c_ulong * 6)(*words))), wanted)

    def test_unloading_leaves_what_runs(self):
        session = self.opened("EC")
        library = ctypes.CDLL(MODULE)
        for _ in range(100):  # more often than the test has it open
            ctypes.CDLL(None).dlclose(ctypes.c_void_p(library._handle))
        again = ck.Module(MODULE)
        self.assertEqual([again.Initialize(None), len(again.find(session, ck.PRIVATE_KEY))], [ck.ALREADY_INITIALIZED, 1])

    def test_nobody_stays_logged_in_without_a_session(self):
        for pause in range(12):
            session = self.m.open(self.slot["EC"])
            thread = threading.Thread(target=self.m.login, args=(session, PIN))
            thread.start()
            time.sleep(pause / 500)
            self.assertEqual(self.m.CloseSession(session), ck.OK)
            thread.join()
            session = self.m.open(self.slot["EC"])
            self.assertEqual(self.m.find(session, ck.PRIVATE_KEY), [])
            self.m.must(self.m.CloseSession(session))

    def test_oaep_opens_what_openssl_closed(self):
        session = self.opened("RSA")
        for kind, mgf, name in (0x220, 1, "sha1"), (0x250, 2, "sha256"):
            how = ck.mechanism(9, kind, mgf, 1, 0, 0)
            closed = subprocess.run(["openssl", "pkeyutl", "-encrypt", "-certin", "-inkey", "rsa.pem", "-pkeyopt", "rsa_padding_mode:oaep",
                                     "-pkeyopt", "rsa_oaep_md:" + name], input=b"secret", capture_output=True, check=True).stdout
            for data, wanted in (closed, (ck.OK, b"secret")), (closed[:-1] + bytes([closed[-1] ^ 1]), (0x40, 4096)):
                self.m.must(self.m.DecryptInit(session, byref(how), self.keys(session)[0]))
                self.assertEqual(self.m.out(self.m.Decrypt, session, c_char_p(data), len(data)), wanted)

    def test_every_mechanism_signs_what_openssl_verifies(self):
        data = b"abc" * 100
        pss = {0x0E: (0x220, 1, 20), 0x43: (0x250, 2, 32), 0x45: (0x270, 4, 0)}
        for label, kinds in ("RSA", (6, 0x40, 0x42, 0x0E, 0x43, 0x45)), ("EC", (0x1042, 0x1044, 0x1045)), ("DSA", (0x12,)):
            session = self.opened(label)
            private, public = self.keys(session)
            run("openssl", "x509", "-in", label.lower() + ".pem", "-noout", "-pubkey", "-out", label + ".pub")
            for kind in kinds:
                how = ck.mechanism(kind, *pss.get(kind, ()))
                signature = self.m.sign(session, private, how, data)
                self.assertEqual(self.m.verify(session, public, how, data, signature), ck.OK)
                self.assertEqual(self.m.verify(session, public, how, data + b"x", signature), ck.SIGNATURE_INVALID)
                self.m.must(self.m.SignInit(session, byref(how), private))
                for part in (data[:7], b"", data[7:]):
                    self.m.must(self.m.SignUpdate(session, c_char_p(part), len(part)))
                self.assertEqual(self.m.out(self.m.Sign, session, None, 0)[0], ck.OPERATION_NOT_INITIALIZED)
                self.assertEqual(self.m.out(self.m.SignFinal, session, room=1), (ck.BUFFER_TOO_SMALL, len(signature)))
                rv, parts = self.m.out(self.m.SignFinal, session)
                self.assertEqual(self.m.verify(session, public, how, data, parts), ck.OK)
                if label == "RSA":
                    digest = {6: "sha1", 0x40: "sha256", 0x42: "sha512", 0x0E: "sha1", 0x43: "sha256", 0x45: "sha512"}[kind]
                    options = ["-sigopt", "rsa_padding_mode:pss"] if kind in pss else []
                    pathlib.Path("sig").write_bytes(parts)
                    run("openssl", "dgst", "-" + digest, "-verify", "RSA.pub", *options, "-signature", "sig", stdin=None, input=data)
            for raw in {"RSA": [(1,), (0x0D, 0x220, 1, 20)], "EC": [(0x1041,)], "DSA": [(0x11,)]}[label]:
                how = ck.mechanism(*raw)
                self.assertEqual(self.m.verify(session, public, how, b"d" * 20, self.m.sign(session, private, how, b"d" * 20)), ck.OK)

    def test_wrong_calls_have_their_answers(self):
        m, session = self.m, self.opened("EC")
        private, public = self.keys(session)
        good, length = ck.mechanism(0x1041), c_ulong()
        first = lambda how, key: m.SignInit(session, byref(how), key)
        for rv, wanted in (
            (m.Initialize(None), ck.ALREADY_INITIALIZED), (m.Finalize(c_char_p(b"")), ck.ARGUMENTS_BAD),
            (m.GetSlotList(1, None, None), ck.ARGUMENTS_BAD), (m.GetTokenInfo(77, None), ck.ARGUMENTS_BAD),
            (m.OpenSession(77, 4, None, None, byref(length)), ck.SLOT_ID_INVALID),
            (m.OpenSession(0, 0, None, None, byref(length)), ck.SESSION_PARALLEL_NOT_SUPPORTED),
            (m.Login(session, 0, c_char_p(PIN), 10), ck.USER_TYPE_INVALID), (m.Sign(session, None, 0, None, byref(length)), ck.OPERATION_NOT_INITIALIZED),
            (m.SignInit(999, byref(good), private), ck.SESSION_HANDLE_INVALID), (m.SignInit(session, None, private), ck.ARGUMENTS_BAD),
            (first(good, public), ck.KEY_HANDLE_INVALID), (first(good, 0), ck.KEY_HANDLE_INVALID),
            (first(ck.mechanism(1), private), ck.KEY_TYPE_INCONSISTENT), (first(ck.mechanism(3), private), ck.MECHANISM_INVALID),
            (first(ck.mechanism(0x1041, 5), private), ck.MECHANISM_PARAM_INVALID),
            (m.DecryptInit(session, byref(ck.mechanism(1)), private), ck.KEY_TYPE_INCONSISTENT),
            (m.SetPIN(session, c_char_p(PIN), 10, c_char_p(PIN), 10), ck.SESSION_READ_ONLY),
            (m.SeedRandom(session, c_char_p(b"x"), 1), ck.RANDOM_SEED_NOT_SUPPORTED), (m.EncryptInit(session, None, 0), ck.FUNCTION_NOT_SUPPORTED),
            (first(good, private), ck.OK), (first(good, private), ck.OPERATION_ACTIVE),
            (m.Sign(session, c_char_p(b"x" * 20), 20, None, byref(length)), ck.OK),
            (m.out(m.Sign, session, c_char_p(b"x" * 200), 200)[0], ck.DATA_LEN_RANGE), (first(good, private), ck.OK),
            (m.Sign(session, None, 5, None, byref(length)), ck.ARGUMENTS_BAD), (first(good, private), ck.OK),
            (m.DigestInit(session, byref(ck.mechanism(0x250))), ck.OK), (m.DigestUpdate(session, None, 5), ck.ARGUMENTS_BAD),
            (m.DigestFinal(session, None, byref(c_ulong())), ck.OPERATION_NOT_INITIALIZED),
            (m.CloseSession(session), ck.OK), (m.CloseSession(session), ck.SESSION_HANDLE_INVALID)):
            self.assertEqual(hex(rv), hex(wanted))
        self.assertEqual(length.value, 64)
        session = self.m.open(self.slot["EC"])  # the log-in went with the last session
        self.assertEqual(self.m.SignInit(session, byref(good), private), ck.USER_NOT_LOGGED_IN)

    def test_a_file_that_changes_gets_its_answer(self):
        m, file, new = self.m, pathlib.Path(HOME, "ec.p12"), b"Nowe-haslo-1"
        kept, listed = file.read_bytes(), pathlib.Path("list.conf").read_text()
        self.addCleanup(file.write_bytes, kept)
        self.addCleanup(pathlib.Path("list.conf").write_text, listed)
        session, how = self.opened("EC", write=True), ck.mechanism(0x1041)
        begin = lambda: m.SignInit(session, byref(how), self.keys(session)[0])
        self.assertEqual([m.Login(session, 1, c_char_p(PIN), 1 << 40), m.SetPIN(session, c_char_p(PIN), 10, c_char_p(PIN), 1 << 40)],
                         [ck.PIN_INCORRECT, ck.PIN_LEN_RANGE])
        set_pin = lambda old, to: m.SetPIN(session, c_char_p(old), len(old), c_char_p(to), len(to))
        self.assertEqual([set_pin(PIN, p) for p in (b"Ab1", b"abcdefgh1", b"Ab1\0efgh", b"Abcdefg1" * 40)],
                         [ck.PIN_LEN_RANGE, ck.PIN_INVALID, ck.PIN_INVALID, ck.PIN_LEN_RANGE])
        self.assertEqual([set_pin(b"Haslo-0000", new), set_pin(PIN, new), begin()], [ck.PIN_INCORRECT, ck.OK, ck.OK])
        ctl("-p", "ec", "key", "generate", "--use", "decrypt", pin=new)  # operations go on, and the new key is there
        self.assertEqual(m.out(m.Sign, session, c_char_p(b"d" * 20), 20)[0], ck.OK)
        self.assertEqual(len(m.find(session, ck.PRIVATE_KEY)), 2)
        with held("ec.p12.lck"):
            begun = time.monotonic()
            m.must(m.Logout(session))
            self.assertEqual(m.login(session, new), ck.FUNCTION_FAILED)
            self.assertGreater(time.monotonic() - begun, 4)
        self.assertEqual(m.login(session, new), ck.OK)
        private = self.keys(session)[0]
        file.write_bytes(kept)  # it is under the old password
        self.assertEqual(m.SignInit(session, byref(how), private), ck.USER_NOT_LOGGED_IN)
        self.assertEqual([m.login(session, PIN), begin()], [ck.OK, ck.OK])
        file.write_bytes(pathlib.Path("dsa.p12").read_bytes())  # the key is gone, the log-in is not
        self.assertNotIn(private, m.find(session, ck.PRIVATE_KEY))
        self.assertEqual(m.out(m.Sign, session, c_char_p(b"d" * 20), 20)[0], ck.FUNCTION_FAILED)
        file.unlink()
        info = ctypes.create_string_buffer(512)
        self.assertEqual([m.SignInit(session, byref(how), private), m.GetSessionInfo(session, info), m.GetTokenInfo(self.slot["EC"], info)],
                         [ck.DEVICE_REMOVED, ck.DEVICE_REMOVED, ck.TOKEN_NOT_PRESENT])
        file.write_bytes(kept)
        self.assertEqual([m.login(session, PIN), begin()], [ck.OK, ck.OK])
        ctl("profile", "create", "new")
        ctl("-p", "new", "store", "init")
        ctl("-y", "profile", "remove", "ec")
        self.assertEqual(m.GetSessionInfo(session, info), ck.DEVICE_REMOVED)
        self.assertEqual(m.labels(), {"DSA": 0, "RSA": 2, "NEW": 3})
        self.assertEqual(len(m.slots(present=0)), 4)

    def test_two_processes_and_eight_threads_sign(self):
        other = subprocess.Popen([sys.executable, __file__, CRVCTL, MODULE, "sign"])
        self.assertEqual(sign_much(self.m, self.slot["EC"]), [])
        self.assertEqual(other.wait(), 0)

    def test_a_forked_process_begins_anew_while_threads_sign(self):
        stop, how = threading.Event(), ck.mechanism(0x1041)
        session = self.opened("EC")
        private = self.keys(session)[0]
        thread = threading.Thread(target=lambda: [self.m.sign(session, private, how, b"d" * 20) for _ in iter(stop.is_set, True)])
        thread.start()
        try:
            for _ in range(20):
                child = os.fork()
                if child == 0:
                    good = self.m.SignInit(session, byref(how), private) == self.m.Finalize(None) == ck.NOT_INITIALIZED
                    good = good and self.m.Initialize(None) == ck.OK
                    os._exit(0 if good and self.m.sign(own := self.opened("EC"), self.keys(own)[0], how, b"d" * 20) else 1)
                self.assertEqual(os.waitpid(child, 0)[1], 0)
        finally:
            stop.set()
            thread.join()

    def test_the_end_of_a_log_in_leaves_no_secret_behind(self):
        words = ["openssl", "pkcs12", "-in", "rsa.p12", "-nocerts", "-nodes", "-passin", "env:P"]  # it stops behind the key, at other bags
        key = subprocess.run(words, capture_output=True).stdout
        numbers = run("openssl", "rsa", "-text", "-noout", stdin=None, input=key)
        prime = bytes.fromhex("".join(numbers.split("prime1:")[1].split("prime2:")[0].replace(":", "").split())).lstrip(b"\0")
        secrets = [PIN, PIN.decode().encode("utf-16-be"), prime, prime[::-1]]
        env = {k: v for k, v in os.environ.items() if PIN.decode() not in v}
        for end in "Logout", "CloseAllSessions", "Finalize":
            child = subprocess.Popen([sys.executable, __file__, CRVCTL, MODULE, "wipe", end], stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=env)
            child.stdin.write(PIN)
            child.stdin.flush()
            self.assertEqual(child.stdout.readline(), b"in\n")
            self.assertIn(True, [s in memory_of(child.pid) for s in secrets[2:]])
            self.assertIn(PIN, memory_of(child.pid))
            child.stdin.write(b"x")
            child.stdin.flush()
            self.assertEqual(child.stdout.readline(), b"out\n")
            self.assertEqual([s in memory_of(child.pid) for s in secrets], [False] * 4, end)
            child.communicate(b"x")
            self.assertEqual(child.returncode, 0)


def memory_of(pid):
    found = []
    with open(f"/proc/{pid}/maps") as maps, open(f"/proc/{pid}/mem", "rb", 0) as memory:
        for line in maps:
            begin, end = (int(x, 16) for x in line.split()[0].split("-"))
            if "rw" in line.split()[1]:
                with contextlib.suppress(OSError):
                    memory.seek(begin)
                    found.append(memory.read(end - begin))
    return b"".join(found)


def sign_much(m, slot):
    """5,000 signatures of 8 threads; what went wrong."""
    session, how, faults = m.open(slot), ck.mechanism(0x1041), []
    m.must(m.login(session, PIN))
    private, public = m.find(session, ck.PRIVATE_KEY)[0], m.find(session, ck.PUBLIC_KEY)[0]

    def work(number):
        own = m.open(slot)
        for i in range(625):
            data = hashlib.sha1(b"%d %d" % (number, i)).digest()
            if m.verify(own, public, how, data, m.sign(own, private, how, data)) != ck.OK:
                faults.append((number, i))

    threads = [threading.Thread(target=work, args=(n,)) for n in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return faults


def child(what, end=None):
    m = ck.Module(MODULE)
    m.must(m.Initialize(None))
    if what == "sign":
        sys.exit(1 if sign_much(m, m.labels()["EC"]) else 0)
    pin = (ctypes.c_char * len(PIN))()
    os.readv(0, [pin])
    slot, how = m.labels()["RSA"], ck.mechanism(0x40)
    session = m.open(slot)
    m.must(m.Login(session, 1, pin, len(PIN)))
    ctypes.memset(pin, 0, len(PIN))
    m.sign(session, m.find(session, ck.PRIVATE_KEY)[0], how, b"abc")
    m.must(m.SignInit(session, byref(how), m.find(session, ck.PRIVATE_KEY)[0]))
    print("in", flush=True)
    os.read(0, 1)
    m.must(getattr(m, end)({"Logout": session, "CloseAllSessions": slot, "Finalize": None}[end]))
    print("out", flush=True)
    os.read(0, 1)


if CHILD:
    child(*CHILD)
else:
    unittest.main(argv=sys.argv[:1], verbosity=1)
