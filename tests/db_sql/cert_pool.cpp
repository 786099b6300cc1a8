#include "cert_pool.h"

namespace crv::test {

namespace {

constexpr size_t kPoolSize = 240;

NameFields subjectOf(size_t i) {
    static const char* const names[] = {"Łukasz Źdźbło", "Jan Kowalski", "Żaneta Ćwik", "Kowalska  Anna"};
    static const int types[] = {kUtf8String, kBmpString, kUtf8String, kPrintableString};
    NameFields fields{{"C", "PL", kPrintableString}, {"O", "Firma", i % 2 == 0 ? kPrintableString : kUtf8String}};
    const std::string number = " " + std::to_string(i / 3);
    fields.push_back({"CN", names[i % 4] + number, types[i % 4]});
    if (i % 5 == 0) fields.push_back({"OU", "Dział " + std::to_string(i % 7)});
    if (i % 6 == 0) fields.push_back({"GN", "Jan", kT61String});
    if (i % 10 == 0) fields.push_back({"serialNumber", "PESEL:" + std::to_string(i)});
    if (i % 11 == 0) fields.push_back({"O", "Firma", kUtf8String});
    if (i % 12 == 0) fields.push_back({"description", "inny"});
    if (i % 8 == 0) fields.push_back({"emailAddress", "dn" + std::to_string(i) + "@firma.pl", kIa5String});
    return fields;
}

CertPlan specOf(size_t i) {
    CertPlan plan{.subject = subjectOf(i), .serial = std::to_string(1000 + i % (kPoolSize - 10)), .extensions = {}};
    if (i % 9 == 0) plan.extensions = caExtensions();
    if (i % 3 == 0) {
        std::string names = "email:san" + std::to_string(i) + "@firma.pl";
        if (i % 6 == 0) names += ",email:drugi" + std::to_string(i % 4) + "@firma.pl";
        plan.extensions.emplace_back("subjectAltName", names);
    }
    if (i % 4 == 1) plan.extensions.emplace_back("subjectKeyIdentifier", i % 8 == 1 ? "010203" : "01020300FF");
    if (i % 7 == 0) plan.notAfter = -3600;
    return plan;
}

}  // namespace

const std::vector<Bytes>& certPool() {
    static const std::vector<Bytes> pool = [] {
        const MadeCert root = makeCert({.subject = {{"CN", "Urząd"}}, .extensions = caExtensions()});
        const TestKey keys[] = {makeKey(), makeKey(), makeKey()};
        std::vector<Bytes> made;
        for (size_t i = 0; i < kPoolSize; ++i) made.push_back(makeCert(specOf(i), &root, keys[i % 3]).der);
        return made;
    }();
    return pool;
}

}  // namespace crv::test
