"""Writes hostile_keys.txt: keys that must be refused. Lines: public or private, the failure, what is wrong, the encoding.

The first rows are good keys ("none"), so that the encoder here is known to be right."""
import subprocess


def tlv(tag, *parts):
    body = b"".join(parts)
    n = len(body)
    size = bytes([n]) if n < 128 else bytes([0x80 | (n.bit_length() + 7) // 8]) + n.to_bytes((n.bit_length() + 7) // 8, "big")
    return bytes([tag]) + size + body


def num(n):
    return tlv(2, n.to_bytes(n.bit_length() // 8 + 1, "big"))


def seq(*parts):
    return tlv(0x30, *parts)


RSA, PSS, DSA, EC = (tlv(6, bytes.fromhex(x)) for x in ("2a864886f70d010101", "2a864886f70d01010a", "2a8648ce380401", "2a8648ce3d0201"))
P256 = tlv(6, bytes.fromhex("2a8648ce3d030107"))
NULL = b"\5\0"


def spki(algorithm, key):
    return seq(seq(*algorithm), tlv(3, b"\0", key))


def pkcs8(algorithm, key):
    return seq(num(0), seq(*algorithm), tlv(4, key))


def numbers_of(kind, bits):
    text = subprocess.run(["openssl", "genpkey", *kind, "-text"] if "-paramfile" in kind else ["openssl", "genpkey", *kind, "-pkeyopt", bits, "-text"],
                          capture_output=True, text=True, check=True).stdout
    found, name = {}, None
    for line in text[text.index("Private-Key"):].splitlines():
        if line.startswith(" ") and name:
            found[name] += line.strip().replace(":", "")
        elif ":" in line:
            name, rest = line.split(":", 1)
            found[name] = "%x" % int(rest.split()[0]) if rest.split() and rest.split()[0].isdigit() else ""
    return {k: int(v, 16) for k, v in found.items() if v and all(c in "0123456789abcdef" for c in v)}


rows = []


def row(kind, failure, why, der):
    rows.append((kind, failure, why.replace(" ", "_"), der.hex()))


r = numbers_of(["-algorithm", "RSA"], "rsa_keygen_bits:1024")
n, e = r["modulus"], r["publicExponent"]
rsa = lambda modulus, exponent, parameters=NULL, oid=RSA: spki((oid, parameters), seq(num(modulus), num(exponent)))
row("public", "none", "RSA", rsa(n, e))
ones = lambda bits: (1 << bits) - 1
for why, der in (("even modulus", rsa(n & ~1, e)), ("tiny modulus", rsa(ones(511), e)), ("modulus 0", rsa(0, e)), ("huge modulus", rsa(ones(16385), e)),
                 ("exponent 0", rsa(n, 0)), ("exponent 1", rsa(n, 1)), ("even exponent", rsa(n, 4)), ("exponent above modulus", rsa(n, ones(1025))),
                 ("long exponent of a long modulus", rsa(ones(4096), ones(65))), ("parameters of another type", rsa(n, e, b"\4\0")),
                 ("NULL with contents", rsa(n, e, b"\5\1\0")), ("negative modulus", spki((RSA, NULL), seq(tlv(2, b"\x80" * 128), num(e)))),
                 ("three numbers", spki((RSA, NULL), seq(num(n), num(e), num(e)))), ("trailing octets", rsa(n, e) + b"\0"),
                 ("indefinite length", b"\x30\x80" + rsa(n, e)[4:] + b"\0\0"), ("unused bits", seq(seq(RSA, NULL), tlv(3, b"\1", seq(num(n), num(e)))))):
    row("public", "badKey", "RSA " + why, der)
row("public", "unsupported", "unknown algorithm", spki((tlv(6, bytes.fromhex("2b6570")),), bytes(32)))

fields = ["modulus", "publicExponent", "privateExponent", "prime1", "prime2", "exponent1", "exponent2", "coefficient"]
private = lambda values, version=0: pkcs8((RSA, NULL), seq(num(version), *map(num, values)))
values = [r[f] for f in fields]
row("private", "none", "RSA", private(values))
for i, name in enumerate(fields):
    row("private", "badKey", "RSA other " + name, private(values[:i] + [values[i] ^ 2] + values[i + 1:]))
row("private", "badKey", "RSA private exponent plus lambda beyond n", private(values[:2] + [values[2] + (values[3] - 1) * (values[4] - 1)] + values[3:]))
row("private", "badKey", "RSA prime 1", private([n, e, values[2], n, 1, *values[5:]]))
row("private", "unsupported", "RSA three primes", private(values, 1))

subprocess.run(["openssl", "genpkey", "-genparam", "-algorithm", "DSA", "-pkeyopt", "dsa_paramgen_bits:1024", "-pkeyopt",
                "dsa_paramgen_q_bits:160", "-out", "/tmp/dsa_domain.pem"], check=True, capture_output=True)
d = numbers_of(["-paramfile", "/tmp/dsa_domain.pem"], "")
p, q, g, x, y = (d[k] for k in ("P", "Q", "G", "priv", "pub"))
dsa = lambda p, q, g, y: spki((DSA, seq(num(p), num(q), num(g))), num(y))
row("public", "none", "DSA", dsa(p, q, g, y))
for why, der in (("y 0", dsa(p, q, g, 0)), ("y 1", dsa(p, q, g, 1)), ("y not below p", dsa(p, q, g, p)), ("g 1", dsa(p, q, 1, y)), ("other q", dsa(p, q ^ 2, g, y)),
                 ("even p", dsa(p & ~1, q, g, y)), ("short q", dsa(p, q >> 8 | 1, g, y)), ("huge p", dsa(ones(4097), q, g, y)), ("no domain", spki((DSA,), num(y)))):
    row("public", "badKey", "DSA " + why, der)
for why, secret in (("x 0", 0), ("x not below q", q)):
    row("private", "badKey", "DSA " + why, pkcs8((DSA, seq(num(p), num(q), num(g))), num(secret)))
row("private", "none", "DSA", pkcs8((DSA, seq(num(p), num(q), num(g))), num(x)))

gx = bytes.fromhex("6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296")
gy = bytes.fromhex("4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5")
order = 0xffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551
base = b"\4" + gx + gy
ec = lambda point, curve=P256: spki((EC, curve), point)
row("public", "none", "EC", ec(base))
row("public", "none", "EC compressed", ec(b"\3" + gx))
for why, der in (("off the curve", ec(base[:-1] + b"\0")), ("infinity", ec(b"\0")), ("no point", ec(b"")), ("short point", ec(base[:-1])), ("no curve", spki((EC,), base)),
                 ("curve of another type", ec(base, NULL))):
    row("public", "badKey", "EC " + why, der)
row("public", "unsupported", "EC curve of 112 bits", ec(base, tlv(6, bytes.fromhex("2b81040006"))))
key = lambda secret, *more: pkcs8((EC, P256), seq(num(1), tlv(4, secret.to_bytes(32, "big")), *more))
row("private", "none", "EC", key(1, tlv(0xA0, P256), tlv(0xA1, tlv(3, b"\0", base))))
row("private", "none", "EC without point", key(1))
for why, der in (("0", key(0)), ("order", key(order)), ("another's point", key(2, tlv(0xA1, tlv(3, b"\0", base)))),
                 ("another curve inside", key(1, tlv(0xA0, tlv(6, bytes.fromhex("2b8104000a")))))):
    row("private", "badKey", "EC " + why, der)

for fields in rows:
    print(*fields)
