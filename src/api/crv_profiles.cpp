// Profile calls.
#include "api/api_frame.h"
#include "asn/asn_object_id.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "profiles/crv_profile.h"

namespace crv {
namespace {

/// Runs work on a list; what the list's reader says becomes the code together with its text.
template <class Work>
auto onList(int code, Work work) {
    try {
        return work();
    } catch (const StoreError& error) {
        throw CrvApiException(code, error.what());
    }
}

ProfileMedia mediaOf(int media, const char* file) {
    demand(media >= CRVPROFILE_MEDIA_USER && media <= CRVPROFILE_MEDIA_FILE);
    demand(media != CRVPROFILE_MEDIA_FILE || file);
    return static_cast<ProfileMedia>(media);
}

std::unique_ptr<CrvProfile> crvReadProfileInt(int media, const char* file, const char* name) {
    demand(name);
    const ProfileMedia from = mediaOf(media, file);
    return onList(ECRV_PROFILE_LOAD_ERROR, [&] { return CrvProfile::getProfileByName(from, orEmpty(file), name); });
}

int crvInitExInt(CRVctx** ctx, int media, const char* file, const char* name) {
    CRVctx::testPrimitives();
    auto fresh = std::make_unique<CRVctx>();
    if (name) {
        auto profile = crvReadProfileInt(media, file, name);
        if (!profile) return ECRV_PROFILE_NOT_LOADED;
        fresh->setProfile(std::move(profile));
    }
    *ctx = fresh.release();
    return CRV_OK;
}

int crvGetProfileIteratorInt(int media, const char* file, long* count, CrvProfileIterator** iterator) {
    demand(iterator);
    *iterator = nullptr;
    const ProfileMedia from = mediaOf(media, file);
    *iterator = onList(ECRV_PROFILE_LOAD_ERROR, [&] {
                    return CrvProfile::getProfileIterator(from, orEmpty(file), count);
                }).release();
    return CRV_OK;
}

/// Whether the list can be read; a save tells a list that cannot be read from one that cannot be written by it.
void checkReadable(ProfileMedia media, const char* file) {
    onList(ECRV_PROFILE_LOAD_ERROR, [&] {
        UniversalConfMgr list(media);
        return list.loadIfExists(CrvProfile::getCfgFileName(media, orEmpty(file)));
    });
}

int crvWriteProfileInt(CrvProfile* profile, int media, const char* file) {
    demand(profile);
    const ProfileMedia to = mediaOf(media, file);
    checkReadable(to, file);
    onList(ECRV_WR_OUTFILE, [&] { profile->saveProfileWithRollbackIfError(to, orEmpty(file)); });
    return CRV_OK;
}

int crvRemoveProfileInt(int media, const char* file, const char* name) {
    demand(name);
    const ProfileMedia from = mediaOf(media, file);
    (void)onList(ECRV_PROFILE_LOAD_ERROR, [&] { return CrvProfile::getProfileIterator(from, orEmpty(file)); });
    onList(ECRV_WR_OUTFILE, [&] { CrvProfile::removeProfile(from, orEmpty(file), name); });
    return CRV_OK;
}

int crvGetAcceptedExtKeyUsageInt(const CrvProfile* profile, long index, char* oid, long* oidLen, char* description,
                                 long* descriptionLen) {
    std::string text;
    ASNobjectId id;
    demand(profile && profile->getAcceptedExtKeyUsage(index, text, id));
    const int code = copyOut(id.text(), oid, oidLen);
    const int second = copyOut(text, description, descriptionLen);
    return code ? code : second;
}

}  // namespace
}  // namespace crv

using namespace crv;

int crvInitExAPI(CRVctx** ctx, int media, const char* file, const char* name) {
    if (!ctx) return ECRV_API_INV_PAR;
    *ctx = nullptr;
    try {
        return crvInitExInt(ctx, media, file, name);
    } catch (...) {
        return codeOfException(nullptr);
    }
}

int crvDeinitExAPI(CRVctx* ctx) {
    if (const int code = checkCRVctx(ctx)) return code;
    const std::unique_ptr<CRVctx> ended(ctx);
    return CRV_OK;
}

int crvLoadProfileAPI(CRVctx* ctx, const CrvProfile* profile) {
    return apiFrame(ctx, [&] {
        ctx->setProfile(profile ? profile->clone() : nullptr);
        return CRV_OK;
    });
}

int crvGetProfileIteratorAPI(CRVctx* ctx, int media, const char* file, long* count, CrvProfileIterator** iterator) {
    return apiFrame(ctx, [&] { return crvGetProfileIteratorInt(media, file, count, iterator); });
}

CrvProfile* crvGetNextProfileAPI(CRVctx* ctx, CrvProfileIterator* iterator) {
    return apiPointerFrame(ctx, [&] { return iterator ? CrvProfile::getNextProfile(*iterator).release() : nullptr; });
}

int crvFreeProfileIteratorAPI(CRVctx* ctx, CrvProfileIterator* iterator) {
    return apiFrame(ctx, [&] {
        const std::unique_ptr<CrvProfileIterator> ended(iterator);
        return CRV_OK;
    });
}

CrvProfile* crvReadProfileAPI(CRVctx* ctx, int media, const char* file, const char* name) {
    return apiPointerFrame(ctx, [&] { return crvReadProfileInt(media, file, name).release(); });
}

CrvProfile* crvCreateProfileAPI(CRVctx* ctx, long type) {
    return apiPointerFrame(ctx, [&] { return CrvProfile::create(type).release(); });
}

int crvFreeProfileAPI(CRVctx* ctx, CrvProfile* profile) {
    return apiFrame(ctx, [&] {
        const std::unique_ptr<CrvProfile> ended(profile);
        return CRV_OK;
    });
}

int crvWriteProfileAPI(CRVctx* ctx, CrvProfile* profile, int media, const char* file) {
    return apiFrame(ctx, [&] { return crvWriteProfileInt(profile, media, file); });
}

int crvRemoveProfileAPI(CRVctx* ctx, int media, const char* file, const char* name) {
    return apiFrame(ctx, [&] { return crvRemoveProfileInt(media, file, name); });
}

int crvGetProfileAttrAPI(CRVctx* ctx, const CrvProfile* profile, long id, char* buf, long* len) {
    return apiFrame(ctx, [&] {
        demand(profile);
        return codeOfProfileResult(profile->getAttr(id, buf, len));
    });
}

int crvSetProfileAttrAPI(CRVctx* ctx, CrvProfile* profile, long id, const char* value, long len) {
    return apiFrame(ctx, [&] {
        demand(profile);
        return codeOfProfileResult(profile->setAttr(id, value, len));
    });
}

int crvAddAcceptedExtKeyUsageAPI(CRVctx* ctx, CrvProfile* profile, const char* oid, const char* description) {
    return apiFrame(ctx, [&] {
        demand(profile && oid && description);
        profile->addAcceptedExtKeyUsage(oid, description);
        return CRV_OK;
    });
}

int crvDelAcceptedExtKeyUsageAPI(CRVctx* ctx, CrvProfile* profile, const char* oid) {
    return apiFrame(ctx, [&] {
        demand(profile && oid && profile->delAcceptedExtKeyUsage(oid));
        return CRV_OK;
    });
}

int crvGetAcceptedExtKeyUsagesCountAPI(CRVctx* ctx, const CrvProfile* profile, long* count) {
    return apiFrame(ctx, [&] {
        demand(profile && count);
        *count = profile->getAcceptedExtKeyUsagesCount();
        return CRV_OK;
    });
}

int crvGetAcceptedExtKeyUsageAPI(CRVctx* ctx, const CrvProfile* profile, long index, char* oid, long* oidLen,
                                 char* description, long* descriptionLen) {
    return apiFrame(
        ctx, [&] { return crvGetAcceptedExtKeyUsageInt(profile, index, oid, oidLen, description, descriptionLen); });
}
