// The browser of the stored CRLs.
#pragma once

#include <string>
#include <vector>

#include "db_sql/crl_index.h"

namespace crv {

/// A list of the stored CRLs with issuer, number, dates and the count of revoked certificates; details with each of
/// them.
class CrlBrowser {
  public:
    /// Runs the screen until the user goes back.
    void run();

  private:
    [[nodiscard]] std::vector<std::string> items();
    void draw() const;
    void details(size_t index) const;
    void remove(size_t index) const;
    void save(size_t index) const;

    CrlIndex index_;
};

}  // namespace crv
