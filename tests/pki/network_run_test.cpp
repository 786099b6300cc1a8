// Errands on their way, with a program in the helper's place that answers what the name of the host says.
#include "pki/network_run.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "corvane/crverrors.h"
#include "support/temp_dir.h"

using namespace crv;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/// Requests to a host "bad..." fail, those to "slow..." take their time, those to "hang..." never end. Each run leaves
/// a line in "asked".
constexpr const char* kScript = R"(#!/bin/sh
exec 2>/dev/null
request=$(/usr/bin/tr -cd 'a-z0-9:/.')
case "$request" in *slow*) /bin/sleep 0.6;; *hang*) echo hang >>DIR/asked; exec /bin/sleep 60;; esac
echo "$request" >>DIR/asked
case "$request" in *bad*) exec /bin/cat DIR/bad;; *) exec /bin/cat DIR/good;; esac
)";

class NetRunTest : public testing::Test {
  protected:
    NetRunTest() {
        FetchResult end;
        end.outcome = FetchOutcome::Done;
        test::writeFile(dir_.file("good"), std::string(asText(encodeEnd(end))));
        end.outcome = FetchOutcome::NotFound;
        test::writeFile(dir_.file("bad"), std::string(asText(encodeEnd(end))));
        std::string script = kScript;
        for (size_t at; (at = script.find("DIR/")) != std::string::npos;) script.replace(at, 4, dir_.file(""));
        test::writeFile(dir_.file("helper"), script);
        chmod(dir_.file("helper").c_str(), 0700);
        setFetchHelperPath(dir_.file("helper"));
        FailedHosts::instance().clear();
    }
    ~NetRunTest() override {
        setFetchHelperPath("");
        FailedHosts::instance().clear();
    }

    NetErrand errand(const std::string& name, const std::vector<std::string>& hosts) {
        NetErrand errand;
        errand.name = name;
        for (const std::string& host : hosts) {
            NetAttempt attempt;
            attempt.server = host;
            attempt.request.url = "http://" + host + "/";
            errand.attempts.push_back(attempt);
        }
        errand.judge = [this, name](const NetAttempt&, FetchResult&) {
            judged_.push_back(name);
            return NetVerdict();
        };
        return errand;
    }
    size_t asked() {
        std::ifstream file(dir_.file("asked"));
        size_t lines = 0;
        for (std::string line; std::getline(file, line);) ++lines;
        return lines;
    }
    static bool hasChildren() {
        std::ifstream file("/proc/self/task/" + std::to_string(getpid()) + "/children");
        std::string pid;
        return static_cast<bool>(file >> pid);
    }

    test::TempDir dir_;
    std::vector<std::string> judged_;
};

TEST_F(NetRunTest, AStopEndsWhatIsAtWorkAndNothingMoreIsAsked) {
    std::vector<NetErrand> errands;
    errands.push_back(errand("done", {"good"}));
    for (int i = 0; i < 9; ++i) {
        const std::string host = "hang" + std::to_string(i);
        errands.push_back(errand(host, {host, "good"}));
    }
    NetRun run(std::move(errands));
    Clock::time_point stopped;
    const auto started = Clock::now();
    run.finish([&](const FetchProgress& progress) {
        stopped = Clock::now();
        return (judged_.empty() || asked() < 7 || progress.name.empty()) && stopped - started < 10s;
    });
    EXPECT_LT(Clock::now() - stopped, 200ms);
    EXPECT_EQ(judged_, std::vector<std::string>{"done"});
    EXPECT_EQ(asked(), 7U) << "six at once, and none after the stop";
    for (const NetErrand& one : run.errands())
        EXPECT_EQ(one.verdict.code, one.name == "done" ? 0 : ECRV_ACTION_CANCELLED) << one.name;
    EXPECT_TRUE(run.advance());
    EXPECT_FALSE(FailedHosts::instance().isBehind(run.errands()[1].attempts[0].request));
    EXPECT_EQ(asked(), 7U);
}

TEST_F(NetRunTest, ASlowServerHoldsNobodyUpAndEqualRequestsAreMadeOnce) {
    std::vector<NetErrand> errands;
    errands.push_back(errand("slow", {"slow"}));
    errands.push_back(errand("third", {"bad1", "bad2", "good"}));
    errands.push_back(errand("again", {"slow"}));
    NetErrand other = errand("login", {"slow"});
    other.attempts[0].request.user = "jan";
    errands.push_back(std::move(other));
    NetRun run(std::move(errands));
    run.finish({});
    EXPECT_EQ(judged_.front(), "third");
    EXPECT_EQ(judged_.size(), 4U);
    EXPECT_EQ(asked(), 5U) << "the slow one twice, as two users";
    EXPECT_FALSE(hasChildren());
}

}  // namespace
