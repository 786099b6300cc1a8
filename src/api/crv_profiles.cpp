// Profile calls.
#include "api/api_frame.h"
#include "api/handles.h"
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

std::unique_ptr<CrvProfile> readProfile(int media, const char* file, const char* name) {
    demand(name);
    const ProfileMedia from = mediaOf(media, file);
    auto found =
        onList(ECRV_PROFILE_LOAD_ERROR, [&] { return CrvProfile::getProfileByName(from, orEmpty(file), name); });
    if (!found) throw CrvApiException(ECRV_PROFILE_NOT_LOADED, name);
    return found;
}

::CrvProfile* profileHandle(std::unique_ptr<CrvProfile> record) {
    auto made = std::make_unique<::CrvProfile>();
    made->record = std::move(record);
    return made.release();
}

/// The record of a handle that the caller gave.
CrvProfile& recordOf(::CrvProfile* profile) {
    demand(profile);
    return *profile->record;
}
const CrvProfile& recordOf(const ::CrvProfile* profile) {
    demand(profile);
    return *profile->record;
}

int crvInitExInt(CRVctx** ctx, int media, const char* file, const char* name) {
    CRVctx::testPrimitives();
    auto fresh = std::make_unique<CRVctx>();
    if (name) {
        fresh->setProfile(readProfile(media, file, name));
    }
    *ctx = fresh.release();
    return CRV_OK;
}

int crvGetProfileIteratorInt(int media, const char* file, long* count, CrvProfileIterator** iterator) {
    demand(iterator);
    *iterator = nullptr;
    const ProfileMedia from = mediaOf(media, file);
    auto made = std::make_unique<CrvProfileIterator>();
    made->at =
        onList(ECRV_PROFILE_LOAD_ERROR, [&] { return CrvProfile::getProfileIterator(from, orEmpty(file), count); });
    give(std::move(made), iterator);
    return CRV_OK;
}

::CrvProfile* crvGetNextProfileInt(CrvProfileIterator* iterator) {
    demand(iterator);
    std::string name;
    // A record that is none is told by its name; the next one stands behind it.
    try {
        auto record = CrvProfile::getNextProfile(*iterator->at, &name);
        if (record) return profileHandle(std::move(record));
    } catch (const StoreError& error) {
        throw CrvApiException(ECRV_INV_REG, name + ": " + error.what());
    }
    if (!name.empty()) throw CrvApiException(ECRV_INV_REG, name);
    return nullptr;
}

int crvLoadProfileInt(CRVctx* ctx, const ::CrvProfile* profile) {
    const bool bound = ctx->configurationManager.profile() != nullptr;
    const bool stored = ctx->state.pins.any();
    ctx->setProfile(profile ? profile->record->clone() : nullptr);
    if (bound && stored) ctx->state.addWarning(WARN_PINS_REMOVED);
    return CRV_OK;
}

/// Whether the list can be read; a save tells a list that cannot be read from one that cannot be written by it.
void checkReadable(ProfileMedia media, const char* file) {
    onList(ECRV_PROFILE_LOAD_ERROR, [&] {
        UniversalConfMgr list(media);
        return list.loadIfExists(CrvProfile::getCfgFileName(media, orEmpty(file)));
    });
}

int crvWriteProfileInt(CrvProfile& profile, int media, const char* file) {
    const ProfileMedia to = mediaOf(media, file);
    checkReadable(to, file);
    onList(ECRV_WR_OUTFILE, [&] { profile.saveProfileWithRollbackIfError(to, orEmpty(file)); });
    return CRV_OK;
}

int crvRemoveProfileInt(int media, const char* file, const char* name) {
    demand(name);
    const ProfileMedia from = mediaOf(media, file);
    (void)onList(ECRV_PROFILE_LOAD_ERROR, [&] { return CrvProfile::getProfileIterator(from, orEmpty(file)); });
    onList(ECRV_WR_OUTFILE, [&] { CrvProfile::removeProfile(from, orEmpty(file), name); });
    return CRV_OK;
}

::CrvProfile* crvCreateProfileInt(long type) {
    auto record = CrvProfile::create(type);
    demand(record != nullptr);
    return profileHandle(std::move(record));
}

int crvGetAcceptedExtKeyUsageInt(const CrvProfile& profile, long index, char* oid, long* oidLen, char* description,
                                 long* descriptionLen) {
    std::string text;
    ASNobjectId id;
    demand(profile.getAcceptedExtKeyUsage(index, text, id));
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
    if (isForkedChild()) return ECRV_INV_WRK_MODE;
    try {
        putText(initFailure(), {});
        watchForks();
        return crvInitExInt(ctx, media, file, name);
    } catch (...) {
        return codeOfException(nullptr);
    }
}

int crvDeinitExAPI(CRVctx* ctx) {
    if (const int code = CallGuard(ctx).code()) return code;
    const std::unique_ptr<CRVctx> ended(ctx);
    return CRV_OK;
}

int crvLoadProfileAPI(CRVctx* ctx, const ::CrvProfile* profile) {
    return apiFrame(ctx, [&] { return crvLoadProfileInt(ctx, profile); });
}

int crvGetProfileIteratorAPI(CRVctx* ctx, int media, const char* file, long* count, CrvProfileIterator** iterator) {
    return apiFrame(ctx, [&] { return crvGetProfileIteratorInt(media, file, count, iterator); });
}

::CrvProfile* crvGetNextProfileAPI(CRVctx* ctx, CrvProfileIterator* iterator) {
    return apiPointerFrame(ctx, [&] { return crvGetNextProfileInt(iterator); });
}

int crvFreeProfileIteratorAPI(CRVctx* ctx, CrvProfileIterator* iterator) {
    return freeHandle(ctx, iterator);
}

::CrvProfile* crvReadProfileAPI(CRVctx* ctx, int media, const char* file, const char* name) {
    return apiPointerFrame(ctx, [&] { return profileHandle(readProfile(media, file, name)); });
}

::CrvProfile* crvCreateProfileAPI(CRVctx* ctx, long type) {
    return apiPointerFrame(ctx, [&] { return crvCreateProfileInt(type); });
}

int crvFreeProfileAPI(CRVctx* ctx, ::CrvProfile* profile) {
    return freeHandle(ctx, profile);
}

int crvWriteProfileAPI(CRVctx* ctx, ::CrvProfile* profile, int media, const char* file) {
    return apiFrame(ctx, [&] { return crvWriteProfileInt(recordOf(profile), media, file); });
}

int crvRemoveProfileAPI(CRVctx* ctx, int media, const char* file, const char* name) {
    return apiFrame(ctx, [&] { return crvRemoveProfileInt(media, file, name); });
}

int crvGetProfileAttrAPI(CRVctx* ctx, const ::CrvProfile* profile, long id, char* buf, long* len) {
    return apiFrame(ctx, [&] { return codeOfProfileResult(recordOf(profile).getAttr(id, buf, len)); });
}

int crvSetProfileAttrAPI(CRVctx* ctx, ::CrvProfile* profile, long id, const char* value, long len) {
    return apiFrame(ctx, [&] { return codeOfProfileResult(recordOf(profile).setAttr(id, value, len)); });
}

int crvAddAcceptedExtKeyUsageAPI(CRVctx* ctx, ::CrvProfile* profile, const char* oid, const char* description) {
    return apiFrame(ctx, [&] {
        demand(oid && description);
        recordOf(profile).addAcceptedExtKeyUsage(oid, std::string(textIn(description)));
        return CRV_OK;
    });
}

int crvDelAcceptedExtKeyUsageAPI(CRVctx* ctx, ::CrvProfile* profile, const char* oid) {
    return apiFrame(ctx, [&] {
        demand(oid && recordOf(profile).delAcceptedExtKeyUsage(oid));
        return CRV_OK;
    });
}

int crvGetAcceptedExtKeyUsagesCountAPI(CRVctx* ctx, const ::CrvProfile* profile, long* count) {
    return apiFrame(ctx, [&] {
        demand(count);
        *count = recordOf(profile).getAcceptedExtKeyUsagesCount();
        return CRV_OK;
    });
}

int crvGetAcceptedExtKeyUsageAPI(CRVctx* ctx, const ::CrvProfile* profile, long index, char* oid, long* oidLen,
                                 char* description, long* descriptionLen) {
    return apiFrame(ctx, [&] {
        return crvGetAcceptedExtKeyUsageInt(recordOf(profile), index, oid, oidLen, description, descriptionLen);
    });
}
