// The PINs and passwords that a context keeps between calls.
#pragma once

#include <array>
#include <ctime>

#include "config/context_services.h"
#include "misc/secret.h"

namespace crv {

/// Four slots with the bits 1, 2, 8 and 16. The texts are wiped when they are replaced, removed or given up.
class PinCache {
  public:
    static constexpr long kAllSlots = static_cast<long>(PinSlot::SigningToken) |
                                      static_cast<long>(PinSlot::DecryptionToken) | static_cast<long>(PinSlot::Roots) |
                                      static_cast<long>(PinSlot::SigningKey);

    struct Slot {
        SecretText pin;
        bool present = false;
        std::time_t stored = 0;
    };

    static bool isSlot(long id) { return id > 0 && (id & kAllSlots) == id && (id & (id - 1)) == 0; }
    /// The slot of a number; one that is none fails an assertion.
    static PinSlot slotOf(long id);

    /// Fills a slot and stamps it with the current time.
    void store(PinSlot slot, const SecretText& pin);
    /// Overwrites the PINs of a mask's slots with zeros and their times with 0; length and presence stay, so a later
    /// use finds a PIN of zero bytes.
    void clean(long mask);
    /// Empties every slot.
    void removeAll();
    /// Whether a slot is filled.
    [[nodiscard]] bool any() const;
    [[nodiscard]] const Slot& slot(PinSlot slot) const { return slots_[index(slot)]; }

  private:
    static size_t index(PinSlot slot);

    std::array<Slot, 4> slots_;
};

}  // namespace crv
