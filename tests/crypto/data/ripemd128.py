"""RIPEMD-128 after the publication's pseudo-code: prints the chained digest of the padding test."""
import hashlib, struct

RHO = [7, 4, 13, 1, 10, 6, 15, 3, 12, 0, 9, 5, 2, 14, 11, 8]
S = [[11, 14, 15, 12, 5, 8, 7, 9, 11, 13, 14, 15, 6, 7, 9, 8],  # shift of each message word in each round
     [12, 13, 11, 15, 6, 9, 9, 7, 12, 15, 11, 13, 7, 8, 7, 7],
     [13, 15, 14, 11, 7, 7, 6, 8, 13, 14, 13, 12, 5, 5, 6, 9],
     [14, 11, 12, 14, 8, 6, 5, 5, 15, 12, 15, 14, 9, 9, 8, 6]]
F = [lambda x, y, z: x ^ y ^ z, lambda x, y, z: (x & y) | (~x & z), lambda x, y, z: (x | ~y) ^ z,
     lambda x, y, z: (x & z) | (y & ~z)]
LEFT = (range(16), F, [0, 0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC])
RIGHT = ([(9 * i + 5) % 16 for i in range(16)], F[::-1], [0x50A28BE6, 0x5C4DD124, 0x6D703EF3, 0])
M = 0xFFFFFFFF


def line(h, x, order, funcs, consts):
    a, b, c, d = h
    for shifts, func, const in zip(S, funcs, consts):
        for w in order:
            t = (a + (func(b, c, d) & M) + x[w] + const) & M
            a, d, c, b = d, c, b, ((t << shifts[w]) | (t >> (32 - shifts[w]))) & M
        order = [RHO[w] for w in order]
    return a, b, c, d


def ripemd128(m):
    h = (0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476)
    p = m + b"\x80" + b"\0" * ((55 - len(m)) % 64) + struct.pack("<Q", 8 * len(m))
    for x in struct.iter_unpack("<16I", p):
        (a, b, c, d), (e, f, g, k) = line(h, x, *LEFT), line(h, x, *RIGHT)
        h = tuple(v & M for v in (h[1] + c + k, h[2] + d + e, h[3] + a + f, h[0] + b + g))
    return struct.pack("<4I", *h)


assert ripemd128(b"abc").hex() == "c14a12199c66e4ba84636b0f69144c77"
print(hashlib.sha1(b"".join(ripemd128(b"a" * n) for n in range(201))).hexdigest())
