#include "pki/crl_facts.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <random>
#include <utility>

#include "asn/known_oids.h"
#include "asn/tlv_view.h"
#include "asn/x509/ext_key.h"
#include "corvane/crverrors.h"

namespace crv {

namespace {

PathFault badCrl(const char* clause, const char* text) {
    return {ECRV_INV_CRL_FMT, clause, text};
}

bool is(ByteView oid, const KnownOid& known) {
    return std::ranges::equal(oid, known.octets());
}

/// One extension of an entry, as views.
struct EntryExtension {
    ByteView oid, value;
    bool critical = false;
};

std::optional<EntryExtension> takeEntryExtension(ByteView& extensions) {
    const auto whole = takeTlv(extensions, Extension::kTag);
    if (!whole) return std::nullopt;
    ByteView body = whole->body;
    const auto oid = takeTlv(body, ASNobjectId::kTag);
    if (!oid) return std::nullopt;
    EntryExtension out{oid->body, {}};
    if (const auto critical = takeTlv(body, ASNbool::kTag)) {
        if (critical->body.size() != 1) return std::nullopt;
        out.critical = critical->body[0] != 0;
    }
    const auto value = takeTlv(body, ASNoctstr::kTag);
    if (!value || !body.empty()) return std::nullopt;
    out.value = value->body;
    return out;
}

/// Serial numbers are compared as numbers: certificates are read with more octets than DER would spend on one.
ByteView shortest(ByteView serial) {
    while (serial.size() > 1 && serial[0] == ((serial[1] & 0x80U) != 0 ? 0xFF : 0)) serial = serial.subspan(1);
    return serial;
}

CrlReason reasonOf(ByteView extensions) {
    const auto all = takeTlv(extensions);
    ByteView rest = all ? all->body : ByteView();
    while (const auto extension = takeEntryExtension(rest)) {
        ASNenum reason;
        if (!is(extension->oid, OID_CE_CRL_REASON) || !reason.readExactly(extension->value)) continue;
        const long number = reason.valueOr(0);
        return std::in_range<int>(number) ? static_cast<CrlReason>(number) : CrlReason::Unspecified;
    }
    return CrlReason::Unspecified;
}

int64_t momentOf(ByteView date) {
    Time time;
    return time.readExactly(date, ASN_FLAG_CONST) ? time.seconds().value_or(0) : 0;
}

constexpr const KnownOid* kEntryExtensions[] = {&OID_CE_CRL_REASON, &OID_CE_INVALIDITY_DATE, &OID_CE_CERTIFICATE_ISSUER,
                                                &OID_CE_HOLD_INSTRUCTION};

constexpr const KnownOid* kListExtensions[] = {
    &OID_CE_CRL_NUMBER,       &OID_CE_DELTA_CRL_INDICATOR, &OID_CE_ISSUING_DISTRIBUTION_POINT,
    &OID_CE_AUTHORITY_KEY_ID, &OID_CE_ISSUER_ALT_NAME,     &OID_CE_FRESHEST_CRL,
};

constexpr uint64_t mixed(uint64_t x) {
    x = (x ^ x >> 33) * 0xFF51AFD7ED558CCDU;
    x = (x ^ x >> 33) * 0xC4CEB9FE1A85EC53U;
    return x ^ x >> 33;
}

/// A hash that the writer of a list cannot foresee, else serial numbers could be chosen to meet in one place.
uint64_t serialHash(ByteView serial) {
    static const uint64_t seed = std::random_device()() * 0x9E3779B97F4A7C15U + std::random_device()();
    uint64_t hash = seed ^ serial.size();
    while (!serial.empty()) {
        uint64_t piece = 0;
        const size_t count = std::min(serial.size(), sizeof piece);
        std::memcpy(&piece, serial.data(), count);
        hash = mixed(hash ^ piece);
        serial = serial.subspan(count);
    }
    return hash;
}

}  // namespace

PathFault CrlEntryIndex::look(ByteView extensions, bool indirect, size_t offset) {
    const auto all = takeTlv(extensions);
    ByteView rest = all ? all->body : ByteView();
    if (rest.empty()) return badCrl("5.3", "malformed entry extensions");
    unsigned seen = 0;
    while (!rest.empty()) {
        const auto extension = takeEntryExtension(rest);
        if (!extension) return badCrl("5.3", "malformed entry extension");
        size_t kind = 0;
        while (kind < std::size(kEntryExtensions) && !is(extension->oid, *kEntryExtensions[kind])) ++kind;
        if (kind == std::size(kEntryExtensions)) {
            if (extension->critical) return badCrl("5.3", "unknown critical entry extension");
            continue;
        }
        if ((seen >> kind & 1U) != 0) return badCrl("4.2", "an entry extension stands twice");
        seen |= 1U << kind;
        if (kEntryExtensions[kind] != &OID_CE_CERTIFICATE_ISSUER) continue;
        GeneralNames names;
        if (!names.readExactly(extension->value)) return badCrl("5.3.3", "malformed certificate issuer");
        if (!indirect) return badCrl("5.3.3", "certificate issuer in a CRL that is not indirect");
        Owner& owner = owners_.emplace_back(Owner{offset, {}});
        for (const GeneralName& name : names)
            if (name.name()) owner.names.push_back(nameKey(*name.name()));
        if (owner.names.empty()) return badCrl("5.3.3", "certificate issuer without a directory name");
    }
    return {};
}

size_t CrlEntryIndex::placeOf(ByteView serial) const {
    return serialHash(shortest(serial)) & (places_.size() - 1);
}

PathFault CrlEntryIndex::build(ByteView entries, bool indirect, const Bytes& crlIssuer) {
    if (entries.size() >= std::numeric_limits<uint32_t>::max()) return badCrl("5.1.2.6", "too long");
    entries_ = entries;
    owners_ = {Owner{0, {crlIssuer}}};
    size_t count = 0;
    ByteView former;
    for (ByteView rest = entries; !rest.empty(); ++count) {
        const size_t offset = entries.size() - rest.size();
        const auto entry = takeRevokedEntry(rest);
        if (!entry) return badCrl("5.1.2.6", "an entry that is not in DER");
        // Most entries have the extensions of the one before.
        if (entry->extensions.empty() || (!indirect && std::ranges::equal(entry->extensions, former))) continue;
        if (PathFault fault = look(entry->extensions, indirect, offset)) return fault;
        former = entry->extensions;
    }
    places_.assign(std::bit_ceil(count + count / 2 + 1), 0);
    for (ByteView rest = entries; !rest.empty();) {
        const auto offset = static_cast<uint32_t>(entries.size() - rest.size());
        size_t place = placeOf(takeRevokedEntry(rest)->serial);
        while (places_[place] != 0) place = (place + 1) & (places_.size() - 1);
        places_[place] = offset + 1;
    }
    return {};
}

bool CrlEntryIndex::belongsTo(size_t offset, const Bytes& issuer) const {
    const auto owner = std::prev(std::ranges::upper_bound(owners_, offset, {}, &Owner::from));
    return std::ranges::find(owner->names, issuer) != owner->names.end();
}

std::optional<CrlEntryIndex::Entry> CrlEntryIndex::find(ByteView serial, const Bytes& issuer) const {
    std::optional<Entry> found;
    if (places_.empty()) return found;
    for (size_t place = placeOf(serial); places_[place] != 0; place = (place + 1) & (places_.size() - 1)) {
        const size_t offset = places_[place] - 1;
        ByteView rest = entries_.subspan(offset);
        const auto entry = takeRevokedEntry(rest);
        if (!std::ranges::equal(shortest(entry->serial), shortest(serial)) || !belongsTo(offset, issuer)) continue;
        found = Entry{reasonOf(entry->extensions), momentOf(entry->date)};
        if (found->reason != CrlReason::RemoveFromCrl) break;
    }
    return found;
}

PathFault CrlFacts::faultOfList() {
    const Extensions& all = crl_.extensions();
    if (!crl_.thisUpdate()) return badCrl("5.1.2.4", "malformed thisUpdate");
    if (!nextUpdate) return badCrl("5.1.2.5", "no nextUpdate");
    if (crl_.tbs.crlExtensions && (!crl_.tbs.version || crl_.tbs.version->valueOr(0) != 1 || all.empty()))
        return badCrl("5.1.2.1", "extensions that the version does not have, or none");
    if (PathFault wrong = faultOfExtensions(all, ECRV_INV_CRL_FMT)) return wrong;
    for (const Extension& one : all) {
        const bool known = std::ranges::any_of(kListExtensions, [&](const auto* oid) { return one.extnId == *oid; });
        if (one.critical.value() && !known) return badCrl("5.2", "unknown critical extension");
    }
    const auto malformed = [&](const KnownOid& oid, bool read) { return all.find(oid) && !read; };
    if (malformed(OID_CE_CRL_NUMBER, number.has_value())) return badCrl("5.2.3", "malformed number");
    if (malformed(OID_CE_DELTA_CRL_INDICATOR, isDelta())) return badCrl("5.2.4", "malformed delta indicator");
    if (malformed(OID_CE_ISSUING_DISTRIBUTION_POINT, point.has_value())) return badCrl("5.2.5", "malformed scope");
    if (!point) return {};
    const ASNbool* const flags[] = {&point->onlyContainsUserCerts, &point->onlyContainsCaCerts,
                                    &point->onlyContainsAttributeCerts, &point->indirectCrl};
    if (!std::ranges::all_of(flags, [](const ASNbool* flag) { return isDerBool(*flag); }))
        return badCrl("5.2.5", "BOOLEAN that is not in DER");
    if (std::count_if(flags, flags + 3, [](const ASNbool* flag) { return flag->value(); }) > 1)
        return badCrl("5.2.5", "a scope without certificates");
    return {};
}

CrlFactsPtr CrlFacts::make(Bytes der) {
    auto facts = std::make_shared<CrlFacts>();
    facts->der_ = std::move(der);
    SignedCertRevList& crl = facts->crl_;
    if (!crl.readExactly(facts->der_, ASN_FLAG_CONST)) return nullptr;
    facts->digest = digestOf(facts->der_);
    facts->issuer = nameKey(crl.issuer());
    facts->issuerText = crl.issuer().text();
    facts->thisUpdate = crl.thisUpdate().value_or(0);
    facts->nextUpdate = crl.nextUpdate();
    facts->number = crl.crlNumber();
    facts->baseNumber = crl.baseCrlNumber();
    facts->authorityKeyId = crl.authorityKeyId();
    facts->point = crl.issuingDistributionPoint();
    if (const Extension* point = crl.extensions().find(OID_CE_ISSUING_DISTRIBUTION_POINT))
        facts->scope = toBytes(point->extnValue.value());
    facts->fault = facts->faultOfList();
    if (!facts->fault && crl.tbs.revokedCertificates) {
        facts->fault =
            facts->entries_.build(crl.tbs.revokedCertificates->contents(), facts->isIndirect(), facts->issuer);
    }
    return facts;
}

CrlFactsPtr CrlFacts::unreadable(const DistinguishedName& issuer) {
    auto facts = std::make_shared<CrlFacts>();
    facts->issuer = nameKey(issuer);
    facts->fault = badCrl("5.1", "a stored CRL cannot be read");
    return facts;
}

std::optional<CrlEntryIndex::Entry> CrlFacts::find(const CertificateFacts& certificate) const {
    return entries_.find(certificate.certificate->serialNumber().contents(), certificate.issuer);
}

}  // namespace crv
