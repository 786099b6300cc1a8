// Calls that put certificates and CRLs into the database, and certificates to the user's keys; trust points.
#include <ctime>

#include "api/handles.h"
#include "api/key_store_call.h"
#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "ops/installation.h"
#include "ops/op_error.h"
#include "ops/trust.h"
#include "pki/cert_file_reader.h"

namespace crv {
namespace {

int crvImportCertsInt(CRVctx& ctx, ByteView octets, CrvImportResult* result) {
    if (result) clearOut(result);
    demandDatabase(ctx);
    CertFileReader reader(toBytes(octets));
    ImportProgress done;
    const auto next = [&](ByteView& der) { return reader.next(der); };
    const auto goOn = [](const ImportProgress&) { return !processEnding(); };
    if (!ctx.certificateManager.db().insertMany(next, goOn, nullptr, done)) failDatabase(ctx);
    stopIfEnding();
    if (done.handled() == 0) return ECRV_INV_CRT_FMT;
    if (done.refused > 0) ctx.state.addWarning(WARN_CERT_REFUSED);
    if (done.unreadable || reader.stoppedEarly()) ctx.state.addWarning(WARN_REST_NOT_READ);
    if (result) {
        handOut({0, static_cast<long>(done.stored), static_cast<long>(done.present), static_cast<long>(done.refused)},
                result);
    }
    return CRV_OK;
}

int crvImportCrlInt(CRVctx& ctx, ByteView octets, bool unverified) {
    demandLogIn(ctx);
    const auto der = crlFromFile(toBytes(octets));
    if (!der || !SignedCertRevList().readExactly(*der, ASN_FLAG_CONST)) return ECRV_INV_CRL_FMT;
    demandDatabase(ctx);
    if (const int code = ctx.revocationManager.verify(*der, std::time(nullptr))) {
        if (!unverified) return code;
        ctx.state.addWarning(WARN_CRL_NOT_VERIFIED);
    }
    switch (ctx.revocationManager.insert(*der)) {
        case CrlInsert::Stored:
            return CRV_OK;
        case CrlInsert::Older:
            return ECRV_OLD_CRL;
        default:
            failDatabase(ctx);
    }
}

/// Doubts about an installation, the flag that permits it, and what is answered without.
constexpr struct {
    InstallDoubt doubt;
    unsigned long flag;
    int code;
} kDoubts[] = {{InstallDoubt::Replaces, CRVINSTALL_REPLACE, ECRV_CRT_WITH_SUCH_USAGE_EXISTS},
               {InstallDoubt::Expired, CRVINSTALL_EXPIRED, ECRV_CRTAFTER},
               {InstallDoubt::NotYetValid, CRVINSTALL_NOT_YET_VALID, ECRV_CRTBEFORE}};

CertList certsOfOctets(ByteView octets) {
    CertList list;
    CertFileReader reader(toBytes(octets));
    for (ByteView der; reader.next(der);) {
        CertPtr one = makeCert(der);
        if (!one) break;
        list.push_back(std::move(one));
    }
    return list;
}

/// Everything that the calls on trust points do but the change; saves it or takes it back.
template <class Change>
int changeTrust(CRVctx& ctx, Change change) {
    KeyManager::Undo undo(ctx.keyManager);
    if (const int code = codeOfKeys(ctx, change())) return code;
    const int code = codeOfKeys(ctx, undo.keep(saveKeyStore(accessOf(ctx))));
    if (code == CRV_OK) ctx.unsavedOptions.clear();
    return code;
}

int crvInstallUserCrtInt(CRVctx& ctx, ByteView octets, unsigned long flags, long* count) {
    if (count) *count = 0;
    demand((flags & ~static_cast<unsigned long>(CRVINSTALL_ALL)) == 0);
    demandLogIn(ctx);
    const CertList certificates = certsOfOctets(octets);
    if (certificates.empty()) return ECRV_INV_CRT_FMT;
    demandDatabase(ctx);
    fetchPins(ctx);
    int code = CRV_OK;
    InstallHooks hooks;
    hooks.confirm = [&](InstallDoubt doubt, const SignedCertificate&) {
        const auto* row = std::ranges::find_if(kDoubts, [&](const auto& one) { return one.doubt == doubt; });
        const bool permitted = (flags & row->flag) != 0;
        if (!permitted && code == CRV_OK) code = row->code;
        return permitted;
    };
    hooks.store = [&](const CertList& list) {
        for (const CertPtr& one : list)
            if (!ctx.certificateManager.db().insert(encodingOf(*one))) failDatabase(ctx);
        return true;
    };
    hooks.save = [&] {
        code = codeOfKeys(ctx, saveKeyStore(accessOf(ctx)));
        return code == CRV_OK;
    };
    const Installation done = installCertificates(ctx.keyManager, certificates, hooks);
    if (done.certificates.empty()) {
        const int refused = codeOfKeys(ctx, done.refusal);
        return refused != CRV_OK ? refused : code;
    }
    ctx.unsavedOptions.clear();
    ctx.userCerts = ctx.keyManager.userCerts();
    const auto own = [&](const CertPtr& one) { return contains(ctx.userCerts, *one); };
    if (count) *count = static_cast<long>(std::ranges::count_if(done.certificates, own));
    return CRV_OK;
}

int crvAddTrustPointInt(CRVctx& ctx, const CrvCert* cert) {
    demand(cert);
    demandLogIn(ctx);
    const KeyStoreAccess access = accessOf(ctx);
    if (!mayAddTrust(access)) return ECRV_SKEYS_NOT_PRES;
    fetchPins(ctx);
    bool expired = false;
    const auto refuse = [&] { return expired = true, false; };
    const int code = changeTrust(ctx, [&] { return addTrustPoint(access, cert->certificate, refuse); });
    return expired ? ECRV_CRTAFTER : code;
}

int crvDelTrustPointInt(CRVctx& ctx, const CrvCert* cert) {
    demand(cert);
    demandLogIn(ctx);
    const std::vector<TrustPoint> points = ctx.keyManager.trustedPoints();
    const auto found = std::ranges::find_if(points, [&](const TrustPoint& point) {
        return std::ranges::equal(encodingOf(*point.certificate), encodingOf(*cert->certificate));
    });
    if (found == points.end()) return ECRV_CRTNOTFOUND;
    fetchPins(ctx);
    return changeTrust(ctx, [&] { return removeTrustPoint(accessOf(ctx), *found); });
}

int crvGetTrustPointIteratorInt(CRVctx& ctx, long* count, CrvTrustPointIterator** iterator) {
    demand(iterator);
    *iterator = nullptr;
    demandLogIn(ctx);
    auto made = std::make_unique<CrvTrustPointIterator>();
    made->points = ctx.keyManager.trustedPoints();
    if (count) *count = static_cast<long>(made->points.size());
    give(std::move(made), iterator);
    return CRV_OK;
}

int crvGetNextTrustPointInt(CrvTrustPointIterator* iterator, CrvCert** cert, long* place) {
    demand(iterator && cert);
    *cert = nullptr;
    if (iterator->at == iterator->points.size()) return ECRV_CRTNOTFOUND;
    const TrustPoint& point = iterator->points[iterator->at];
    give(handleOf(point.certificate), cert);
    if (place) *place = static_cast<long>(point.flag);
    ++iterator->at;
    return CRV_OK;
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvImportCertsAPI(CRVctx* ctx, const unsigned char* octets, long len, CrvImportResult* result) {
    return apiFrame(ctx, [&] { return crvImportCertsInt(*ctx, octetsIn(octets, len), result); });
}

int crvImportCrlAPI(CRVctx* ctx, const unsigned char* octets, long len, int unverified) {
    return apiFrame(ctx, [&] { return crvImportCrlInt(*ctx, octetsIn(octets, len), unverified != 0); });
}

int crvInstallUserCrtAPI(CRVctx* ctx, const unsigned char* octets, long len, unsigned long flags, long* count) {
    return apiFrame(ctx, [&] { return crvInstallUserCrtInt(*ctx, octetsIn(octets, len), flags, count); });
}

int crvGetTrustPointIteratorAPI(CRVctx* ctx, long* count, CrvTrustPointIterator** iterator) {
    return apiFrame(ctx, [&] { return crvGetTrustPointIteratorInt(*ctx, count, iterator); });
}

int crvGetNextTrustPointAPI(CRVctx* ctx, CrvTrustPointIterator* iterator, CrvCert** cert, long* place) {
    return apiFrame(ctx, [&] { return crvGetNextTrustPointInt(iterator, cert, place); });
}

int crvFreeTrustPointIteratorAPI(CRVctx* ctx, CrvTrustPointIterator* iterator) {
    return freeHandle(ctx, iterator);
}

int crvAddTrustPointAPI(CRVctx* ctx, const CrvCert* cert) {
    return apiFrame(ctx, [&] { return crvAddTrustPointInt(*ctx, cert); });
}

int crvDelTrustPointAPI(CRVctx* ctx, const CrvCert* cert) {
    return apiFrame(ctx, [&] { return crvDelTrustPointInt(*ctx, cert); });
}
