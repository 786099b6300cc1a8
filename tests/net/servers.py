"""Servers on loopback for the tests of the network: real ones, and one that does what its script says."""
import http.server
import os
import pathlib
import shutil
import socket
import socketserver
import ssl
import subprocess
import tempfile
import threading
import time


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def wait_for(port, host="127.0.0.1"):
    for _ in range(200):
        try:
            socket.create_connection((host, port), 0.2).close()
            return
        except OSError:
            time.sleep(0.05)
    raise RuntimeError(f"nobody listens on {port}")


class Scripted:
    """HTTP: `routes` maps a path to a function of (handler, body), which writes the answer. Requests are listed."""

    def __init__(self, host="127.0.0.1", certificate=None):
        self.routes, self.seen = {}, []
        script = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def handle_one(self):
                length = int(self.headers.get("Content-Length", 0))
                body = self.rfile.read(length)
                script.seen.append((self.path, dict(self.headers), body))
                route = script.routes.get(self.path.split("?")[0])
                try:
                    route(self, body) if route else self.send_error(404)
                except OSError:
                    pass

            do_GET = do_POST = handle_one

            def log_message(self, *_):
                pass

            def give(self, octets, kind="application/octet-stream", status=200, **headers):
                self.send_response(status)
                self.send_header("Content-Type", kind)
                self.send_header("Content-Length", str(len(octets)))
                for name, value in headers.items():
                    self.send_header(name, value)
                self.end_headers()
                self.wfile.write(octets)

        class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
            daemon_threads = True
            request_queue_size = 64

            def server_bind(self):  # without the look-up of its own name
                socketserver.TCPServer.server_bind(self)
                self.server_name, self.server_port = self.server_address[:2]

        self.server = Server((host, 0), Handler)
        self.server.handle_error = lambda *_: None
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(*certificate)
            self.server.socket = context.wrap_socket(self.server.socket, server_side=True)
        self.port = self.server.server_address[1]
        threading.Thread(target=self.server.serve_forever, args=(0.05,), daemon=True).start()

    def paths(self):
        return [path for path, _, _ in self.seen]

    def close(self):
        self.server.shutdown()
        self.server.server_close()


def run_until_killed(case, words, port, **more):
    process = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **more)
    case.addClassCleanup(process.wait)
    case.addClassCleanup(process.kill)
    wait_for(port)
    return port


def ftp(case, folder):
    port = free_port()
    return run_until_killed(case, ["/usr/bin/python3", "-m", "pyftpdlib", "-i", "127.0.0.1", "-p", str(port), "-d", folder], port)


def proxy(case, log, login=""):
    port = free_port()
    config = log + ".conf"
    pathlib.Path(config).write_text(f'Port {port}\nListen 127.0.0.1\nTimeout 30\nLogLevel Info\nLogFile "{log}"\n'
                                    f'MaxClients 20\nAllow 127.0.0.1\nConnectPort 1\n{login}\n', "utf-8")
    return run_until_killed(case, ["tinyproxy", "-d", "-c", config], port)


def squid(case, login, password):
    """A proxy that wants a digest of its login; it may run as another user, so what it reads is open to all."""
    port, at = free_port(), pathlib.Path(tempfile.mkdtemp())
    case.addCleanup(shutil.rmtree, at)
    at.chmod(0o755)
    (at / "logins").write_text(f"{login}:{password}\n")
    (at / "squid.conf").write_text(
        f"http_port 127.0.0.1:{port}\nauth_param digest program /usr/lib/squid/digest_file_auth {at}/logins\n"
        "auth_param digest realm proxy\nauth_param digest children 1\nacl known proxy_auth REQUIRED\nhttp_access allow known\n"
        "http_access deny all\ncache deny all\naccess_log none\ncache_log /dev/null\npid_filename none\nshutdown_lifetime 0 seconds\n"
        f"coredump_dir {at}\n", "utf-8")
    return run_until_killed(type(case), ["/usr/sbin/squid", "-N", "-f", str(at / "squid.conf")], port)


def directory(case, folder, ldif, certificate):
    """slapd over an LDIF; answers the ports of ldap and ldaps."""
    plain, tls = free_port(), free_port()
    at = pathlib.Path(tempfile.mkdtemp(dir=folder))
    (at / "db").mkdir()
    (at / "all.ldif").write_text(ldif, "utf-8")
    schema = "".join(f"include /etc/ldap/schema/{name}.schema\n" for name in ("core", "cosine", "inetorgperson"))
    (at / "slapd.conf").write_text(
        f"{schema}modulepath /usr/lib/ldap\nmoduleload back_mdb\nTLSCertificateFile {certificate[0]}\n"
        f"TLSCertificateKeyFile {certificate[1]}\ndatabase mdb\nmaxsize 33554432\nsuffix \"\"\ndirectory {at}/db\n", "utf-8")
    subprocess.run(["/usr/sbin/slapadd", "-q", "-f", str(at / "slapd.conf"), "-l", str(at / "all.ldif")], check=True,
                   capture_output=True)
    urls = f"ldap://127.0.0.1:{plain}/ ldaps://127.0.0.1:{tls}/"
    run_until_killed(case, ["/usr/sbin/slapd", "-d", "0", "-f", str(at / "slapd.conf"), "-h", urls], plain)
    return plain, tls


def openssl(*words, **more):
    return subprocess.run(["openssl", *words], check=True, capture_output=True, **more).stdout


class Answers:
    """Answers of `openssl ocsp` and `openssl ts` for the octets of a request."""

    def __init__(self, folder):
        self.folder = folder

    def ocsp(self, index, authority, signer, key, words=("-ndays", "1")):
        def route(handler, body):
            with tempfile.TemporaryDirectory(dir=self.folder) as at:
                pathlib.Path(at, "q").write_bytes(body)
                openssl("ocsp", "-index", index, "-CA", authority, "-rsigner", signer, "-rkey", key, "-reqin", at + "/q",
                        "-respout", at + "/a", *words)
                handler.give(pathlib.Path(at, "a").read_bytes(), "application/ocsp-response")
        return route

    def stamp(self, config, change=lambda octets: octets):
        def route(handler, body):
            with tempfile.TemporaryDirectory(dir=self.folder) as at:
                pathlib.Path(at, "q").write_bytes(body)
                openssl("ts", "-reply", "-config", config, "-queryfile", at + "/q", "-out", at + "/a", cwd=self.folder)
                handler.give(change(pathlib.Path(at, "a").read_bytes()), "application/timestamp-reply")
        return route

    def stamp_by(self, config, signer, query, content, ess):
        """A stamp that another certificate signs, after changes to the query and to what is stamped."""
        def route(handler, body):
            with tempfile.TemporaryDirectory(dir=self.folder) as at:
                pathlib.Path(at, "q").write_bytes(query(body))
                openssl("ts", "-reply", "-config", config, "-queryfile", at + "/q", "-token_out", "-out", at + "/t", cwd=self.folder)
                info = openssl("cms", "-verify", "-noverify", "-binary", "-inform", "DER", "-in", at + "/t")
                token = openssl("cms", "-sign", "-binary", "-nodetach", "-nosmimecap", "-outform", "DER", "-md", "sha256", "-econtent_type",
                                "1.2.840.113549.1.9.16.1.4", "-signer", signer + ".pem", "-inkey", signer + ".key", *ess, input=content(info))
                answer = b"\x30\x03\x02\x01\x00" + token
                handler.give(b"\x30\x82" + len(answer).to_bytes(2, "big") + answer, "application/timestamp-reply")
        return route
