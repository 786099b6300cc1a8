// Calls on the servers and the proxy of a profile.
#include <cstddef>

#include "api/api_frame.h"
#include "api/handles.h"
#include "asn/x509/distinguished_name.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "profiles/crv_profile.h"

namespace crv {
namespace {

/// The DER name of an authority: empty, or a name and nothing behind it.
ByteView nameIn(const unsigned char* data, long len) {
    const ByteView der = octetsIn(data, len);
    if (!der.empty() && !DistinguishedName().readExactly(der, ASN_FLAG_CONST))
        throw CrvApiException(ECRV_API_INV_PAR, "ca_dn");
    return der;
}

/// A text that has to be there.
std::string_view needed(const char* text) {
    demand(text);
    return textIn(text);
}

SrvParams fromC(const CrvSrvParams* given) {
    const CrvSrvParams server = takeIn(given);
    SrvParams params;
    params.name = needed(server.name);
    params.usage = server.usage;
    params.type = server.type;
    params.addr = textIn(server.addr);
    params.port = server.port;
    params.path = textIn(server.path);
    params.user = textIn(server.user);
    params.pass = SecretText(textIn(server.pass));
    params.caDn = toBytes(nameIn(server.ca_dn, server.ca_dn_len));
    params.caDnUtf8 = textIn(server.ca_dn_utf8);
    params.periodSeconds = server.period_seconds;
    params.winAuth = server.win_auth != 0;
    params.tls = server.tls;
    return params;
}

/// Shows the server that the context holds.
void toC(const SrvParams& params, CrvSrvParams* server) {
    const CrvSrvParams whole{0,
                             params.name.c_str(),
                             params.usage,
                             params.type,
                             params.addr.c_str(),
                             params.port,
                             params.path.c_str(),
                             params.user.c_str(),
                             params.pass.c_str(),
                             params.caDn.data(),
                             static_cast<long>(params.caDn.size()),
                             params.caDnUtf8.c_str(),
                             params.periodSeconds,
                             params.winAuth,
                             params.tls};
    handOut(whole, server);
}

int giveServer(CRVctx* ctx, bool found, CrvSrvParams* server) {
    if (!found) return ECRV_SRV_NOT_FND;
    toC(ctx->server, server);
    return CRV_OK;
}

int giveProxy(CRVctx* ctx, CrvProxy* proxy) {
    const Proxy& held = ctx->proxy;
    const CrvProxy whole{0, held.addr.c_str(), held.port, held.user.c_str(), held.password.c_str()};
    handOut(whole, proxy);
    return CRV_OK;
}

int crvGetServerIteratorInt(ServerIterator found, long* count, CrvServerIterator** iterator) {
    demand(iterator);
    if (count) *count = static_cast<long>(found.servers.size());
    auto made = std::make_unique<CrvServerIterator>();
    made->at = std::move(found);
    give(std::move(made), iterator);
    return CRV_OK;
}

/// What the caller's structure has no place for stays as it was.
void keepUnshown(const CrvSrvParams& given, const SrvParams& old, SrvParams& params) {
    params.others = old.others;
    if (given.size < static_cast<long>(offsetof(CrvSrvParams, tls) + sizeof given.tls)) params.tls = old.tls;
}

/// The database of the context's own profile forgets a server; one that is missing knows of none.
int forgetServer(CRVctx* ctx, const crv::CrvProfile& profile, const std::string& name) {
    const crv::CrvProfile* own = ctx->configurationManager.profile();
    if (!own || own->name() != profile.name()) return CRV_OK;
    const DbState state = ctx->dbManager.isDbCreated();
    if (state == DbState::Missing) return CRV_OK;
    if (state != DbState::Complete || !ctx->dbManager.delSrv(name))
        throw CrvApiException(ECRV_DB, ctx->dbManager.lastFailure());
    return CRV_OK;
}

/// Runs a change of a profile.
template <class Change>
int change(CRVctx* ctx, ::CrvProfile* profile, Change work) {
    return apiFrame(ctx, [&] {
        demand(profile);
        work(*profile->record);
        return CRV_OK;
    });
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvAddSrvAPI(CRVctx* ctx, ::CrvProfile* profile, const CrvSrvParams* server) {
    return change(ctx, profile, [&](crv::CrvProfile& record) { record.addSrv(fromC(server)); });
}

int crvUpdateSrvAPI(CRVctx* ctx, ::CrvProfile* profile, const CrvSrvParams* server) {
    return change(ctx, profile, [&](crv::CrvProfile& record) {
        SrvParams params = fromC(server), old;
        if (record.findSrv(params.name, &old)) keepUnshown(*server, old, params);
        record.updateSrv(params);
    });
}

int crvDelSrvAPI(CRVctx* ctx, ::CrvProfile* profile, const char* name) {
    return apiFrame(ctx, [&] {
        demand(profile);
        SrvParams server;
        const bool known = profile->record->findSrv(needed(name), &server);
        profile->record->delSrv(needed(name));
        return known ? forgetServer(ctx, *profile->record, server.name) : CRV_OK;
    });
}

int crvFindSrvAPI(CRVctx* ctx, const ::CrvProfile* profile, const char* name, CrvSrvParams* server) {
    return apiFrame(ctx, [&] {
        demand(profile && server);
        return giveServer(ctx, profile->record->findSrv(needed(name), &ctx->server), server);
    });
}

int crvMoveSrvFirstAPI(CRVctx* ctx, ::CrvProfile* profile, const char* name) {
    return change(ctx, profile, [&](crv::CrvProfile& record) { record.moveSrvFirst(needed(name)); });
}

int crvMoveSrvLastAPI(CRVctx* ctx, ::CrvProfile* profile, const char* name) {
    return change(ctx, profile, [&](crv::CrvProfile& record) { record.moveSrvLast(needed(name)); });
}

int crvGetServerIteratorAPI(CRVctx* ctx, const ::CrvProfile* profile, long usage, const unsigned char* ca_dn,
                            long ca_dn_len, long* count, CrvServerIterator** iterator) {
    return apiFrame(ctx, [&] {
        demand(profile);
        const auto use = static_cast<ServerUsage>(usage);
        return crvGetServerIteratorInt(profile->record->getServerIterator(use, nameIn(ca_dn, ca_dn_len)), count,
                                       iterator);
    });
}

int crvGetSrvListForCaAPI(CRVctx* ctx, const ::CrvProfile* profile, long usage, const unsigned char* ca_dn,
                          long ca_dn_len, long* count, CrvServerIterator** iterator) {
    return apiFrame(ctx, [&] {
        demand(profile);
        const auto use = static_cast<ServerUsage>(usage);
        return crvGetServerIteratorInt({profile->record->getSrvListForCa(use, nameIn(ca_dn, ca_dn_len))}, count,
                                       iterator);
    });
}

int crvGetNextServerAPI(CRVctx* ctx, CrvServerIterator* iterator, CrvSrvParams* server) {
    return apiFrame(ctx, [&] {
        demand(iterator && server);
        return giveServer(ctx, crv::CrvProfile::getNextServer(iterator->at, ctx->server), server);
    });
}

int crvFreeServerIteratorAPI(CRVctx* ctx, CrvServerIterator* iterator) {
    return freeHandle(ctx, iterator);
}

int crvGetServerAPI(CRVctx* ctx, const ::CrvProfile* profile, long usage, const unsigned char* ca_dn, long ca_dn_len,
                    long index, CrvSrvParams* server) {
    return apiFrame(ctx, [&] {
        demand(profile && server);
        const auto use = static_cast<ServerUsage>(usage);
        return giveServer(ctx, profile->record->getServer(use, nameIn(ca_dn, ca_dn_len), index, ctx->server), server);
    });
}

int crvInsertProxyAPI(CRVctx* ctx, ::CrvProfile* profile, const char* addr, long port, const char* user,
                      const char* password) {
    return change(ctx, profile, [&](crv::CrvProfile& record) {
        record.insertProxy(std::string(textIn(addr)), port, std::string(textIn(user)), SecretText(textIn(password)));
    });
}

int crvDeleteProxyAPI(CRVctx* ctx, ::CrvProfile* profile) {
    return change(ctx, profile, [&](crv::CrvProfile& record) { record.deleteProxy(); });
}

int crvGetProxyAPI(CRVctx* ctx, const ::CrvProfile* profile, CrvProxy* proxy) {
    return apiFrame(ctx, [&] {
        demand(profile && proxy);
        profile->record->getProxy(ctx->proxy);
        return giveProxy(ctx, proxy);
    });
}

int crvGetProxyForUrlAPI(CRVctx* ctx, const ::CrvProfile* profile, const char* url, CrvProxy* proxy) {
    return apiFrame(ctx, [&] {
        demand(profile && proxy && url);
        profile->record->getProxyForUrl(url, ctx->proxy);
        return giveProxy(ctx, proxy);
    });
}

int crvUseProxyForSpecifiedUrlAPI(CRVctx* ctx, const ::CrvProfile* profile, const char* url, int* use) {
    return apiFrame(ctx, [&] {
        demand(profile && url && use);
        *use = profile->record->useProxyForSpecifiedUrl(url);
        return CRV_OK;
    });
}

int crvSetUseProxyFromSystemSettingsAPI(CRVctx* ctx, ::CrvProfile* profile, int use) {
    return change(ctx, profile, [&](crv::CrvProfile& record) { record.setUseProxyFromSystemSettings(use != 0); });
}
