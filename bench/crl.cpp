// Long revocation lists against libcrypto, over the same octets in the same run.
#include <benchmark/benchmark.h>
#include <openssl/x509.h>

#include <cstdlib>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"

namespace {

using namespace crv;

constexpr long kEntries = 100'000;

RevokedCertificate entryOf(long number) {
    RevokedCertificate entry;
    entry.userCertificate.setValue(0x1000000000L + number);
    entry.revocationDate.build(Time(1'700'000'000 + number));
    Extensions extensions;
    extensions.set(OID_CE_CRL_REASON, ASNenum(1));
    if (number % 2 == 0) entry.crlEntryExtensions.emplace().build(extensions);
    return entry;
}

/// A list whose signature is empty: nothing here checks it.
const Bytes& longList() {
    static const Bytes octets = [] {
        Bytes body;
        for (long i = 0; i < kEntries; ++i) {
            const Bytes entry = entryOf(i).encoded();
            body.insert(body.end(), entry.begin(), entry.end());
        }
        ASNany entries;
        entries.build(RevokedCertificates::kTag, body);
        SignedCertRevList crl;
        crl.tbs.version.emplace(1);
        crl.tbs.signature = crl.signatureAlgorithm = AlgorithmIdentifier(OID_SHA256_WITH_RSA, ASNnull());
        crl.tbs.issuer = *DistinguishedName::fromText("CN=CA, C=PL");
        crl.tbs.thisUpdate.setSeconds(1'700'000'000);
        if (!crl.tbs.revokedCertificates.emplace().readExactly(entries.getMemory())) std::abort();
        return crl.encoded();
    }();
    return octets;
}

void readOurs(benchmark::State& state) {
    for (auto _ : state) {
        SignedCertRevList crl;
        if (!crl.readExactly(longList(), ASN_FLAG_CONST)) std::abort();
        benchmark::DoNotOptimize(crl.entryCount());
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(readOurs)->Unit(benchmark::kMillisecond);

void readLibcrypto(benchmark::State& state) {
    for (auto _ : state) {
        const uint8_t* at = longList().data();
        X509_CRL* crl = d2i_X509_CRL(nullptr, &at, static_cast<long>(longList().size()));
        if (!crl) std::abort();
        X509_CRL_free(crl);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(readLibcrypto)->Unit(benchmark::kMillisecond);

/// One certificate that is not on the list: a walk over all of it.
void findOurs(benchmark::State& state) {
    SignedCertRevList crl;
    if (!crl.readExactly(longList(), ASN_FLAG_CONST)) std::abort();
    const ASNinteger serial(5);
    for (auto _ : state) benchmark::DoNotOptimize(crl.find(serial, crl.issuer()).has_value());
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(findOurs)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
