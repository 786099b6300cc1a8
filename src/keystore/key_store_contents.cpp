#include "keystore/key_store_contents.h"

#include <algorithm>
#include <ctime>

#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/crv_cfg_file.h"
#include "keystore/key_pairing.h"

namespace crv {
namespace {

constexpr auto kSameCert = [](const CertPtr& a, const CertPtr& b) {
    return std::ranges::equal(encodingOf(*a), encodingOf(*b));
};
constexpr auto kSameKey = [](const StoredKey& a, const StoredKey& b) { return a.key->keyId() == b.key->keyId(); };

template <class List, class Same>
auto findIn(List& list, const typename List::value_type& item, Same same) {
    return std::ranges::find_if(list, [&](const auto& other) { return same(item, other); });
}

constexpr auto kAlways = [](const auto&, const auto&) { return true; };
constexpr auto kNever = [](const auto&, const auto&) { return false; };

/// What `theirs` holds and what `mine` does. An item of `base` that one of them lacks goes only when that list's owner
/// can have deleted it: an older copy of the file lacks much that nobody deleted.
template <class List, class Same, class Deletable = decltype(kAlways)>
List mergeLists(const List& base, const List& mine, const List& theirs, Same same, Deletable deletable = {}) {
    const auto in = [&](const List& list, const auto& item) { return findIn(list, item, same) != list.end(); };
    const auto gone = [&](const List& list, const auto& item) {
        return in(base, item) && !in(list, item) && deletable(list, item);
    };
    List merged;
    for (const auto& item : theirs)
        if (!gone(mine, item)) merged.push_back(item);
    for (const auto& item : mine)
        if (!in(theirs, item) && !gone(theirs, item)) merged.push_back(item);
    return merged;
}

/// A user's certificate goes only when a newer one of the same key and name takes its place.
bool isReplaced(const CertList& list, const CertPtr& old) {
    return std::ranges::any_of(list, [&](const CertPtr& other) {
        return other->computeKeyIdentifierSha1Hash() == old->computeKeyIdentifierSha1Hash() &&
               other->subject() == old->subject() && isNewer(*other, *old);
    });
}

/// Attributes of a bag that we changed since `base` are ours.
CertAttributes mergeAttributes(const CertAttributes& base, const CertAttributes& mine, const CertAttributes& theirs) {
    const auto get = [](const CertAttributes& from, const Bytes& certificate) {
        const auto found = from.find(certificate);
        return found == from.end() ? Bytes() : found->second;
    };
    CertAttributes merged = theirs;
    for (const auto* from : {&base, &mine}) {
        for (const auto& [certificate, unused] : *from) {
            const Bytes ours = get(mine, certificate);
            if (ours == get(base, certificate) && merged.contains(certificate)) continue;
            merged.erase(certificate);
            if (!ours.empty()) merged.emplace(certificate, ours);
        }
    }
    return merged;
}

/// Keys whose role we changed come first and keep it; of the others each gets what is left of its role.
void settleRoles(std::vector<StoredKey>& keys, const std::vector<StoredKey>& base, const std::vector<StoredKey>& mine) {
    const auto ours = [&](StoredKey& key) {
        const auto now = findIn(mine, key, kSameKey);
        const auto before = findIn(base, key, kSameKey);
        const bool changed = now != mine.end() && (before == base.end() || before->role != now->role);
        if (changed) key.role = now->role;
        return changed;
    };
    const auto others = std::stable_partition(keys.begin(), keys.end(), ours);
    KeyRole taken = KeyRole::Further;
    for (auto key = keys.begin(); key != others; ++key) taken = taken | key->role;
    for (auto key = others; key != keys.end(); ++key) {
        key->role = without(key->role, taken);
        taken = taken | key->role;
    }
}

bool sameField(const CfgField* a, const CfgField* b) {
    return a && b ? a->value == b->value : a == b;
}

using Pairs = ASNsequenceList<CfgField>;

const CfgField* findPair(const Pairs& pairs, const ASNobjectId& id) {
    const auto found = std::ranges::find_if(pairs, [&](const CfgField& field) { return field.id == id; });
    return found == pairs.end() ? nullptr : &*found;
}

/// Pair by pair: what we changed since `base` wins.
void mergePairs(const Pairs& base, const Pairs& mine, const Pairs& theirs, Pairs& merged) {
    for (const CfgField& field : theirs) {
        const CfgField* ours = findPair(mine, field.id);
        const bool changed = !sameField(ours, findPair(base, field.id));
        if (changed && ours) merged.add(*ours);
        if (!changed) merged.add(field);
    }
    for (const CfgField& field : mine)
        if (!findPair(theirs, field.id) && !sameField(&field, findPair(base, field.id))) merged.add(field);
}

/// The three records of a merge.
struct Records {
    const CRVCfgFile& base;
    const CRVCfgFile& mine;
    const CRVCfgFile& theirs;
};

using Certificates = CRVCfgFile::Certificates;

template <class... Dropped>
Certificates mergeCertificates(const Records& from, Certificates (CRVCfgFile::*get)() const, Dropped... dropped) {
    return mergeLists((from.base.*get)(), (from.mine.*get)(), (from.theirs.*get)(), std::equal_to<>(), dropped...);
}

/// Identifiers with notes. Where one of the lists is none, the field stays as a whole.
void mergeNoted(const KnownOid& oid, const Records& from, CRVCfgFile& merged) {
    const auto read = [&](const CRVCfgFile& record, Pairs& pairs) {
        const ASNany* field = record.findField(oid);
        return !field || field->decode(pairs);
    };
    Pairs base, mine, theirs, both;
    if (!read(from.base, base) || !read(from.mine, mine) || !read(from.theirs, theirs)) return;
    mergePairs(base, mine, theirs, both);
    if (!both.empty() || merged.findField(oid)) merged.setField(oid, &both);
}

using RecordPtr = std::shared_ptr<const CRVCfgFile>;

RecordPtr mergeRecords(const RecordPtr& base, const RecordPtr& mine, const RecordPtr& theirs) {
    if (!mine || !theirs) return mine ? mine : theirs;
    const CRVCfgFile none;
    const Records from{base ? *base : none, *mine, *theirs};
    auto merged = std::make_shared<CRVCfgFile>();
    mergePairs(from.base, from.mine, from.theirs, *merged);
    merged->setTrustedCAs(mergeCertificates(from, &CRVCfgFile::getTrustedCAs));
    merged->setQualifiedTrustedCAs(mergeCertificates(from, &CRVCfgFile::getQualifiedTrustedCAs, kNever));
    merged->setDeletedKeys(mergeCertificates(from, &CRVCfgFile::getDeletedKeys));
    for (const KnownOid* oid : {&OID_CRV_CONFIG_POLICIES, &OID_CRV_CONFIG_ACCEPTED_KEY_USAGE})
        mergeNoted(*oid, from, *merged);
    return merged;
}

}  // namespace

const StoredKey* KeyStoreContents::keyInRole(KeyRole role) const {
    const auto found = std::ranges::find_if(keys, [&](const StoredKey& key) { return (key.role & role) == role; });
    return found == keys.end() ? nullptr : &*found;
}

const StoredKey* KeyStoreContents::findKey(const KeyId& id) const {
    const auto found = std::ranges::find_if(keys, [&](const StoredKey& key) { return key.key->keyId() == id; });
    return found == keys.end() ? nullptr : &*found;
}

CertPtr KeyStoreContents::certificateOf(const KeyId& id) const {
    const int64_t now = std::time(nullptr);
    CertPtr best;
    for (const CertPtr& certificate : userCerts) {
        if (!(certificate->computeKeyIdentifierSha1Hash() == id)) continue;
        const bool valid = certificate->isValidAt(now);
        const bool bestValid = best && best->isValidAt(now);
        if (!best || (valid == bestValid ? isNewer(*certificate, *best) : valid)) best = certificate;
    }
    return best;
}

KeyStoreContents mergeContents(const KeyStoreContents& base, const KeyStoreContents& mine,
                               const KeyStoreContents& theirs) {
    KeyStoreContents merged;
    merged.keys = mergeLists(base.keys, mine.keys, theirs.keys, kSameKey, kNever);
    settleRoles(merged.keys, base.keys, mine.keys);
    // The item of a session that had not seen it come to its role still has the mark.
    for (StoredKey& key : merged.keys)
        if (key.role != KeyRole::Further) dropSuccessorMark(key);
    merged.userCerts = mergeLists(base.userCerts, mine.userCerts, theirs.userCerts, kSameCert, isReplaced);
    const auto users = base.configuration ? base.configuration->getTrustedCAs() : Certificates();
    const auto deletable = [&](const CertList&, const CertPtr& point) {
        return !base.configuration || std::ranges::find(users, toBytes(encodingOf(*point))) != users.end();
    };
    merged.trustedCerts = mergeLists(base.trustedCerts, mine.trustedCerts, theirs.trustedCerts, kSameCert, deletable);
    // What one of them made a trust point is no ordinary certificate any more.
    std::erase_if(merged.userCerts, [&](const CertPtr& one) { return contains(merged.trustedCerts, *one); });
    merged.configuration = mergeRecords(base.configuration, mine.configuration, theirs.configuration);
    merged.seed = mine.seed;
    merged.certAttributes = mergeAttributes(base.certAttributes, mine.certAttributes, theirs.certAttributes);
    merged.others = mergeLists(base.others, mine.others, theirs.others, std::equal_to<>(), kNever);
    merged.strong = (mine.strong == base.strong ? theirs : mine).strong;
    sortByRole(merged.keys);
    return merged;
}

bool sameButSeed(const KeyStoreContents& a, const KeyStoreContents& b) {
    const auto same = [](const StoredKey& x, const StoredKey& y) {
        return kSameKey(x, y) && x.role == y.role && x.attributes == y.attributes && x.bagAttributes == y.bagAttributes;
    };
    const auto record = [](const KeyStoreContents& from) {
        return from.configuration ? toBytes(from.configuration->encoded()) : Bytes();
    };
    return a.strong == b.strong && std::ranges::equal(a.keys, b.keys, same) &&
           std::ranges::equal(a.userCerts, b.userCerts, kSameCert) &&
           std::ranges::equal(a.trustedCerts, b.trustedCerts, kSameCert) && a.certAttributes == b.certAttributes &&
           a.others == b.others && (a.configuration == b.configuration || record(a) == record(b));
}

void sortByRole(std::vector<StoredKey>& keys) {
    const auto rank = [](const StoredKey& key) {
        return shares(key.role, KeyRole::Signing) ? 0 : key.role == KeyRole::Encryption ? 1 : 2;
    };
    std::ranges::stable_sort(keys, {}, rank);
}

}  // namespace crv
