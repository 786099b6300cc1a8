// A line of text while it is typed: whole characters, a cursor between two of them, room for so many octets.
#pragma once

#include <string>
#include <string_view>

namespace crv {

/// Knows nothing of the screen. Texts are UTF-8; an octet that begins no character counts as one.
class LineEditor {
  public:
    /// The cursor stands behind the start text, of which at most `longest` octets are taken.
    LineEditor(std::string_view start, size_t longest);

    [[nodiscard]] const std::string& text() const { return text_; }
    /// Octets before the cursor.
    [[nodiscard]] size_t cursor() const { return cursor_; }
    /// Whether something found no room since the text was empty: what was refused in its middle no Backspace brings
    /// back.
    [[nodiscard]] bool lost() const { return lost_; }

    /// Puts a text in at the cursor; false, without a change, when there is no room.
    bool insert(std::string_view more);
    /// Puts another text in place of the whole.
    void replace(std::string_view text);
    /// Moves or erases when the key does that: arrows, Home, End, Backspace, Delete, Ctrl-A, Ctrl-E, Ctrl-U (back to
    /// the start), Ctrl-W (the word before), Ctrl-K (to the end). False for any other key.
    bool edit(int key);

  private:
    [[nodiscard]] size_t before(size_t at) const;
    [[nodiscard]] size_t behind(size_t at) const;
    [[nodiscard]] size_t wordStart() const;
    void erase(size_t from, size_t to);

    std::string text_;
    size_t cursor_;
    size_t longest_;
    bool lost_ = false;
};

}  // namespace crv
