// The verbs of profiles: making, copying, showing, changing and checking them.
#include <algorithm>

#include "crvctl/verbs.h"

namespace crv::ctl {
namespace {

struct KindName {
    long type;
    const char* name;
};
constexpr KindName kKinds[] = {
    {CRVPROFILE_TYPE_PKCS12, "file"},
    {CRVPROFILE_TYPE_TARVO, "tarvo"},
    {CRVPROFILE_TYPE_PKCS11, "token"},
    {CRVPROFILE_TYPE_MEMORY, "memory"},
};
constexpr const char* kMediaNames[] = {"user", "common", "file"};
constexpr std::pair<ProfileFlaw, const char*> kFlaws[] = {
    {ProfileFlaw::KeyFileMissing, "key-file-missing"},     {ProfileFlaw::KeyFileUnreadable, "key-file-unreadable"},
    {ProfileFlaw::FolderMissing, "db-folder-missing"},     {ProfileFlaw::DatabaseMissing, "db-missing"},
    {ProfileFlaw::RootsFileMissing, "roots-file-missing"},
};

const char* kindOf(long type) {
    return std::ranges::find(kKinds, type, &KindName::type)->name;
}

Fields head(const CrvProfile& profile, ProfileMedia media) {
    return {
        {"name", profile.name()}, {"list", kMediaNames[static_cast<size_t>(media)]}, {"type", kindOf(profile.type())}};
}

FieldValues givenFields(const Call& call) {
    FieldValues values;
    for (const ProfileField& field : profileFields())
        if (const auto value = call.value(field.name)) values.emplace_back(field.name, *value);
    return values;
}

void showRecord(Run& run, const CrvProfile& profile, ProfileMedia media) {
    for (auto& [key, value] : head(profile, media)) run.out.field(key, value);
    for (const ProfileField& field : profileFields()) {
        std::string text;
        long number = 0;
        if (field.isNumber) {
            if (profile.getAttr(field.attribute, number) == kAttrOk) run.out.field(field.name, number);
        } else if (profile.getAttr(field.attribute, text) == kAttrOk && !text.empty()) {
            // Labels of tokens are padded.
            run.out.field(field.name, text.substr(0, text.find_last_not_of(' ') + 1));
        }
    }
    if (!profile.netAllow().empty()) run.out.field("net-allow", profile.netAllow());
    run.out.field("servers", profile.servers().size());
    run.out.field("usages", profile.getAcceptedExtKeyUsagesCount());
}

}  // namespace

void profileList(Run& run) {
    for (const std::string& flaw : listFlaws(run.place)) run.out.warn("a record of the list cannot be opened", flaw);
    eachProfile(run.place, [&](const CrvProfile& profile, ProfileMedia media) { run.out.item(head(profile, media)); });
}

void profileShow(Run& run) {
    const FoundProfile found = run.profile();
    showRecord(run, *found.profile, found.media);
}

void profileCreate(Run& run) {
    const std::string kind = run.call.value("type").value_or("file");
    const auto* row = std::ranges::find(kKinds, kind, [](const KindName& k) { return std::string_view(k.name); });
    const auto made = createProfile(run.place, row->type, run.call.operand(0), givenFields(run.call), run.mode);
    run.out.change("add", "profile", made->name());
    showRecord(run, *made, run.place.home());
}

void profileCopy(Run& run) {
    const auto made = copyProfile(run.place, run.call.operand(0), run.call.operand(1), givenFields(run.call), run.mode);
    run.out.change("add", "profile", made->name());
    showRecord(run, *made, run.place.home());
    if (!run.call.has("key-file") && made->kind() == ProfileKind::Pkcs12)
        run.out.warn("both profiles use the same security file", made->name());
}

void profileRename(Run& run) {
    renameProfile(run.place, run.call.operand(0), run.call.operand(1), run.mode);
    run.out.change("rename", "profile", run.call.operand(0) + " -> " + run.call.operand(1));
}

void profileSet(Run& run) {
    const FieldValues values = givenFields(run.call);
    if (values.empty()) throw CallError("missing", "--key-file, --db ...");
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) { setFields(profile, values); });
    for (const auto& [name, value] : values) run.out.change("set", name.c_str(), value);
}

void profileRemove(Run& run) {
    const std::string name = run.profile().profile->name();
    run.confirm("Remove the profile from its list (its files stay)?", name);
    removeProfile(run.place, name, run.mode);
    run.out.change("remove", "profile", name);
}

void profileCheck(Run& run) {
    const FoundProfile found = run.profile();
    const auto findings = checkProfile(*found.profile);
    for (const ProfileFinding& finding : findings) {
        const auto* row = std::ranges::find(kFlaws, finding.flaw, [](const auto& pair) { return pair.first; });
        run.out.item({{"finding", row->second}, {"path", finding.path}});
    }
    if (!findings.empty()) run.out.no(ECRV_CONF_NOT_PRES);
}

}  // namespace crv::ctl
