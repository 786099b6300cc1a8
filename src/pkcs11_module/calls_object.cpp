// Calls on the objects of a session.
#include <algorithm>

#include "pkcs11_module/frame.h"

namespace crv::p11 {
namespace {

std::span<CK_ATTRIBUTE> templateOf(CK_ATTRIBUTE* attributes, CK_ULONG count) {
    demand(attributes || count == 0, CKR_ARGUMENTS_BAD);
    return {attributes, count};
}

}  // namespace
}  // namespace crv::p11

using namespace crv::p11;

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attributes, CK_ULONG count) {
    return inModule([&](Module& module) -> CK_RV {
        const SessionPtr session = module.session(handle);
        const auto wanted = templateOf(attributes, count);
        const SeenObjects seen = session->token->objects(true);
        const TokenObject* found = seen.find(object);
        demand(found, CKR_OBJECT_HANDLE_INVALID);
        CK_RV rv = CKR_OK;
        for (CK_ATTRIBUTE& attribute : wanted)
            if (const CK_RV one = found->answer(attribute); one != CKR_OK) rv = one;
        return rv;
    });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* attributes, CK_ULONG count) {
    return inSession(handle, [&](Session& session) {
        demand(!session.search, CKR_OPERATION_ACTIVE);
        const auto wanted = templateOf(attributes, count);
        const SeenObjects seen = session.token->objects(true);
        Search search;
        seen.each([&](const TokenObject& object) {
            if (object.matches(wanted)) search.found.push_back(object.handle);
        });
        session.search = std::move(search);
    });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* objects, CK_ULONG most, CK_ULONG* count) {
    return inSession(handle, [&](Session& session) {
        Search& search = running(session.search);
        demand(count && (objects || most == 0), CKR_ARGUMENTS_BAD);
        *count = std::min<CK_ULONG>(most, search.found.size() - search.given);
        std::copy_n(search.found.begin() + static_cast<std::ptrdiff_t>(search.given), *count, objects);
        search.given += *count;
    });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE handle) {
    return inSession(handle, [&](Session& session) {
        static_cast<void>(running(session.search));
        session.search.reset();
    });
}
