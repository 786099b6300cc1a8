// The browser of the certificate database.
#pragma once

#include <string>
#include <vector>

#include "crvconfd/screens/crt_source.h"

namespace crv {

class SignedCertificate;

/// A list of certificates that holds one screen of them at a time, with search, details, deletion and saving.
class DbBrowser {
  public:
    /// Runs the screen until the user goes back.
    void run();

  private:
    struct Row {
        int64_t id;
        Bytes der;
        std::string text;
    };

    /// Takes a page of rows; false (and the old page stays) when there is none.
    bool show(const CrtItemList& items, size_t selected);
    bool loadForward(int64_t after, size_t selected);
    void loadLast();
    /// Reads the page again, with what lies behind its first row.
    void reload();
    void draw() const;
    void drawRow(size_t index) const;
    // What works on a row is run only while there are rows.
    void up();
    void down();
    void pageUp();
    void pageDown();
    void search();
    void fetch();
    /// Back from a search to the whole database.
    void showAll();
    void details();
    void remove();
    void save();
    /// The certificate under the cursor; false after a message when it cannot be read.
    bool current(SignedCertificate& certificate) const;

    CrtSource source_;
    std::vector<Row> rows_;
    size_t selected_ = 0;
    bool stopped_ = false;  ///< the search that found the rows
};

}  // namespace crv
