#include "ops/profile_change.h"

#include "misc/exceptions.h"
#include "ops/op_error.h"
#include "ops/profiles.h"

namespace crv {

namespace {
/// Seconds that somebody before a screen waits for another program's change.
constexpr double kPatience = 5.0;
}  // namespace

ProfileChange changeProfile(CrvProfile& profile, const ProfileSource& source,
                            const std::function<void(CrvProfile&)>& change) {
    ProfileChange result;
    try {
        const ListLock lock(source.media, source.file, {.dryRun = false, .waitSeconds = kPatience});
        profile.changeAndSave(source.media, source.file, [&](CrvProfile& target) {
            change(target);
            result.saving = true;
        });
    } catch (const OpError& error) {
        const StoreError failure(StoreCause::NotLocked, std::string("Błąd blokady pliku: ") + error.what());
        result.failure = std::make_exception_ptr(failure);
    } catch (const std::exception&) {
        result.failure = std::current_exception();
    }
    return result;
}

}  // namespace crv
