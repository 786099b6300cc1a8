#include "keystore/token_record.h"

#include <algorithm>
#include <charconv>

#include "config/config_oids.h"
#include "misc/logger.h"

namespace crv {
namespace {

constexpr const char* kApplication = "Corvane";
constexpr std::string_view kLabelStart = "konfiguracja ";

struct StoredRecord {
    CK_OBJECT_HANDLE handle;
    uint64_t number;
    Bytes value;
};

/// 0 for a label that is none of ours.
uint64_t numberOf(std::string_view label) {
    uint64_t number = 0;
    if (!label.starts_with(kLabelStart)) return 0;
    label.remove_prefix(kLabelStart.size());
    const auto [end, failed] = std::from_chars(label.data(), label.data() + label.size(), number);
    return failed == std::errc() && end == label.data() + label.size() ? number : 0;
}

/// Every record, the highest number first.
P11Result listRecords(PKCS11Device& device, std::vector<StoredRecord>& records) {
    constexpr CK_ATTRIBUTE_TYPE kTypes[] = {CKA_LABEL, CKA_VALUE};
    P11Template wanted = objectsOf(CKO_DATA);
    wanted.text(CKA_APPLICATION, kApplication);
    PKCS11Device::Handles found;
    if (const P11Result listed = device.findObjects(std::move(wanted), found); listed != kP11Ok) return listed;
    records.clear();
    for (const CK_OBJECT_HANDLE handle : found) {
        P11Attributes attributes;
        if (const P11Result read = device.getObjectAttributeTab(handle, kTypes, attributes); read != kP11Ok)
            return read;
        const uint64_t number = numberOf(asText(attributes.octets(CKA_LABEL)));
        if (number > 0) records.push_back({handle, number, toBytes(attributes.octets(CKA_VALUE))});
    }
    std::ranges::sort(records, std::greater(), &StoredRecord::number);
    return kP11Ok;
}

bool holds(const std::vector<StoredRecord>& records, ByteView value) {
    return !records.empty() && std::ranges::equal(records.front().value, value);
}

/// Makes the record unless an attempt that was cut off did.
P11Result makeRecord(PKCS11Device& device, ByteView value, std::vector<StoredRecord>& records) {
    if (const P11Result listed = listRecords(device, records); listed != kP11Ok || holds(records, value)) return listed;
    const uint64_t next = records.empty() ? 1 : records.front().number + 1;
    const Bytes oid = ASNobjectId(OID_CRV_TOKEN_RECORD).encoded();
    CK_OBJECT_HANDLE made = 0;
    const P11Result created =
        device.createDataObject({kApplication, std::string(kLabelStart) + std::to_string(next), oid, value}, made);
    return created == kP11Ok ? listRecords(device, records) : created;
}

}  // namespace

KeyManagerResult readTokenRecord(TokenSession& session, const RecordCheck& check, Bytes& record) {
    std::vector<StoredRecord> records;
    const KeyManagerResult read = session.run(
        [&](PKCS11Device& device) { return tokenResult(session.context(), device, listRecords(device, records)); });
    record.clear();
    if (read != kKmOk) return read;
    for (const StoredRecord& one : records) {
        if (check(one.value, record) == kKmOk) return kKmOk;
        logLine(LogLevel::Warning, "the record " + std::to_string(one.number) + " on the token does not verify");
    }
    record.clear();
    return records.empty() ? kKmOk : kKmConfigurationSignature;
}

KeyManagerResult writeTokenRecord(TokenSession& session, ByteView record) {
    return session.run([&](PKCS11Device& device) {
        std::vector<StoredRecord> records;
        const P11Result made = makeRecord(device, record, records);
        if (made != kP11Ok) return tokenResult(session.context(), device, made);
        if (!holds(records, record)) return kKmCardError;
        // What cannot be removed does no harm: the highest counts.
        for (size_t i = 1; i < records.size(); ++i) static_cast<void>(device.deleteObject(records[i].handle));
        return kKmOk;
    });
}

}  // namespace crv
