// The list menu.
#include <algorithm>
#include <optional>

#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crvconfd/toolkit/toolkit_internal.h"
#include "misc/utf8.h"

namespace crv {

namespace {

int longest(std::span<const std::string> items) {
    size_t length = 0;
    for (const std::string& item : items) length = std::max(length, item.size());
    return static_cast<int>(std::min<size_t>(length, 1000));
}

/// Translation of keys and the hidden cursor, for as long as the list is shown.
class ListModes {
  public:
    ListModes() { setKeypadMode(true); }
    ~ListModes() { toolkit::translateKeys(false); }
    ListModes(const ListModes&) = delete;
    ListModes& operator=(const ListModes&) = delete;

    static void takeBack() {
        setKeypadMode(true);
        showCursor(false);
    }

  private:
    CursorGuard cursor_{false};
};

class ListMenu {
  public:
    ListMenu(int row, int col, std::span<const std::string> items, int selected, int rows, bool framed)
        : items_(items), framed_(framed), row_(row), col_(col), count_(static_cast<int>(items.size())) {
        visible_ = rows <= 0 || rows > count_ ? count_ : rows;
        current_ = selected >= 0 && selected < count_ ? selected : -1;
        if (framed_) {
            if (row_ + visible_ + 1 > screenRows() - 1) visible_ = screenRows() - 2 - row_;
        } else if (row_ + visible_ > screenRows()) {
            visible_ = screenRows() - row_;
        }
        visible_ = std::max(visible_, 0);
        width_ = framed_ ? std::min(longest(items) + 2, shownColumns() - 2)
                         : std::min(longest(items) + 1, shownColumns() - 1);
        follow();
    }

    int run(const ShowMenuListCallback& callback) {
        const ListModes modes;
        draw();
        for (;;) {
            const int key = toolkit::readListKey();
            const std::optional<int> result = callback ? ask(callback, key) : handle(key);
            if (result) return *result;
        }
    }

  private:
    std::optional<int> ask(const ShowMenuListCallback& callback, int key) {
        const ShowMenuListCallbackRet wish = callback(key, current_);
        ListModes::takeBack();
        switch (wish) {
            case ShowMenuListCallbackRet::Continue:
                return handle(key);
            case ShowMenuListCallbackRet::NextKey:
                break;
            case ShowMenuListCallbackRet::Redraw:
                draw();
                break;
            case ShowMenuListCallbackRet::LeaveCancel:
                return -1;
            case ShowMenuListCallbackRet::LeaveSelected:
                if (current_ >= 0) return current_;
                break;
        }
        return std::nullopt;
    }

    std::optional<int> handle(int key) {
        switch (key) {
            case kKeyEscape:
                return -1;
            case '\r':
            case kKeyEnter:
            case kListKeyEnter:
                if (current_ >= 0) return current_;
                return std::nullopt;
            default:
                break;
        }
        if (const int next = target(key); count_ > 0 && next != current_) {
            current_ = next;
            follow();
            draw();
        }
        return std::nullopt;
    }

    /// The index to which a key leads.
    [[nodiscard]] int target(int key) const {
        switch (key) {
            case kListKeyUp:
            case '-':
            case '_':
            case kKeyBackspace:
            case 127:
            case kListKeyBackspace:
                return current_ <= 0 ? count_ - 1 : current_ - 1;
            case kListKeyDown:
            case ' ':
            case '+':
            case '=':
                return current_ + 1 == count_ ? 0 : current_ + 1;
            case kListKeyHome:
                return 0;
            case kListKeyEnd:
                return count_ - 1;
            case kListKeyPageUp:
                return std::max(current_ - visible_, 0);
            case kListKeyPageDown:
                return std::min(current_ + visible_, count_ - 1);
            default:
                return current_;
        }
    }

    /// Scrolls no further than it takes to show the current item.
    void follow() {
        if (current_ >= first_ + visible_) first_ = current_ - visible_ + 1;
        if (current_ >= 0 && current_ < first_) first_ = current_;
    }

    void draw() const {
        if (framed_) drawFrame();
        for (int line = 0; line < visible_; ++line) drawItem(row_ + line + (framed_ ? 1 : 0), first_ + line);
        if (current_ >= 0) toolkit::movePen(row_ + current_ - first_ + (framed_ ? 1 : 0), col_ + (framed_ ? 1 : 0));
        toolkit::show();
    }

    void drawFrame() const {
        const std::string bar = "+" + std::string(static_cast<size_t>(width_), '-') + "+";
        const std::string side = "|" + std::string(static_cast<size_t>(width_), ' ') + "|";
        for (int line = 0; line <= visible_ + 1; ++line) {
            if (toolkit::movePen(row_ + line, col_)) toolkit::put(line == 0 || line == visible_ + 1 ? bar : side);
        }
    }

    void drawItem(int row, int index) const {
        const int left = col_ + (framed_ ? 1 : 0);
        if (!toolkit::movePen(row, left)) return;
        const bool current = index == current_;
        const bool bracketed = current && getSelectedAttr() == 0;
        const AttrGuard guard(current ? kAttrSelected : 0);
        toolkit::put(!current ? " " : bracketed ? "[" : ">");
        toolkit::put(pl(cut(items_[static_cast<size_t>(index)])), left + width_);
        // Without a frame the line has no free last column, so the bracket stands one further.
        const int end = left + width_ + (framed_ || getSelectedAttr() != 0 ? 0 : 1);
        toolkit::fillTo(bracketed ? end - 1 : end);
        if (bracketed) toolkit::put("]");
    }

    [[nodiscard]] std::string cut(const std::string& text) const {
        const int limit = framed_ ? width_ - 1 : width_;
        if (static_cast<int>(text.size()) < limit) return text;
        return std::string(cutText(text, static_cast<size_t>(limit - 4))) + "...";
    }

    std::span<const std::string> items_;
    bool framed_;
    int row_;
    int col_;
    int count_;
    int visible_ = 0;
    int width_ = 0;
    int current_ = -1;
    int first_ = 0;
};

}  // namespace

int showMenuList(int row, int col, std::span<const std::string> items, int selected, int rows, bool framed,
                 const ShowMenuListCallback& callback) {
    return ListMenu(row, col, items, selected, rows, framed).run(callback);
}

int showCentMenuList(int row, std::span<const std::string> items, int selected, int rows, bool framed,
                     const ShowMenuListCallback& callback) {
    const int width = longest(items) + (framed ? 4 : 1);
    const int col = width >= shownColumns() ? 0 : (shownColumns() - width) / 2;
    return showMenuList(row, col, items, selected, rows, framed, callback);
}

}  // namespace crv
