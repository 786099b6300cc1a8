"""Servers that take their time. usage: stalls_test.py <crvctl> <source folder>"""
import socket
import threading
import time
import unittest

from network_case import NetworkCase


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


if __name__ == "__main__":
    import sys
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=1)
