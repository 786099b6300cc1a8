#include "crvconfd/engines/pick_list.h"

#include <algorithm>
#include <optional>

#include "crvconfd/engines/list_search.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

KeyRows pickKeys(bool leavesByW) {
    return {{"strzałki, spacja, +, -, PgUp, PgDn, Home, End", "wybór"},
            {"Enter", "zatwierdzenie"},
            {"/", "tylko wiersze z podanym tekstem"},
            {"inne litery, cyfry", "następny wiersz na tę literę"},
            {leavesByW ? "W, Esc" : "Esc", "powrót"},
            {"F1, ?", "ta pomoc"}};
}

/// One showing of the list: what is left of the items and what was typed.
class Picking {
  public:
    Picking(const PickPlace& place, const std::vector<std::string>& items, ListSearch& search)
        : place_(place), search_(search), indices_(search.shown(items)) {
        for (const size_t index : indices_) shown_.push_back(items[index]);
        search_.draw(shown_.size(), items.size());
    }

    /// False when the list is to be shown anew; selected is the item under the cursor, or what was picked, or -1.
    bool run(int& selected) {
        const auto at = std::ranges::lower_bound(indices_, static_cast<size_t>(std::max(selected, 0)));
        const bool found = selected >= 0 && at != indices_.end();
        int place = found ? static_cast<int>(at - indices_.begin()) : -1;
        for (;;) {
            jumpTo_.reset();
            const int chosen = showCentMenuList(place_.row, shown_, place, place_.rows, true,
                                                [&](int key, int current) { return onKey(key, current); });
            if (jumpTo_) {
                place = static_cast<int>(*jumpTo_);
                continue;
            }
            const int under = again_ ? current_ : chosen;
            selected = under < 0 ? -1 : static_cast<int>(indices_[static_cast<size_t>(under)]);
            return !again_;
        }
    }

  private:
    ShowMenuListCallbackRet onKey(int key, int current) {
        if (place_.leavesByW && isLetter(key, 'w')) return ShowMenuListCallbackRet::LeaveCancel;
        current_ = current;
        if (isHelp(key)) {
            showKeys(pickKeys(place_.leavesByW));
            return ShowMenuListCallbackRet::NextKey;
        }
        again_ = key == ListSearch::kKey;
        if (again_) search_.ask();
        jumpTo_ = ListSearch::jump(shown_, current < 0 ? shown_.size() - 1 : static_cast<size_t>(current), key);
        return again_ || jumpTo_ ? ShowMenuListCallbackRet::LeaveCancel : ShowMenuListCallbackRet::Continue;
    }

    const PickPlace& place_;
    ListSearch& search_;
    std::vector<size_t> indices_;  // of the items shown
    std::vector<std::string> shown_;
    std::optional<size_t> jumpTo_;
    int current_ = -1;
    bool again_ = false;
};

}  // namespace

int pickFromList(const PickPlace& place, const std::vector<std::string>& items, int selected) {
    ListSearch search;
    if (selected >= static_cast<int>(items.size())) selected = -1;
    for (;;) {
        const ScreenKeeper keeper;
        if (Picking(place, items, search).run(selected)) return selected;
    }
}

}  // namespace crv
