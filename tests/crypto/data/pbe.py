"""Independent PKCS#12 key derivation (RFC 7292 B.2) and PBKDF2; writes pbe.txt. Ciphertexts are made by the openssl program.

Proved by a published answer first: the vectors of RFC 7292's predecessor's test suite ("smeg", salt 0A58CF64530D823F).
Lines: pkcs12 hash id password salt iterations output | pbkdf2 ... | a scheme, password, salt, iterations, iv, ciphertext,
where every plaintext is "The quick brown fox"."""
import hashlib, os, subprocess

V = {"sha1": 64, "sha224": 64, "sha256": 64, "sha384": 128, "sha512": 128, "md5": 64, "sha3_256": 136}


def kdf(name, ident, password, salt, count, length):
    v, h = V[name], lambda x: hashlib.new(name, x).digest()
    spread = lambda x: (x * (v // len(x) + 1) if x else b"")[:v * -(-len(x) // v)] if len(x) <= v else \
        (x * 2)[:v * -(-len(x) // v)]
    i = bytearray(spread(salt) + spread(password))
    out = b""
    while len(out) < length:
        a = h(bytes([ident]) * v + bytes(i))
        for _ in range(count - 1):
            a = h(a)
        out += a
        b = int.from_bytes((a * (v // len(a) + 1))[:v], "big") + 1
        for j in range(0, len(i), v):
            i[j:j + v] = ((int.from_bytes(i[j:j + v], "big") + b) % (1 << 8 * v)).to_bytes(v, "big")
    return out[:length]


def bmp(text):
    return (text + "\0").encode("utf-16-be")


def enc(cipher, key, iv):
    legacy = ["-provider", "legacy", "-provider", "default"] if "rc2" in cipher else []
    return subprocess.run(["openssl", "enc", "-" + cipher, "-K", key.hex(), "-iv", iv.hex(), *legacy],
                          input=b"The quick brown fox", capture_output=True, check=True).stdout.hex()


def main():
    assert kdf("sha1", 1, bmp("smeg"), bytes.fromhex("0A58CF64530D823F"), 1, 24).hex() == \
        "8aaae6297b6cb04642ab5b077851284eb7128f1a2a7fbca3"
    salts = [bytes(range(8)), bytes(range(20)), bytes(range(100, 230))]
    for name in V:
        for ident in (1, 2, 3):
            for text, salt, count, length in (("hasło", salts[0], 1, 20), ("x" * 80, salts[1], 3, 70), ("", salts[2], 2, 8)):
                print("pkcs12", name, ident, text.encode().hex() or "-", salt.hex(), count,
                      kdf(name, ident, bmp(text), salt, count, length).hex())
    for name in V:
        if name != "md5" and not name.startswith("sha3_"):
            print("pbkdf2", name, 0, b"password".hex(), b"salt".hex(), 7, hashlib.pbkdf2_hmac(name, b"password", b"salt", 7, 40).hex())
    text, salt = "Zażółć 😀", bytes(range(8))
    derive = lambda ident, length: kdf("sha1", ident, bmp(text), salt, 2048, length)
    for scheme, cipher, length in (("sha1-3des", "des-ede3-cbc", 24), ("sha1-rc2-40", "rc2-40-cbc", 5)):
        print(scheme, text.encode().hex(), salt.hex(), 2048, "-", enc(cipher, derive(1, length), derive(2, 8)))
    for scheme, cipher, prf, length, block in (("aes-128", "aes-128-cbc", "sha1", 16, 16), ("aes-192", "aes-192-cbc", "sha256", 24, 16),
                                               ("aes-256", "aes-256-cbc", "sha512", 32, 16), ("3des", "des-ede3-cbc", "sha224", 24, 8)):
        iv = bytes(range(50, 50 + block))
        key = hashlib.pbkdf2_hmac(prf, text.encode(), salt, 1000, length)
        print("pbes2-" + scheme + "-" + prf, text.encode().hex(), salt.hex(), 1000, iv.hex(), enc(cipher, key, iv))


if __name__ == "__main__":
    main()
