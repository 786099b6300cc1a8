"""Reads a security file with nothing but hashlib and the openssl tool, and prints what its secret bags hold.

usage: security_file.py FILE PASSWORD
Checks the MAC (RFC 7292 4), deciphers every secret bag, and prints a line for each field of the configuration record:
"field <identifier> <value in hexadecimal>", for each policy "policy <identifier> <note in hexadecimal>", for each
trusted certificate "trusted <SHA-1>", and "seed <octets>"; key and certificate bags as "key" and "certificate".
"""
import hashlib
import hmac
import subprocess
import sys

ARC = "1.3.6.1.4.1.32473.2."
POLICIES, TRUSTED = ARC + "5.1", ARC + "5.8"


def elements(data):
    """The elements of a DER encoding as (tag, contents)."""
    at, found = 0, []
    while at < len(data):
        tag, length = data[at], data[at + 1]
        at += 2
        if length & 0x80:
            count = length & 0x7F
            length = int.from_bytes(data[at:at + count], "big")
            at += count
        if at + length > len(data):
            sys.exit("cut off")
        found.append((tag, data[at:at + length]))
        at += length
    return found


def oid(contents):
    numbers, value = [], 0
    for octet in contents:
        value = value << 7 | octet & 0x7F
        if not octet & 0x80:
            numbers.append(value)
            value = 0
    first = min(numbers[0] // 40, 2)
    return ".".join(map(str, [first, numbers[0] - 40 * first] + numbers[1:]))


def kdf(password, salt, count, purpose, size):
    """RFC 7292 B.2 with SHA-1."""
    fill = lambda text: (text * 64)[:64 * -(-len(text) // 64)] if text else b""
    block, result = fill(salt) + fill(password), b""
    while len(result) < size:
        digest = bytes([purpose]) * 64 + block
        for _ in range(count):
            digest = hashlib.sha1(digest).digest()
        result += digest
        add = int.from_bytes((digest * 4)[:64], "big") + 1
        block = b"".join(((int.from_bytes(block[i:i + 64], "big") + add) % (1 << 512)).to_bytes(64, "big")
                         for i in range(0, len(block), 64))
    return result[:size]


def decipher(password, algorithm, octets):
    scheme, parameters = elements(algorithm)
    if oid(scheme[1]) != "1.2.840.113549.1.12.1.3":
        sys.exit("not enciphered by SHA-1 and three-key triple DES")
    salt, count = elements(parameters[1])
    count = int.from_bytes(count[1], "big")
    key, iv = kdf(password, salt[1], count, 1, 24), kdf(password, salt[1], count, 2, 8)
    return subprocess.run(["openssl", "enc", "-d", "-des-ede3-cbc", "-K", key.hex(), "-iv", iv.hex()], input=octets,
                          capture_output=True, check=True).stdout


def show_record(record):
    for _, field in elements(record):
        (_, identifier), (tag, value) = elements(field)
        name = oid(identifier)
        print("field", name, value.hex())
        for _, inner in elements(value) if name in (POLICIES, TRUSTED) else []:
            if name == POLICIES:
                policy, note = elements(inner)
                print("policy", oid(policy[1]), note[1].hex())
            else:
                whole = b"\x30\x82" + len(inner).to_bytes(2, "big") + inner
                print("trusted", hashlib.sha1(whole).hexdigest())


def show_secret(password, bag):
    (_, content), = elements(bag)
    _, (_, info) = elements(content)
    _, (_, algorithm), (_, octets) = elements(info)
    (_, secret), = elements(decipher(password, algorithm, octets))
    (_, kind), (_, value) = elements(secret)
    (tag, value), = elements(value)
    if oid(kind) == ARC + "6.1":
        show_record(value)
    else:
        print("seed", len(value))


def main():
    with open(sys.argv[1], "rb") as file:
        (_, pfx), = elements(file.read())
    password = (sys.argv[2] + "\0").encode("utf-16-be")
    _, (_, safe), (_, mac) = elements(pfx)
    (_, content), = elements(elements(safe)[1][1])
    (_, digest_info), (_, salt), *count = elements(mac)
    count = int.from_bytes(count[0][1], "big") if count else 1
    key = kdf(password, salt, count, 3, 20)
    if hmac.new(key, content, "sha1").digest() != elements(digest_info)[1][1]:
        sys.exit("wrong password")
    for _, info in elements(elements(content)[0][1]):
        kind, (_, value) = elements(info)
        if oid(kind[1]) != "1.2.840.113549.1.7.1":
            _, (_, encrypted) = elements(elements(value)[0][1])
            _, (_, algorithm), (_, octets) = elements(encrypted)
            bags = decipher(password, algorithm, octets)
        else:
            bags = elements(value)[0][1]
        for _, bag in elements(elements(bags)[0][1]):
            kind, (_, value), *_ = elements(bag)
            number = oid(kind[1]).rsplit(".", 1)[1]
            if number == "5":
                show_secret(password, value)
            else:
                print({"1": "key", "2": "key", "3": "certificate"}.get(number, "bag " + number))


main()
