// Long revocation lists against libcrypto, over the same octets in the same run.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/x509.h>

#include <cstdlib>

#include "asn/known_oids.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "pki/crl_facts.h"

namespace {

using namespace crv;

constexpr long kEntries = 1'000'000;

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
        crl.tbs.nextUpdate.emplace().setSeconds(1'800'000'000);
        if (!crl.tbs.revokedCertificates.emplace().readExactly(entries.getMemory())) std::abort();
        return crl.encoded();
    }();
    return octets;
}

void readOurs(benchmark::State& state) {
    static_cast<void>(longList());  // made now, not in the first turn
    for (auto _ : state) {
        SignedCertRevList crl;
        if (!crl.readExactly(longList(), ASN_FLAG_CONST)) std::abort();
        benchmark::DoNotOptimize(crl.entryCount());
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(readOurs)->Unit(benchmark::kMillisecond);

void readLibcrypto(benchmark::State& state) {
    static_cast<void>(longList());
    for (auto _ : state) {
        const uint8_t* at = longList().data();
        X509_CRL* crl = d2i_X509_CRL(nullptr, &at, static_cast<long>(longList().size()));
        if (!crl) std::abort();
        X509_CRL_free(crl);
    }
    state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(readLibcrypto)->Unit(benchmark::kMillisecond);

size_t heapUsed() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// From octets to a list whose entries can be looked up; "times_size" is the memory held, in lengths of the list.
void indexOurs(benchmark::State& state) {
    const size_t before = heapUsed();
    for (auto _ : state) {
        const CrlFactsPtr crl = CrlFacts::make(longList());
        if (!crl || crl->fault) std::abort();
        state.counters["times_size"] =
            static_cast<double>(heapUsed() - before) / static_cast<double>(longList().size());
    }
}
BENCHMARK(indexOurs)->Unit(benchmark::kMillisecond);

FactsPtr certificateOf(long serial) {
    SignedCertificate certificate;
    certificate.tbs.serialNumber.setValue(serial);
    certificate.tbs.issuer = certificate.tbs.subject = *DistinguishedName::fromText("CN=CA, C=PL");
    certificate.tbs.signature = certificate.signatureAlgorithm = AlgorithmIdentifier(OID_SHA256_WITH_RSA, ASNnull());
    certificate.tbs.subjectPublicKeyInfo.algorithm = AlgorithmIdentifier(OID_RSA_ENC, ASNnull());
    certificate.tbs.validity.notBefore.setSeconds(1'700'000'000);
    certificate.tbs.validity.notAfter.setSeconds(1'800'000'000);
    const CertPtr made = makeCert(ByteView(certificate.encoded()));
    if (!made) std::abort();
    return factsOf(made);
}

/// A certificate on the list and one that is not.
void findOurs(benchmark::State& state) {
    const CrlFactsPtr crl = CrlFacts::make(longList());
    const FactsPtr on = certificateOf(0x1000000000L + kEntries / 2), off = certificateOf(5);
    if (!crl->find(*on) || crl->find(*off)) std::abort();
    for (auto _ : state) {
        benchmark::DoNotOptimize(crl->find(*on));
        benchmark::DoNotOptimize(crl->find(*off));
    }
}
BENCHMARK(findOurs);

/// From octets to the word on one certificate.
void askOurs(benchmark::State& state) {
    static_cast<void>(longList());
    const FactsPtr on = certificateOf(0x1000000000L + kEntries / 2);
    for (auto _ : state) {
        const CrlFactsPtr crl = CrlFacts::make(longList());
        if (!crl->find(*on)) std::abort();
    }
}
BENCHMARK(askOurs)->Unit(benchmark::kMillisecond);

void askLibcrypto(benchmark::State& state) {
    static_cast<void>(longList());
    ASN1_INTEGER* const on = ASN1_INTEGER_new();
    ASN1_INTEGER_set_int64(on, 0x1000000000L + kEntries / 2);
    for (auto _ : state) {
        const uint8_t* at = longList().data();
        X509_CRL* crl = d2i_X509_CRL(nullptr, &at, static_cast<long>(longList().size()));
        X509_REVOKED* found = nullptr;
        if (X509_CRL_get0_by_serial(crl, &found, on) != 1) std::abort();
        X509_CRL_free(crl);
    }
    ASN1_INTEGER_free(on);
}
BENCHMARK(askLibcrypto)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
