// Finding an item in a list: "/" leaves those that hold a text, a letter goes to the next one that begins with it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace crv {

/// The filter of a list, for as long as its screen is open.
class ListSearch {
  public:
    static constexpr int kKey = '/';
    /// The row that shows the filter; screens with lists leave it free.
    static constexpr int kRow = 1;

    /// Asks for the text on the message row; an empty one ends the filter, Escape keeps it as it was.
    void ask();
    /// Indices of the items to be shown. Letters' case does not matter, of accents only how they are encoded. A filter
    /// under which nothing is left is given up, with a message.
    [[nodiscard]] std::vector<size_t> shown(const std::vector<std::string>& items);
    /// Shows the filter, if there is one, and how many of all items it leaves.
    void draw(size_t count, size_t all) const;

    /// The next item behind one, around the end, whose first letter or digit is the key's; "l" finds "Ł" too. Nothing
    /// when there is none or the key is neither.
    [[nodiscard]] static std::optional<size_t> jump(const std::vector<std::string>& items, size_t from, int key);

  private:
    std::string text_;
};

}  // namespace crv
