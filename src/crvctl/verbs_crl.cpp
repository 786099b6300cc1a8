// Verbs on revocation lists.
#include <ctime>

#include "asn/x509/signed_cert_rev_list.h"
#include "crvctl/secrets.h"
#include "crvctl/show.h"
#include "crvctl/verbs.h"
#include "misc/base64_file.h"
#include "pki/cert_file_reader.h"

namespace crv::ctl {
namespace {

struct ReadCrl {
    Bytes der;
    SignedCertRevList list;
};

void parse(ReadCrl& crl, const std::string& about) {
    if (!crl.list.readExactly(crl.der, ASN_FLAG_CONST)) throw OpError(OpFault::BadFile, about);
}

void readFileCrl(const std::string& path, ReadCrl& crl) {
    auto der = crlFromFile(importFile(path));
    if (!der) throw OpError(OpFault::BadFile, path);
    crl.der = std::move(*der);
    parse(crl, path);
}

void readStoredCrl(Session& session, const std::string& number, ReadCrl& crl) {
    if (!session.context().dbManager.getCrlByFileNum(std::strtol(number.c_str(), nullptr, 10), crl.der))
        throw OpError(OpFault::ObjectMissing, number);
    parse(crl, number);
}

Value decimal(const std::optional<ASNinteger>& number) {
    return number ? Value(number->decimal()) : Value();
}

Fields crlFields(const ReadCrl& crl, bool der) {
    Fields fields{{"issuer", crl.list.issuer().rfc4514()},       {"number", decimal(crl.list.crlNumber())},
                  {"base", decimal(crl.list.baseCrlNumber())},   {"thisUpdate", timeOf(crl.list.thisUpdate())},
                  {"nextUpdate", timeOf(crl.list.nextUpdate())}, {"revoked", crl.list.entryCount()},
                  {"issuerNames", namesOf(crl.list.issuer())}};
    if (der) fields.emplace_back("der", toBase64(crl.der));
    return fields;
}

}  // namespace

void crlList(Run& run) {
    Session session = openDatabase(run);
    CrlIndex index;
    if (!session.context().dbManager.getCrlIndex(index)) session.failDatabase();
    for (const CrlIndexEntry& entry : index) {
        run.out.item({{"file", entry.fileNumber()},
                      {"issuer", entry.issuer.rfc4514()},
                      {"number", entry.crlNumber ? Value(entry.crlNumber->decimal()) : Value()},
                      {"base", entry.baseCrlNumber ? Value(entry.baseCrlNumber->decimal()) : Value()},
                      {"thisUpdate", timeOf(entry.thisUpdate)},
                      {"nextUpdate", timeOf(entry.expires())},
                      {"verified", entry.isVerified()}});
    }
}

void crlShow(Run& run) {
    Session session = openDatabase(run);
    ReadCrl crl;
    readStoredCrl(session, run.call.operand(0), crl);
    for (auto& [key, value] : crlFields(crl, run.call.has("der"))) run.out.field(key, value);
    auto entries = crl.list.entries();
    while (const RevokedCertificate* entry = entries.next()) {
        run.out.item({{"serial", hexOf(entry->userCertificate.contents())},
                      {"revokedAt", timeOf(entry->revokedAt())},
                      {"reason", static_cast<long>(entry->reason())}});
    }
}

void crlImport(Run& run) {
    ReadCrl crl;
    readFileCrl(run.call.operand(0), crl);
    Session session = openReading(run);
    session.demandDatabase();
    if (const int code = session.context().revocationManager.verify(crl.der, std::time(nullptr)); code != 0) {
        run.confirm("The list does not verify. Store it all the same?", codeName(code));
        run.out.warn("the list does not verify", codeName(code));
    }
    run.out.change("import", "crl", crl.list.issuer().rfc4514());
    if (run.mode.dryRun) return;
    switch (session.context().revocationManager.insert(crl.der)) {
        case CrlInsert::Stored:
            return;
        case CrlInsert::Older:
            throw OpError(OpFault::ObjectExists, crl.list.issuer().rfc4514());
        default:
            session.failDatabase();
    }
}

void crlVerify(Run& run) {
    ReadCrl crl;
    readFileCrl(run.call.operand(0), crl);
    Session session = openReading(run);
    session.demandDatabase();
    const int64_t time = run.call.has("at") ? timeFrom(*run.call.value("at")) : std::time(nullptr);
    const int code = session.context().revocationManager.verify(crl.der, time);
    run.out.field("good", code == 0);
    run.out.field("verdict", codeName(code));
    run.out.field("at", timeOf(time));
    for (auto& [key, value] : crlFields(crl, run.call.has("der"))) run.out.field(key, value);
    if (code != 0) run.out.no(code);
}

void crlExport(Run& run) {
    Session session = openDatabase(run);
    ReadCrl crl;
    readStoredCrl(session, run.call.operand(0), crl);
    exportFile(targetOf(run, run.call.operand(1)), session.profile(), crl.der);
    run.out.change("write", "crl", run.call.operand(1));
}

}  // namespace crv::ctl
