// A search for secrets in the memory of this process.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "crypto/private_key.h"
#include "crypto/random_bridge.h"
#include "misc/file_ops.h"
#include "misc/secret.h"

namespace crv::test {

inline constexpr uint8_t kMask = 0x5A;

/// A secret to look for, kept masked so that the search does not find itself.
struct Needle {
    std::string name;
    Bytes masked;

    Needle(std::string what, ByteView secret) : name(std::move(what)) {
        for (const uint8_t octet : secret) masked.push_back(octet ^ kMask);
    }
    [[nodiscard]] bool isIn(ByteView memory) const {
        return std::search(memory.begin(), memory.end(), masked.begin(), masked.end(),
                           [](uint8_t a, uint8_t b) { return (a ^ kMask) == b; }) != memory.end();
    }
};

/// The names of the needles that stand in writable memory of this process.
inline std::string found(const std::vector<Needle>& needles) {
    std::ifstream maps("/proc/self/maps");
    const FileDescriptor memory(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
    std::string names, line;
    while (std::getline(maps, line)) {
        unsigned long from = 0, to = 0;
        char rights[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, rights) != 3 || rights[1] != 'w') continue;
        Bytes region(to - from);
        (void)!::pread(memory.get(), region.data(), region.size(), static_cast<off_t>(from));
        for (const Needle& needle : needles)
            if (needle.isIn(region)) names += needle.name + " in " + line.substr(line.find_last_of(' ') + 1) + "; ";
        wipeMemory(region.data(), region.size());
    }
    return names;
}

/// A password that stands nowhere in the program.
inline SecretText freshPassword() {
    SecretArray<16> text;
    (void)systemRandom(text);
    for (uint8_t& octet : text) octet = static_cast<uint8_t>('A' + octet % 26);
    return SecretText(asText(text));
}

/// Parts of the numbers d and p, as they are encoded and as libcrypto keeps them.
inline void noteKey(std::vector<Needle>& needles, const std::string& name, const PrivateKey& key) {
    const SecretBytes der = key.toPkcs8();
    for (const size_t at : {size_t{400}, size_t{700}}) {
        SecretBytes part(der.begin() + static_cast<long>(at), der.begin() + static_cast<long>(at + 24));
        needles.emplace_back(name + " key's octets at " + std::to_string(at), part);
        std::ranges::reverse(part);
        needles.emplace_back(name + " key's numbers at " + std::to_string(at), part);
    }
}

inline void notePassword(std::vector<Needle>& needles, const SecretText& password) {
    needles.emplace_back("password", password.bytes());
    SecretBytes wide;
    for (const char c : password.view()) wide.insert(wide.end(), {0, static_cast<uint8_t>(c)});
    needles.emplace_back("UTF-16 password", wide);
}

}  // namespace crv::test
