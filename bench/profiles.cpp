// Lists of 10,000 profiles, and the calls that programs make all the time.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>

#include "context/crvctx.h"
#include "corvane/crvapi.h"
#include "crypto/self_test.h"
#include "misc/whole_file.h"
#include "profiles/crv_profile.h"

namespace crv {
namespace {

/// A list of 10,000 token profiles, 24 lines each.
const std::string& bigList() {
    static const std::string path = [] {
        auto profile = CrvProfile::create(CRVPROFILE_TYPE_PKCS11);
        profile->setAttr(CRVPROFILE_ATTR_DB_TYPE, "corvane");
        profile->setAttr(CRVPROFILE_ATTR_DB, "/home/jan/corvane/db/");
        profile->setAttr(CRVPROFILE_ATTR_READER_NAME, "Czytnik 1");
        profile->setAttr(CRVPROFILE_ATTR_PKCS11_LIBRARY, "/usr/lib/pkcs11/libtoken.so");
        profile->setAttr(CRVPROFILE_ATTR_SKEY_TOK, "Token");
        profile->setAttr(CRVPROFILE_ATTR_NAME, "P");
        const std::string one = "/tmp/crv_bench_list_" + std::to_string(getpid());
        profile->saveProfile(ProfileMedia::File, one);
        const std::string lines(asText(readFile(one)));
        std::string all;
        for (int i = 10000; i < 20000; ++i) {
            for (size_t at = 0, end; (end = lines.find('\n', at)) != std::string::npos; at = end + 1)
                all.append("\\P").append(std::to_string(i)).append(lines, at + 2, end - at - 1);
        }
        writeFile(one, asBytes(all));
        return one;
    }();
    return path;
}

void listNames(benchmark::State& state) {
    bigList();
    for (auto _ : state) {
        long count = 0;
        std::string name;
        auto all = CrvProfile::getProfileIterator(ProfileMedia::File, bigList());
        while (CrvProfile::getNextProfileName(*all, name)) ++count;
        if (count != 10000) state.SkipWithError("wrong count");
    }
}
BENCHMARK(listNames)->Unit(benchmark::kMillisecond);

void openOne(benchmark::State& state) {
    bigList();
    for (auto _ : state) {
        if (!CrvProfile::getProfileByName(ProfileMedia::File, bigList(), "P15000")) state.SkipWithError("not found");
    }
}
BENCHMARK(openOne)->Unit(benchmark::kMillisecond);

void saveOne(benchmark::State& state) {
    auto profile = CrvProfile::getProfileByName(ProfileMedia::File, bigList(), "P15000");
    for (auto _ : state) profile->saveProfile(ProfileMedia::File, bigList());
    std::filesystem::remove(bigList());
}
BENCHMARK(saveOne)->Unit(benchmark::kMillisecond)->Iterations(10);

/// The first context of a process: self-tests and all.
void createContext(benchmark::State& state) {
    for (auto _ : state) {
        runSelfTests();
        CRVctx ctx;
    }
}
BENCHMARK(createContext)->Unit(benchmark::kMillisecond);

void getOption(benchmark::State& state) {
    CRVctx ctx;
    long value = 0;
    for (long id = 2; id < 48; ++id) crvSetOptionAPI(&ctx, id, 1);
    for (auto _ : state) benchmark::DoNotOptimize(crvGetOptionAPI(&ctx, 47, &value));
}
BENCHMARK(getOption);

void errorText(benchmark::State& state) {
    CRVctx ctx;
    for (auto _ : state) benchmark::DoNotOptimize(crvErrorTextAPI(&ctx, 201));
}
BENCHMARK(errorText);

}  // namespace
}  // namespace crv

BENCHMARK_MAIN();
