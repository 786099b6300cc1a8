#!/usr/bin/env python3
"""Writes the two files of a table from a list of operations, independently of the library.

usage: golden.py BASE KEYLEN:PAGESIZE... < operations

Operations, one a line: "i KEY[,KEY...] BODY" inserts a record, "d RECNO" deletes one, "u RECNO BODY" rewrites one.
"""
import struct
import sys

MAGIC = 0x12344321
base = sys.argv[1]
descs = [tuple(map(int, d.split(":"))) for d in sys.argv[2:]]
data = bytearray(struct.pack("<qh", MAGIC, len(descs)) + b"".join(struct.pack("<hh", k, p) for k, p in descs))
data += bytes(56 - len(data))
end = 2048
insertions = 0


class Tree:
    def __init__(self, key_len, page_size):
        self.key_len, self.page_size = key_len, page_size
        n = (page_size - 32) // (key_len + 16)
        self.max = n - n % 2
        self.pages, self.root, self.first, self.last = {}, -1, -1, -1

    def new(self, leftmost):
        global end
        position, end = end, end + self.page_size
        self.pages[position] = {"next": -1, "prev": -1, "left": leftmost, "e": []}
        return position

    def insert(self, key, rec):
        up = self.place(self.root, (key, rec, -1)) if self.root != -1 else (key, rec, -1)
        if up:
            old, self.root = self.root, self.new(self.root)
            self.pages[self.root]["e"] = [up]
            if old == -1:
                self.first = self.last = self.root

    def place(self, position, entry):
        page = self.pages[position]
        p = sum(1 for e in page["e"] if e[0] < entry[0])
        if page["left"] != -1:
            entry = self.place(page["left"] if p == 0 else page["e"][p - 1][2], entry)
            if not entry:
                return None
            p = sum(1 for e in page["e"] if e[0] < entry[0])
        page["e"].insert(p, entry)
        if len(page["e"]) <= self.max:
            return None
        half = self.max // 2
        middle = page["e"][half]
        right_at = self.new(-1 if page["left"] == -1 else middle[2])
        right = self.pages[right_at]
        right["e"] = page["e"][half + 1:]
        if page["left"] == -1:
            page["e"] = page["e"][:half + 1]
            right["next"], right["prev"], page["next"] = page["next"], position, right_at
            if right["next"] == -1:
                self.last = right_at
            else:
                self.pages[right["next"]]["prev"] = right_at
        else:
            page["e"] = page["e"][:half]
        return (middle[0], middle[1], right_at)


trees = [Tree(*d) for d in descs]
for line in sys.stdin.buffer:
    op, target, *body = line.rstrip(b"\n").split(b" ")
    if op == b"i":
        rec, keys = len(data), [k.ljust(t.key_len, b"\0") for k, t in zip(target.split(b","), trees)]
        data += struct.pack("<qqqq", 0, MAGIC, len(body[0]), len(body[0])) + b"".join(keys) + body[0]
        for key, tree in zip(keys, trees):
            tree.insert(key, rec)
        insertions += 1
    elif op == b"d":
        data[int(target):int(target) + 8] = struct.pack("<q", 1)
    else:
        rec, at = int(target), int(target) + 32 + sum(t.key_len for t in trees)
        data[rec + 16:rec + 24] = struct.pack("<q", len(body[0]))
        data[at:at + len(body[0])] = body[0]

index = bytearray(end)
index[0:16] = struct.pack("<qq", len(trees), insertions)
for i, t in enumerate(trees):
    index[16 + 40 * i:56 + 40 * i] = struct.pack("<qqqqhhhh", MAGIC, t.root, t.first, t.last, t.page_size, t.key_len, t.max, 0)
    for position, page in t.pages.items():
        octets = struct.pack("<qqqq", len(page["e"]), page["next"], page["prev"], page["left"])
        octets += b"".join(struct.pack("<qq", r, c) for _, r, c in page["e"]) + b"".join(k for k, _, _ in page["e"])
        index[position:position + len(octets)] = octets
open(base + ".idx", "wb").write(index)
open(base + ".dta", "wb").write(data)
