"""Key derivations (RFC 7292 B.2, PBKDF2) and encryption by the openssl program and Python's hashlib; writes pbe.txt.

Proved by a published answer first: the vectors of RFC 7292's predecessor's test suite ("smeg", salt 0A58CF64530D823F).
Lines: pkcs12 hash id password salt iterations output | pbkdf2 ... | a scheme, password, salt, iterations, iv,
ciphertext, where every plaintext is "The quick brown fox"."""
import hashlib, subprocess

def kdf(name, ident, text, salt, count, length):
    options = (f"digest:{name.replace('_', '-')}", f"hexpass:{(text + chr(0)).encode('utf-16-be').hex()}",
               f"hexsalt:{salt.hex()}", f"iter:{count}", f"id:{ident}")
    arguments = [word for option in options for word in ("-kdfopt", option)]
    return subprocess.run(["openssl", "kdf", "-binary", "-keylen", str(length), *arguments, "PKCS12KDF"],
                          capture_output=True, check=True).stdout


def row(scheme, text, salt, count, cipher, key, iv, shown):
    legacy = ["-provider", "legacy", "-provider", "default"] if "rc2" in cipher else []
    sealed = subprocess.run(["openssl", "enc", "-" + cipher, "-K", key.hex(), "-iv", iv.hex(), *legacy],
                            input=b"The quick brown fox", capture_output=True, check=True).stdout
    print(scheme, text.encode().hex(), salt.hex(), count, shown, sealed.hex())


published = "8aaae6297b6cb04642ab5b077851284eb7128f1a2a7fbca3"
assert kdf("sha1", 1, "smeg", bytes.fromhex("0A58CF64530D823F"), 1, 24).hex() == published
CASES = (("hasło", bytes(range(8)), 1, 20), ("x" * 80, bytes(range(20)), 3, 70), ("", bytes(range(100, 230)), 2, 8))
for name in ("sha1", "sha224", "sha256", "sha384", "sha512", "md5", "sha3_256"):
    for ident in (1, 2, 3):
        for text, salt, count, length in CASES:
            out = kdf(name, ident, text, salt, count, length)
            print("pkcs12", name, ident, text.encode().hex() or "-", salt.hex(), count, out.hex())
for name in ("sha1", "sha224", "sha256", "sha384", "sha512"):
    out = hashlib.pbkdf2_hmac(name, b"password", b"salt", 7, 40)
    print("pbkdf2", name, 0, b"password".hex(), b"salt".hex(), 7, out.hex())
text, salt = "Zażółć 😀", bytes(range(8))
for scheme, cipher, length in (("sha1-3des", "des-ede3-cbc", 24), ("sha1-rc2-40", "rc2-40-cbc", 5)):
    key, iv = (kdf("sha1", ident, text, salt, 2048, n) for ident, n in ((1, length), (2, 8)))
    row(scheme, text, salt, 2048, cipher, key, iv, "-")
for scheme, cipher, prf, length, block in (
        ("aes-128", "aes-128-cbc", "sha1", 16, 16), ("aes-192", "aes-192-cbc", "sha256", 24, 16),
        ("aes-256", "aes-256-cbc", "sha512", 32, 16), ("3des", "des-ede3-cbc", "sha224", 24, 8)):
    iv = bytes(range(50, 50 + block))
    key = hashlib.pbkdf2_hmac(prf, text.encode(), salt, 1000, length)
    row(f"pbes2-{scheme}-{prf}", text, salt, 1000, cipher, key, iv, iv.hex())
