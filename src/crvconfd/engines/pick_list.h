// Picking one of many over what stands on the screen.
#pragma once

#include <string>
#include <vector>

namespace crv {

/// Where the framed list stands, centred, and what it may show.
struct PickPlace {
    int row;
    int rows = 0;            ///< items seen at once; 0: as many as fit
    bool leavesByW = false;  ///< W goes back like Escape instead of finding an item
};

/// The index of the item that the user picks, or -1. Letters and "/" find items (ListSearch), F1 and "?" show the keys.
/// selected outside the items means that none is at first. The screen is as it was then.
[[nodiscard]] int pickFromList(const PickPlace& place, const std::vector<std::string>& items, int selected = 0);

}  // namespace crv
