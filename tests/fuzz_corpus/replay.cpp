// usage: test_fuzz_corpus <folder of corpora>: each file goes through its target again.
// One that finds something aborts, and the name of the file stands above.
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "support/temp_dir.h"

extern "C" {
#define X(name) int replay_##name(const uint8_t* data, size_t size);
#include "targets.inc"
#undef X
/// Only the mutators call it, which nobody calls here.
size_t LLVMFuzzerMutate(uint8_t*, size_t size, size_t) {
    return size;
}
}

namespace {

struct Target {
    const char* name;
    int (*run)(const uint8_t* data, size_t size);
};
constexpr Target kTargets[] = {
#define X(name) {#name, replay_##name},
#include "targets.inc"
#undef X
};

}  // namespace

int main(int, char** argv) {
    int total = 0;
    for (const Target& target : kTargets) {
        const std::filesystem::path folder = std::filesystem::path(argv[1]) / target.name;
        if (!std::filesystem::exists(folder)) continue;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::printf("%s\n", entry.path().c_str());
            std::fflush(stdout);
            const std::string octets = crv::test::readFile(entry.path());
            static_cast<void>(target.run(reinterpret_cast<const uint8_t*>(octets.data()), octets.size()));
            ++total;
        }
    }
    return total == 0;
}
