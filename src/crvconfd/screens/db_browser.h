// The browser of the certificate database.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "crvconfd/screens/crt_source.h"

namespace crv {

class SignedCertificate;

/// By what the browser sorts. The state is no order: it takes a path for each certificate.
enum class CrtOrder { Record, Subject, Issuer, Expiry };

/// A list of certificates that holds one screen of them at a time, with search, sorting, details, deletion and saving.
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
    bool loadFrom(int64_t id, size_t selected);
    bool loadForward(int64_t after, size_t selected);
    bool loaded(bool read, const CrtItemList& items, size_t selected);
    void loadLast();
    /// Reads the page again, with what lies behind its first row.
    void reload();
    /// The page as the screen is now.
    void fitPage();
    void draw() const;
    void drawRow(size_t index) const;
    // What works on a row is run only while there are rows.
    void up();
    void down();
    void pageUp();
    void pageDown();
    void search();
    /// Sorts what is shown by the next column; behind the last one in the order of the records again.
    void sort();
    void sortBy(CrtOrder order);
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
    size_t page_ = 0;                            ///< rows of the screen
    int columns_ = 0;                            ///< of the screen for which the rows were made
    bool stopped_ = false;                       ///< the search that found the rows
    std::optional<std::vector<int64_t>> found_;  ///< what the search found, by ascending id
    CrtOrder order_ = CrtOrder::Record;
};

}  // namespace crv
