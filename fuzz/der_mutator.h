// Mutations that keep the structure of DER: elements are taken out, doubled, swapped, carried elsewhere or changed
// inside, and the lengths around them stay right, so that what is mutated gets beyond the reader's first look.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "misc/bytes.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace crv::fuzz {

/// An element with its parts or its contents.
struct DerNode {
    uint8_t tag = 0;
    std::vector<DerNode> parts;
    Bytes contents;

    /// Takes one element off the octets; false when they are none. OCTET STRINGs and BIT STRINGs around DER are opened.
    static bool take(ByteView& octets, DerNode& node, int depth = 0) {
        if (octets.size() < 2 || (octets[0] & 0x1F) == 0x1F || depth > 20) return false;
        size_t length = octets[1], head = 2;
        if (length > 0x80) {
            const size_t count = length - 0x80;
            if (count > 4 || octets.size() < 2 + count) return false;
            length = 0;
            for (; head < 2 + count; ++head) length = length << 8 | octets[head];
        } else if (length == 0x80) {
            return false;
        }
        if (octets.size() - head < length) return false;
        node.tag = octets[0];
        const ByteView inside = octets.subspan(head, length);
        octets = octets.subspan(head + length);
        ByteView rest = inside;
        if ((node.tag & 0x20) != 0 || node.tag == 0x04) {
            while (!rest.empty() && take(rest, node.parts.emplace_back(), depth + 1)) {
            }
        }
        if (!rest.empty() || node.parts.empty()) {
            node.parts.clear();
            node.contents.assign(inside.begin(), inside.end());
        }
        return true;
    }

    void put(Bytes& out) const {
        Bytes inside = contents;
        for (const DerNode& part : parts) part.put(inside);
        out.push_back(tag);
        size_t octets = 0;
        for (size_t left = inside.size(); left != 0; left >>= 8) ++octets;
        if (inside.size() >= 0x80) out.push_back(static_cast<uint8_t>(0x80 + octets));
        for (size_t i = inside.size() < 0x80 ? 1 : octets; i-- > 0;)
            out.push_back(static_cast<uint8_t>(inside.size() >> 8 * i));
        out.insert(out.end(), inside.begin(), inside.end());
    }

    void collect(std::vector<DerNode*>& all) {
        all.push_back(this);
        for (DerNode& part : parts) part.collect(all);
    }
};

/// One change somewhere in the tree.
inline void changeOne(DerNode& root, std::mt19937& random) {
    std::vector<DerNode*> all;
    root.collect(all);
    const auto any = [&]() -> DerNode& { return *all[random() % all.size()]; };
    DerNode& node = any();
    const size_t part = node.parts.empty() ? 0 : random() % node.parts.size();
    const auto at = node.parts.begin() + static_cast<std::ptrdiff_t>(part);
    switch (random() % 8) {
        case 0:
            if (!node.parts.empty()) node.parts.erase(at);
            break;
        case 1:
            if (!node.parts.empty()) node.parts.insert(at, DerNode(*at));
            break;
        case 2:
            if (!node.parts.empty()) std::swap(*at, node.parts[random() % node.parts.size()]);
            break;
        case 3: {
            const DerNode other = any();  // a copy: it may hold the node
            node = other;
            break;
        }
        case 4:
            node.tag = random() % 2 == 0 ? any().tag : static_cast<uint8_t>(random());
            break;
        default: {
            DerNode* leaf = &node;
            while (!leaf->parts.empty()) leaf = &leaf->parts[random() % leaf->parts.size()];
            const size_t size = leaf->contents.size();
            leaf->contents.resize(size + 16);
            leaf->contents.resize(LLVMFuzzerMutate(leaf->contents.data(), size, leaf->contents.size()));
        }
    }
}

/// For LLVMFuzzerCustomMutator: one in four mutations is of octets, as ever.
inline size_t mutateDer(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    std::mt19937 random(seed);
    ByteView octets(data, size);
    DerNode root;
    if (random() % 4 == 0 || !DerNode::take(octets, root)) return LLVMFuzzerMutate(data, size, maxSize);
    for (auto i = random() % 3 + 1; i-- > 0;) changeOne(root, random);
    Bytes out;
    root.put(out);
    if (out.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, out.data(), out.size());
    return out.size();
}

}  // namespace crv::fuzz

/// Makes the target mutate by structure.
#define CRV_MUTATE_DER                                                                                     \
    extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) { \
        return crv::fuzz::mutateDer(data, size, maxSize, seed);                                            \
    }
