// Watching over all profiles for what ends soon.
#include <algorithm>
#include <ctime>
#include <map>

#include "crvctl/secrets.h"
#include "crvctl/show.h"
#include "crvctl/statuses.h"
#include "crvctl/texts.h"
#include "crvctl/verbs.h"
#include "keystore/file_history.h"
#include "misc/utf8.h"
#include "misc/whole_file.h"
#include "ops/watch.h"

namespace crv::ctl {
namespace {

constexpr int64_t kSecondsOfDay = 86400;
constexpr const char* kKindNames[] = {"certificate", "trust-point", "crl"};

/// Beyond this every number of days means the same: all that ends at all.
constexpr int64_t kMostDays = 1000000;
constexpr int64_t kDefaultDays = 30;

class Watch {
  public:
    explicit Watch(Run& run)
        : run_(run),
          hasPassword_(readGivenSecret(run.call, "password", password_)),
          hasPin_(readGivenSecret(run.call, "pin", pin_)),
          prometheus_(run.call.value("format") == "prometheus"),
          now_(std::time(nullptr)) {
        const auto days = run.call.value("days");
        const int64_t number = days ? std::strtoll(days->c_str(), nullptr, 10) : kDefaultDays;
        limit_ = std::min(number, kMostDays) * kSecondsOfDay;
    }

    /// What fails of one profile does not keep the others from being looked at.
    void look(const std::string& name, ProfileMedia media) {
        stopIfEnding();
        ListPlace place = run_.place;
        if (place.kind == AvailableProfiles::All && media == ProfileMedia::Common)
            place.kind = AvailableProfiles::Common;
        profile_ = name;
        bool whole = attempt([&] {
            Session session(findProfile(place, name), run_.mode);
            watchDatabase(session, [this](const Watched& one) { show(one); });
        });
        whole = attempt([&] {
                    Session session(findProfile(place, name), run_.mode);
                    open(session);
                    watchKeys(session, [this](const Watched& one) { show(one); });
                }) &&
                whole;
        bool& looked = looked_.try_emplace(name, true).first->second;
        looked = looked && whole;
    }

    void finish() {
        if (prometheus_) run_.out.raw(metrics());
        // What ends is told first: a profile that is never looked at would hide it for good.
        if (ends_) run_.out.no(ECRV_CRTAFTER);
        if (!ends_ && failure_ != 0) run_.out.no(failure_, status_);
    }

    /// A record that nobody can open belongs to a profile that is not looked at.
    void tellFlaw(const std::string& flaw) {
        run_.out.warn("a record of the list cannot be opened", flaw);
        noteFailure(ECRV_INV_REG, OpStatus::Io);
    }

  private:
    /// Labels of a series, and the earliest end among those of the same name.
    using Series = std::map<std::string, int64_t>;

    template <class Work>
    bool attempt(const Work& work) {
        try {
            work();
            return true;
        } catch (const OpError& failure) {
            stopIfEnding();
            // One that was never begun has nothing that ends.
            if (failure.fault() == OpFault::StoreMissing || failure.fault() == OpFault::DatabaseMissing) return true;
            const std::string about = tr(failure.what());
            run_.out.warn(faultText(failure.fault()), profile_ + (about.empty() ? "" : ": " + about));
            noteFailure(failure.code(), failure.status());
        } catch (const std::exception& failure) {
            stopIfEnding();
            run_.out.warn(faultText(OpFault::LibraryFailed), profile_ + ": " + failure.what());
            noteFailure(ECRV_INTERNAL_ERROR, OpStatus::Internal);
        }
        return false;
    }

    /// The first one is told at the end. Status 1 says that something ends, never that nobody could look.
    void noteFailure(int code, OpStatus status) {
        if (failure_ != 0) return;
        failure_ = code;
        status_ = status == OpStatus::No ? OpStatus::Io : status;
    }

    /// A secret of the profile's own comes before those of the call, which serve every profile. Nobody is asked.
    bool findSecret(const std::string& kind, SecretText& secret) const {
        if (readCredentialOf(profile_, kind, secret)) return true;
        const bool token = kind == "pin";
        secret = token ? pin_ : password_;
        return token ? hasPin_ : hasPassword_;
    }

    /// No card is brought nearer to its last try.
    void open(Session& session) {
        const bool token = session.profile().kind() != ProfileKind::Pkcs12;
        const std::string file = token ? "" : session.configuration().securityFileName();
        // One that was there leaves the folder of its history behind: it is lost, not still to be made. A lock file
        // says nothing, a creation that failed leaves one too.
        const bool lost = !file.empty() && !fileExists(file) && fileExists(historyFolder(file));
        if (lost) hintAtHistory(run_, file);
        if (lost) throw OpError(OpFault::FileMissing, file);
        const std::string kind = token ? "pin" : "password";
        SecretText secret;
        if (!findSecret(kind, secret)) throw OpError(OpFault::SecretMissing, kind);
        const char* spared = nullptr;
        session.context().state.prompt = [&secret](PinSlot, SecretText& pin) {
            pin = secret;
            return kPinOk;
        };
        session.context().state.tokenNotices = [&spared](TokenNotice notice, const std::string&) {
            const bool few = notice == TokenNotice::FinalTry || notice == TokenNotice::FewTries;
            if (few) spared = "a wrong PIN was given to the card before";
            if (notice == TokenNotice::PinOnReader) spared = "the PIN is entered on the reader";
            return !spared;
        };
        try {
            session.openForReading({secret, std::nullopt});
        } catch (const OpError& failure) {
            if (!spared) throw;
            throw OpError(failure.fault(), OpStatus::Secret, failure.code(), spared);
        }
        session.context().state.prompt = nullptr;
        session.context().state.tokenNotices = nullptr;
    }

    void show(const Watched& one) {
        const char* kind = kKindNames[static_cast<size_t>(one.kind)];
        const int64_t left = one.ends.value_or(INT64_MAX) - now_;
        const bool soon = left < limit_;
        ends_ = ends_ || soon;
        if (prometheus_) return addSeries(kind, one);
        if (!soon && !run_.call.has("all")) return;
        run_.out.item({{"profile", profile_},
                       {"kind", kind},
                       {"name", one.name},
                       {"ends", timeOf(one.ends)},
                       {"days", one.ends ? Value(static_cast<long>(left / kSecondsOfDay)) : Value()},
                       {"state", left < 0 ? "ended"
                                 : soon   ? "soon"
                                          : "good"}});
    }

    void addSeries(const char* kind, const Watched& one) {
        if (!one.ends) return;
        const std::string labels = "profile=" + quoted(profile_) + ",kind=\"" + kind + "\",name=" + quoted(one.name);
        const auto [at, added] = series_.try_emplace(labels, *one.ends);
        if (!added) at->second = std::min(at->second, *one.ends);
    }

    /// The text format of version 0.0.4.
    [[nodiscard]] std::string metrics() const {
        std::string text =
            "# HELP corvane_profile_looked_at Whether keys and database of the profile could be looked at.\n"
            "# TYPE corvane_profile_looked_at gauge\n";
        for (const auto& [name, whole] : looked_)
            text += "corvane_profile_looked_at{profile=" + quoted(name) + "} " + (whole ? "1\n" : "0\n");
        text +=
            "# HELP corvane_end_timestamp_seconds When it ends, in seconds since 1970 UTC.\n"
            "# TYPE corvane_end_timestamp_seconds gauge\n";
        for (const auto& [labels, ends] : series_)
            text += "corvane_end_timestamp_seconds{" + labels + "} " + std::to_string(ends) + "\n";
        return text;
    }

    static std::string quoted(const std::string& text) {
        std::string out = "\"";
        for (const char c : harmlessUtf8(text)) {
            if (c == '\\' || c == '"') out += '\\';
            out += c == '\n' ? std::string("\\n") : std::string(1, c);
        }
        return out + "\"";
    }

    Run& run_;
    SecretText password_, pin_;  // before what tells whether they were read
    bool hasPassword_, hasPin_;
    bool prometheus_;
    int64_t now_;
    int64_t limit_ = 0;
    std::string profile_;
    Series series_;
    std::map<std::string, bool> looked_;
    int failure_ = 0;
    OpStatus status_ = OpStatus::Done;
    bool ends_ = false;
};

}  // namespace

void watch(Run& run) {
    std::vector<std::pair<std::string, ProfileMedia>> listed;
    eachProfileName(run.place, [&](const std::string& name, ProfileMedia media) { listed.emplace_back(name, media); });
    Watch all(run);
    for (const std::string& flaw : listFlaws(run.place)) all.tellFlaw(flaw);
    for (const auto& [name, media] : listed) all.look(name, media);
    all.finish();
}

}  // namespace crv::ctl
