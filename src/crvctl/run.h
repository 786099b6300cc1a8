// One run of a verb: its call, what it works on and what it answers.
#pragma once

#include <string>

#include "crvctl/arguments.h"
#include "crvctl/output.h"
#include "ops/profiles.h"

namespace crv::ctl {

/// -p, else CRV_PROFILE; empty when there is neither.
std::string namedProfile(const Call& call);

class Run {
  public:
    explicit Run(Call& given, Output& output);

    Call& call;
    Output& out;
    ListPlace place;
    OpMode mode;

    /// The profile that the verb works on: the operand where the verb takes one, else -p, else CRV_PROFILE.
    [[nodiscard]] std::string profileName() const;
    [[nodiscard]] FoundProfile profile() const { return findProfile(place, profileName()); }

    /// Asks before something is lost. Nothing is asked with --yes and in a dry run. Throws OpError (NotConfirmed).
    void confirm(const char* question, const std::string& about) const;
};

}  // namespace crv::ctl
