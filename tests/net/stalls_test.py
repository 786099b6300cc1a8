"""Servers that take their time. usage: stalls_test.py <crvctl> <source folder>"""
import pathlib
import socket
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

from network_case import NetworkCase
from servers import Scripted, openssl


class Stalls(NetworkCase):
    def test_an_octet_a_second_is_given_up_after_thirty(self):
        def drip(handler, _):
            handler.send_response(200)
            handler.end_headers()
            for octet in range(60):
                handler.wfile.write(bytes([octet]))
                time.sleep(1)

        silent = socket.socket()
        self.addCleanup(silent.close)
        silent.bind(("127.0.0.1", 0))
        silent.listen()
        kept = []
        threading.Thread(target=lambda: kept.append(silent.accept()), daemon=True).start()
        self.web.routes["/drip"] = drip
        for name, port, kind in (("DRIP", self.web.port, "http"), ("SILENT", silent.getsockname()[1], "ldap")):
            with self.subTest(name):
                self.add(name, port, kind, path="/drip")
                started = time.monotonic()
                self.assertEqual(self.verdict()[0], "ECRV_TCP_TIMEOUT")
                self.assertAlmostEqual(time.monotonic() - started, 30, delta=5)
                self.ctl("server", "remove", name, "--yes")

    def test_many_servers_are_asked_at_once_but_not_too_many(self):
        busy, most, lock, count, delay = 0, 0, threading.Lock(), 50, 1.0

        def slow(handler, _):
            nonlocal busy, most
            with lock:
                busy += 1
                most = max(most, busy)
            time.sleep(delay)
            with lock:
                busy -= 1
            handler.give(b"nothing")
        openssl("genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out", "k.key")
        made = lambda i: openssl("req", "-x509", "-key", "k.key", "-days", "9", "-out", f"a{i}.pem", "-subj", f"/CN=A{i}",
                                 "-addext", "keyUsage=critical,keyCertSign,cRLSign")
        with ThreadPoolExecutor(4) as pool:
            list(pool.map(made, range(count)))
        pathlib.Path("all.pem").write_text("".join(pathlib.Path(f"a{i}.pem").read_text() for i in range(count)))
        self.ctl("cert", "import", "all.pem")
        many = Scripted("0.0.0.0")
        self.addCleanup(many.close)
        many.routes["/crl"] = slow
        for i in range(count):
            self.add(f"S{i}", many.port, host=f"127.0.1.{i + 1}", ca=f"a{i}.pem")
        started = time.monotonic()
        self.assertEqual(len(self.refresh(8)), count)
        self.assertLess(time.monotonic() - started, count * delay / 4)
        self.assertEqual(most, 6)


if __name__ == "__main__":
    import sys
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=1)
