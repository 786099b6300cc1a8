"""Key derivations (RFC 7292 B.2, PBKDF2) and encryption by the openssl program and Python's hashlib; writes pbe.txt.

Proved by a published answer first: the vectors of RFC 7292's predecessor's test suite ("smeg", salt 0A58CF64530D823F).
Lines: kind, hash, detail, password, salt, iterations, initial vector, and the derived octets or the ciphertext of "The
quick brown fox". The detail is a PKCS#12 purpose ("pkcs12"), scheme ("pbe"), or the number of a cipher ("pbes2")."""
import hashlib, subprocess

def kdf(name, ident, text, salt, count, length):
    options = (f"digest:{name.replace('_', '-')}", f"hexpass:{(text + chr(0)).encode('utf-16-be').hex()}",
               f"hexsalt:{salt.hex()}", f"iter:{count}", f"id:{ident}")
    arguments = [word for option in options for word in ("-kdfopt", option)]
    return subprocess.run(["openssl", "kdf", "-binary", "-keylen", str(length), *arguments, "PKCS12KDF"],
                          capture_output=True, check=True).stdout


def row(kind, selector, detail, text, salt, count, iv, out):
    print(kind, selector, detail, text.encode().hex() or "-", salt.hex(), count, iv.hex() or "-", out.hex())


def sealed(cipher, key, iv):
    legacy = ["-provider", "legacy", "-provider", "default"] if "rc2" in cipher else []
    return subprocess.run(["openssl", "enc", "-" + cipher, "-K", key.hex(), "-iv", iv.hex(), *legacy],
                          input=b"The quick brown fox", capture_output=True, check=True).stdout


HASHES = {"sha1": 1, "sha224": 2, "sha256": 3, "sha384": 4, "sha512": 5, "md5": 8, "sha3_256": 11}
CASES = (("hasło", bytes(range(8)), 1, 20), ("x" * 80, bytes(range(20)), 3, 70), ("", bytes(range(100, 230)), 2, 8))
published = "8aaae6297b6cb04642ab5b077851284eb7128f1a2a7fbca3"
assert kdf("sha1", 1, "smeg", bytes.fromhex("0A58CF64530D823F"), 1, 24).hex() == published
for name, number in HASHES.items():
    for ident in (1, 2, 3):
        for text, salt, count, length in CASES:
            row("pkcs12", number, ident, text, salt, count, b"", kdf(name, ident, text, salt, count, length))
for name in ("sha1", "sha224", "sha256", "sha384", "sha512"):
    row("pbkdf2", HASHES[name], 0, "password", b"salt", 7, b"", hashlib.pbkdf2_hmac(name, b"password", b"salt", 7, 40))
text, salt = "Zażółć 😀", bytes(range(8))
for number, cipher, length in ((4, "des-ede3-cbc", 24), (1, "rc2-40-cbc", 5)):
    key, iv = (kdf("sha1", ident, text, salt, 2048, n) for ident, n in ((1, length), (2, 8)))
    row("pbe", 1, number, text, salt, 2048, b"", sealed(cipher, key, iv))
for number, cipher, prf, length, block in ((4, "aes-128-cbc", "sha1", 16, 16), (5, "aes-192-cbc", "sha256", 24, 16),
                                           (6, "aes-256-cbc", "sha512", 32, 16), (0, "des-ede3-cbc", "sha224", 24, 8)):
    key, iv = hashlib.pbkdf2_hmac(prf, text.encode(), salt, 1000, length), bytes(range(50, 50 + block))
    row("pbes2", HASHES[prf], number, text, salt, 1000, iv, sealed(cipher, key, iv))
