#include "ops/profile_change.h"

namespace crv {

ProfileChange changeProfile(CrvProfile& profile, const ProfileSource& source,
                            const std::function<void(CrvProfile&)>& change) {
    ProfileChange result;
    try {
        profile.changeAndSave(source.media, source.file, [&](CrvProfile& target) {
            change(target);
            result.saving = true;
        });
    } catch (const std::exception&) {
        result.failure = std::current_exception();
    }
    return result;
}

}  // namespace crv
