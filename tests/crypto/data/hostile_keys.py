"""Writes hostile_keys.txt: keys that must be refused. Lines: public or private, the failure, what is wrong, encoding.

The good keys among them ("none") show that the encoder here is right."""
import subprocess


def tlv(tag, *parts):
    body = b"".join(parts)
    size = len(body).to_bytes((len(body).bit_length() + 7) // 8, "big")
    return bytes([tag]) + (bytes([len(body)]) if len(body) < 128 else bytes([0x80 | len(size)]) + size) + body


def num(n):
    return tlv(2, n.to_bytes(n.bit_length() // 8 + 1, "big"))


def nums(*values):
    return tlv(0x30, *map(num, values))


def oid(octets):
    return tlv(6, bytes.fromhex(octets))


def spki(algorithm, key):
    return tlv(0x30, tlv(0x30, *algorithm), tlv(3, b"\0", key))


def pkcs8(algorithm, key):
    return tlv(0x30, num(0), tlv(0x30, *algorithm), tlv(4, key))


def genpkey(*arguments, domain=b""):
    return subprocess.run(["openssl", "genpkey", "-outform", "DER", *arguments], input=domain, capture_output=True,
                          check=True).stdout


def numbers_in(der):
    """The INTEGERs of an encoding, in order."""
    found = []
    while der:
        at = 2 + (der[1] & 0x7F if der[1] & 0x80 else 0)
        end = at + (int.from_bytes(der[2:at], "big") if at > 2 else der[1])
        if der[0] == 2:
            found.append(int.from_bytes(der[at:end], "big"))
        elif der[0] in (4, 0x30):
            found += numbers_in(der[at:end])
        der = der[end:]
    return found


def rows(kind, failure, algorithm, cases):
    for why, der in cases.items():
        print(kind, failure, f"{algorithm} {why}".strip().replace(" ", "_"), der.hex())


NULL, P256 = b"\5\0", oid("2a8648ce3d030107")
RSA, DSA, EC = oid("2a864886f70d010101"), oid("2a8648ce380401"), oid("2a8648ce3d0201")
ones = lambda bits: (1 << bits) - 1

values = numbers_in(genpkey("-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:1024"))[-8:]
n, e, d, p, q = values[:5]
rsa = lambda modulus, exponent, parameters=NULL: spki((RSA, parameters), nums(modulus, exponent))
rows("public", "none", "RSA", {"": rsa(n, e)})
rows("public", "badKey", "RSA", {
    "even modulus": rsa(n & ~1, e), "tiny modulus": rsa(ones(511), e), "modulus 0": rsa(0, e),
    "huge modulus": rsa(ones(16385), e), "exponent 0": rsa(n, 0), "exponent 1": rsa(n, 1), "even exponent": rsa(n, 4),
    "exponent above modulus": rsa(n, ones(1025)), "long exponent of a long modulus": rsa(ones(4096), ones(65)),
    "parameters of another type": rsa(n, e, b"\4\0"), "NULL with contents": rsa(n, e, b"\5\1\0"),
    "negative modulus": spki((RSA, NULL), tlv(0x30, tlv(2, b"\x80" * 128), num(e))),
    "three numbers": spki((RSA, NULL), nums(n, e, e)), "trailing octets": rsa(n, e) + b"\0",
    "indefinite length": b"\x30\x80" + rsa(n, e)[4:] + b"\0\0",
    "unused bits": tlv(0x30, tlv(0x30, RSA, NULL), tlv(3, b"\1", nums(n, e)))})
rows("public", "unsupported", "unknown algorithm", {"": spki((oid("2b6570"),), bytes(32))})
private = lambda numbers, version=0: pkcs8((RSA, NULL), nums(version, *numbers))
rows("private", "none", "RSA", {"": private(values)})
for i, name in enumerate(("modulus", "publicExponent", "privateExponent", "prime1", "prime2", "exponent1", "exponent2",
                          "coefficient")):
    rows("private", "badKey", "RSA other", {name: private([*values[:i], values[i] ^ 2, *values[i + 1:]])})
rows("private", "badKey", "RSA", {
    "private exponent plus lambda beyond n": private([n, e, d + (p - 1) * (q - 1), *values[3:]]),
    "prime 1": private([n, e, d, n, 1, *values[5:]])})
rows("private", "unsupported", "RSA", {"three primes": private(values, 1)})

domain = genpkey("-genparam", "-algorithm", "DSA", "-pkeyopt", "dsa_paramgen_bits:1024", "-pkeyopt",
                 "dsa_paramgen_q_bits:160")
_, p, q, g, *_, x = numbers_in(genpkey("-paramfile", "/dev/stdin", domain=domain))
y = pow(g, x, p)
dsa = lambda p, q, g, y: spki((DSA, nums(p, q, g)), num(y))
rows("public", "none", "DSA", {"": dsa(p, q, g, y)})
rows("public", "badKey", "DSA", {
    "y 0": dsa(p, q, g, 0), "y 1": dsa(p, q, g, 1), "y not below p": dsa(p, q, g, p), "g 1": dsa(p, q, 1, y),
    "other q": dsa(p, q ^ 2, g, y), "even p": dsa(p & ~1, q, g, y), "short q": dsa(p, q >> 8 | 1, g, y),
    "huge p": dsa(ones(4097), q, g, y), "no domain": spki((DSA,), num(y))})
secret = lambda x: pkcs8((DSA, nums(p, q, g)), num(x))
rows("private", "badKey", "DSA", {"x 0": secret(0), "x not below q": secret(q)})
rows("private", "none", "DSA", {"": secret(x)})

gx = bytes.fromhex("6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296")
base = b"\4" + gx + bytes.fromhex("4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5")
order = 0xffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551
ec = lambda point, curve=P256: spki((EC, curve), point)
rows("public", "none", "EC", {"": ec(base), "compressed": ec(b"\3" + gx)})
rows("public", "badKey", "EC", {
    "off the curve": ec(base[:-1] + b"\0"), "infinity": ec(b"\0"), "no point": ec(b""), "short point": ec(base[:-1]),
    "no curve": spki((EC,), base), "curve of another type": ec(base, NULL)})
rows("public", "unsupported", "EC", {"curve of 112 bits": ec(base, oid("2b81040006"))})
key = lambda x, *more: pkcs8((EC, P256), tlv(0x30, num(1), tlv(4, x.to_bytes(32, "big")), *more))
point = tlv(0xA1, tlv(3, b"\0", base))
rows("private", "none", "EC", {"": key(1, tlv(0xA0, P256), point), "without point": key(1)})
rows("private", "badKey", "EC", {"0": key(0), "order": key(order), "another's point": key(2, point),
                                 "another curve inside": key(1, tlv(0xA0, oid("2b8104000a")))})
