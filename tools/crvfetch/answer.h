// What goes back through standard output, counted against the limits of the request.
#pragma once

#include "net/fetch_message.h"

namespace crv::fetch {

inline constexpr const char* kInnerAddress = "the name leads to an address of this machine or of its own net";

class Answer {
  public:
    explicit Answer(const FetchRequest& request) : left_(request.maxSize), values_(request.maxValues) {}

    /// Begins another value; false when there are too many.
    [[nodiscard]] bool begin();
    /// Octets of the value; false when they are too many.
    [[nodiscard]] bool put(ByteView octets);
    [[nodiscard]] bool tooLong() const { return tooLong_; }
    /// Writes the last frame.
    static void end(const FetchResult& result);

  private:
    uint64_t left_, values_;
    bool tooLong_ = false;
};

/// How it ended, where from and why.
inline FetchResult outcome(FetchOutcome how, std::string cause, const std::string& url) {
    FetchResult result;
    result.outcome = how;
    result.cause = std::move(cause);
    result.url = urlForPeople(url);
    return result;
}

}  // namespace crv::fetch
