// BER (X.690) in pieces: elements are told as they come, and only those that are asked for are held.
#pragma once

#include <cstdint>
#include <vector>

#include "misc/bytes.h"

namespace crv {

/// Walks one element of any size. Throws CrvApiException: ECRV_NO_CRV_MSG when it does not begin with a SEQUENCE,
/// ECRV_INV_CRV_MSG for what is no BER, for more than `mostHeld` octets held and for octets behind the element; what
/// the visitor throws passes.
class BerWalker {
  public:
    /// What to do with an element.
    enum class Treat {
        Enter,    ///< tell of the elements inside
        Hold,     ///< hold it and hand it over as a whole
        Octets,   ///< an OCTET STRING in primitive or constructed form: pass its octets on
        Contents  ///< pass its contents on as they are; of definite length only
    };

    class Visitor {
      public:
        virtual ~Visitor() = default;
        /// An element begins; `depth` 0 is the outermost.
        [[nodiscard]] virtual Treat begin(size_t depth, uint8_t tag) = 0;
        /// A held element, whole.
        virtual void whole(ByteView encoding) = 0;
        /// The next octets of one that is passed on.
        virtual void octets(ByteView piece) = 0;
        /// An element that was not held has ended.
        virtual void end(size_t depth) = 0;
    };

    BerWalker(Visitor& visitor, size_t mostHeld) : visitor_(visitor), mostHeld_(mostHeld) {}

    void feed(ByteView octets);
    /// Whether the element is complete.
    [[nodiscard]] bool done() const { return begun_ && levels_.empty(); }

  private:
    struct Level {
        int64_t end;  // absolute; -1 for the indefinite form
        Treat treat;
        bool primitive;
    };

    [[nodiscard]] bool takeHeader(ByteView& octets);
    void open(uint8_t tag, int64_t length);
    [[nodiscard]] Treat treatInside(const Level& outer, uint8_t tag, bool primitive);
    void takeBody(ByteView& octets);
    void pass(Treat treat, ByteView octets);
    void hold(ByteView octets);
    void closeEnded();
    void closeTop();

    Visitor& visitor_;
    size_t mostHeld_;
    std::vector<Level> levels_;
    Bytes header_, held_;
    size_t heldBefore_ = 0;  // octets that were held and handed over
    int64_t position_ = 0;
    bool begun_ = false;
};

}  // namespace crv
