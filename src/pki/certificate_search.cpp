#include "pki/certificate_search.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>

#include "asn/x509/signed_certificate.h"
#include "misc/ascii.h"
#include "misc/hex.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr size_t kPageSize = 200;
constexpr std::chrono::milliseconds kProgressStep{100};
constexpr int64_t kSecondsOfDay = 86400;

/// Lower case of ASCII, Latin-1 and Latin Extended-A, which alternates capital and small letters.
char32_t foldLatin(char32_t c) {
    if ((c >= U'A' && c <= U'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7)) return c + 0x20;
    if (c == 0x178) return 0xFF;
    const bool capitalOdd = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (c >= 0x100 && c <= 0x17F && c != 0x138 && c != 0x17F && (c % 2 == 1) == capitalOdd) return c + 1;
    return c;
}

std::string folded(std::string_view text) {
    std::string out;
    while (!text.empty()) appendUtf8(out, foldLatin(takeUtf8(text)));
    return out;
}

/// `part` is folded.
bool nameHas(const DistinguishedName& name, const std::string& part) {
    for (const RelativeDistinguishedName& set : name) {
        for (const AttributeTypeAndValue& attribute : set) {
            if (folded(attribute.valueUtf8()).find(part) != std::string::npos) return true;
        }
    }
    return false;
}

bool serialIs(const ASNinteger& serial, std::string_view text) {
    const auto plain = [](std::string_view digits) {
        std::string out;
        std::ranges::copy_if(digits, std::back_inserter(out), [](char c) { return c != ' ' && c != ':'; });
        return out.substr(std::min(out.find_first_not_of('0'), out.size()));
    };
    return equalIgnoreCase(plain(text), plain(toHex(serial.magnitude()))) || plain(text) == plain(serial.decimal());
}

/// Shared by the worker and the one who waits.
struct Runner {
    DbManager& database;
    const CertificateQuery& query;
    std::vector<int64_t>& ids;
    std::atomic<size_t> found = 0;
    std::atomic<size_t> looked = 0;
    std::atomic<bool> stop = false;
    bool failed = false;

    void look(const CrtItem& item) {
        SignedCertificate certificate;
        if (certificate.readExactly(item.der, ASN_FLAG_CONST) && query.matches(certificate)) {
            ids.push_back(item.id);
            ++found;
        }
        ++looked;
    }
    void run() {
        int64_t last = 0;
        for (CrtItemList page; !stop; page.clear()) {
            if (!database.readForward(last, kPageSize, page)) {
                failed = true;
                return;
            }
            if (page.empty()) return;
            for (const CrtItem& item : page) look(item);
            last = page.back().id;
        }
    }
};

}  // namespace

bool containsFolded(std::string_view text, std::string_view part) {
    return folded(text).find(folded(part)) != std::string::npos;
}

bool CertificateQuery::matches(const SignedCertificate& certificate) const {
    if (!serial.empty() && !serialIs(certificate.serialNumber(), serial)) return false;
    if (expiresWithinDays) {
        const std::optional<int64_t> end = certificate.tbs.validity.notAfter.seconds();
        if (!end || *end < time || *end >= time + *expiresWithinDays * kSecondsOfDay) return false;
    }
    if (!subject.empty() && !nameHas(certificate.subject(), folded(subject))) return false;
    if (!issuer.empty() && !nameHas(certificate.issuer(), folded(issuer))) return false;
    return email.empty() || std::ranges::any_of(certificate.emails(),
                                                [this](const std::string& one) { return containsFolded(one, email); });
}

SearchEnd searchCertificates(DbManager& database, const CertificateQuery& query, const SearchProgress& progress,
                             std::vector<int64_t>& ids) {
    Runner runner{.database = database, .query = query, .ids = ids};
    auto work = std::async(std::launch::async, [&] { runner.run(); });
    try {
        do {
            if (progress && !progress(runner.found, runner.looked)) runner.stop = true;
            if (runner.stop) work.wait();
        } while (work.wait_for(kProgressStep) != std::future_status::ready);
    } catch (...) {
        runner.stop = true;  // the future waits for the end
        throw;
    }
    work.get();
    if (runner.failed) return SearchEnd::Failed;
    return runner.stop ? SearchEnd::Stopped : SearchEnd::Done;
}

}  // namespace crv
