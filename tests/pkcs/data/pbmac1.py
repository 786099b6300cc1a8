"""Gives a PKCS#12 file (first argument) an authentication code of RFC 9579 instead of its own, computed by hashlib."""
import hashlib, hmac, sys


def der(tag, *parts):
    body = b"".join(parts)
    size = len(body)
    count = (size.bit_length() + 7) // 8
    return bytes([tag]) + (bytes([size]) if size < 128 else bytes([0x80 + count]) + size.to_bytes(count, "big")) + body


def element(data):  # the first element: its contents and what follows
    size, start = data[1], 2
    if size > 127:
        start += size - 128
        size = int.from_bytes(data[2:start], "big")
    return data[start:start + size], data[start + size:]


def oid(text):
    return der(6, bytes.fromhex(text))


source, password, target = sys.argv[1:]
pfx, _ = element(open(source, "rb").read())
_, rest = element(pfx)
version = pfx[:len(pfx) - len(rest)]
info, mac = element(rest)
safe = rest[:len(rest) - len(mac)]
_, content = element(info)
covered, _ = element(element(content)[0])
salt, count = bytes(range(16)), 2048
prf, scheme = oid("2A864886F70D020B"), oid("2A864886F70D0209")  # hmacWithSHA512, hmacWithSHA256
parameters = der(0x30, der(4, salt), der(2, count.to_bytes(2, "big")), der(2, b"\x20"), der(0x30, prf, der(5)))
kdf = der(0x30, oid("2A864886F70D01050C"), parameters)
algorithm = der(0x30, oid("2A864886F70D01050E"), der(0x30, kdf, der(0x30, scheme, der(5))))
key = hashlib.pbkdf2_hmac("sha512", password.encode(), salt, count, 32)
code = hmac.new(key, covered, "sha256").digest()
mac = der(0x30, der(0x30, algorithm, der(4, code)), der(4, b"unused"), der(2, b"\x01"))
open(target, "wb").write(der(0x30, version, safe, mac))
