// Calls on the servers and the proxy of a profile.
#include "api/api_frame.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "profiles/crv_profile.h"

namespace crv {
namespace {

ByteView octets(const unsigned char* data, long len) {
    demand(len >= 0 && (data || len == 0));
    return {data, static_cast<size_t>(len)};
}

SrvParams fromC(const CrvSrvParams* server) {
    demand(server);
    SrvParams params;
    params.name = viewOrEmpty(server->name);
    params.usage = server->usage;
    params.type = server->type;
    params.addr = viewOrEmpty(server->addr);
    params.port = server->port;
    params.path = viewOrEmpty(server->path);
    params.user = viewOrEmpty(server->user);
    params.pass = SecretText(viewOrEmpty(server->pass));
    params.caDn = toBytes(octets(server->ca_dn, server->ca_dn_len));
    params.caDnUtf8 = viewOrEmpty(server->ca_dn_utf8);
    params.periodSeconds = server->period_seconds;
    params.winAuth = server->win_auth != 0;
    return params;
}

/// Shows the server that the context holds.
void toC(const SrvParams& params, CrvSrvParams* server) {
    *server = {params.name.c_str(),
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
               params.winAuth};
}

int handOut(CRVctx* ctx, bool found, CrvSrvParams* server) {
    if (!found) return ECRV_SRV_NOT_FND;
    toC(ctx->server, server);
    return CRV_OK;
}

int handOut(CRVctx* ctx, CrvProxy* proxy) {
    const Proxy& held = ctx->proxy;
    *proxy = {held.addr.c_str(), held.port, held.user.c_str(), held.password.c_str()};
    return CRV_OK;
}

int crvGetServerIteratorInt(ServerIterator found, long* count, CrvServerIterator** iterator) {
    demand(iterator);
    if (count) *count = static_cast<long>(found.servers.size());
    *iterator = std::make_unique<ServerIterator>(std::move(found)).release();
    return CRV_OK;
}

/// Runs a change of a profile.
template <class Change>
int change(CRVctx* ctx, CrvProfile* profile, Change work) {
    return apiFrame(ctx, [&] {
        demand(profile);
        work();
        return CRV_OK;
    });
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvAddSrvAPI(CRVctx* ctx, CrvProfile* profile, const CrvSrvParams* server) {
    return change(ctx, profile, [&] { profile->addSrv(fromC(server)); });
}

int crvUpdateSrvAPI(CRVctx* ctx, CrvProfile* profile, const CrvSrvParams* server) {
    return change(ctx, profile, [&] {
        SrvParams params = fromC(server), old;
        if (profile->findSrv(params.name, &old)) params.others = old.others;
        profile->updateSrv(params);
    });
}

int crvDelSrvAPI(CRVctx* ctx, CrvProfile* profile, const char* name) {
    return change(ctx, profile, [&] { profile->delSrv(viewOrEmpty(name)); });
}

int crvFindSrvAPI(CRVctx* ctx, const CrvProfile* profile, const char* name, CrvSrvParams* server) {
    return apiFrame(ctx, [&] {
        demand(profile && server);
        return handOut(ctx, profile->findSrv(viewOrEmpty(name), &ctx->server), server);
    });
}

int crvMoveSrvFirstAPI(CRVctx* ctx, CrvProfile* profile, const char* name) {
    return change(ctx, profile, [&] { profile->moveSrvFirst(viewOrEmpty(name)); });
}

int crvMoveSrvLastAPI(CRVctx* ctx, CrvProfile* profile, const char* name) {
    return change(ctx, profile, [&] { profile->moveSrvLast(viewOrEmpty(name)); });
}

int crvGetServerIteratorAPI(CRVctx* ctx, const CrvProfile* profile, long usage, const unsigned char* ca_dn,
                            long ca_dn_len, long* count, CrvServerIterator** iterator) {
    return apiFrame(ctx, [&] {
        demand(profile);
        const auto use = static_cast<ServerUsage>(usage);
        return crvGetServerIteratorInt(profile->getServerIterator(use, octets(ca_dn, ca_dn_len)), count, iterator);
    });
}

int crvGetSrvListForCaAPI(CRVctx* ctx, const CrvProfile* profile, long usage, const unsigned char* ca_dn,
                          long ca_dn_len, long* count, CrvServerIterator** iterator) {
    return apiFrame(ctx, [&] {
        demand(profile);
        const auto use = static_cast<ServerUsage>(usage);
        return crvGetServerIteratorInt({profile->getSrvListForCa(use, octets(ca_dn, ca_dn_len))}, count, iterator);
    });
}

int crvGetNextServerAPI(CRVctx* ctx, CrvServerIterator* iterator, CrvSrvParams* server) {
    return apiFrame(ctx, [&] {
        demand(iterator && server);
        return handOut(ctx, CrvProfile::getNextServer(*iterator, ctx->server), server);
    });
}

int crvFreeServerIteratorAPI(CRVctx* ctx, CrvServerIterator* iterator) {
    return apiFrame(ctx, [&] {
        const std::unique_ptr<CrvServerIterator> ended(iterator);
        return CRV_OK;
    });
}

int crvGetServerAPI(CRVctx* ctx, const CrvProfile* profile, long usage, const unsigned char* ca_dn, long ca_dn_len,
                    long index, CrvSrvParams* server) {
    return apiFrame(ctx, [&] {
        demand(profile && server);
        const auto use = static_cast<ServerUsage>(usage);
        return handOut(ctx, profile->getServer(use, octets(ca_dn, ca_dn_len), index, ctx->server), server);
    });
}

int crvInsertProxyAPI(CRVctx* ctx, CrvProfile* profile, const char* addr, long port, const char* user,
                      const char* password) {
    return change(ctx, profile,
                  [&] { profile->insertProxy(orEmpty(addr), port, orEmpty(user), SecretText(viewOrEmpty(password))); });
}

int crvDeleteProxyAPI(CRVctx* ctx, CrvProfile* profile) {
    return change(ctx, profile, [&] { profile->deleteProxy(); });
}

int crvGetProxyAPI(CRVctx* ctx, const CrvProfile* profile, CrvProxy* proxy) {
    return apiFrame(ctx, [&] {
        demand(profile && proxy);
        profile->getProxy(ctx->proxy);
        return handOut(ctx, proxy);
    });
}

int crvGetProxyForUrlAPI(CRVctx* ctx, const CrvProfile* profile, const char* url, CrvProxy* proxy) {
    return apiFrame(ctx, [&] {
        demand(profile && proxy && url);
        profile->getProxyForUrl(url, ctx->proxy);
        return handOut(ctx, proxy);
    });
}

int crvUseProxyForSpecifiedUrlAPI(CRVctx* ctx, const CrvProfile* profile, const char* url, int* use) {
    return apiFrame(ctx, [&] {
        demand(profile && url && use);
        *use = profile->useProxyForSpecifiedUrl(url);
        return CRV_OK;
    });
}

int crvSetUseProxyFromSystemSettingsAPI(CRVctx* ctx, CrvProfile* profile, int use) {
    return change(ctx, profile, [&] { profile->setUseProxyFromSystemSettings(use != 0); });
}
