// OBJECT IDENTIFIER.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "asn/asn_primitives.h"

namespace crv {

/// An identifier known at compile time: its dotted text, a name for people, its content octets.
class KnownOid {
  public:
    /// Refuses a malformed text while compiling. Arcs up to 2^63.
    consteval KnownOid(const char* dotted, const char* name) : dotted_(dotted), name_(name) {
        std::string_view rest(dotted);
        const uint64_t first = takeArc(rest);
        const uint64_t second = takeArc(rest);
        if (first > 2 || (first < 2 && second > 39)) throw "arcs out of range";
        put(first * 40 + second);
        while (!rest.empty()) put(takeArc(rest));
    }

    [[nodiscard]] constexpr const char* dotted() const { return dotted_; }
    [[nodiscard]] constexpr const char* name() const { return name_; }
    [[nodiscard]] constexpr ByteView octets() const { return ByteView(octets_).first(size_); }

  private:
    static consteval uint64_t takeArc(std::string_view& text) {
        uint64_t arc = 0;
        if (text.empty()) throw "an arc is missing";
        while (!text.empty() && text.front() != '.') {
            if (text.front() < '0' || text.front() > '9') throw "no digit";
            arc = arc * 10 + static_cast<uint64_t>(text.front() - '0');
            text.remove_prefix(1);
        }
        if (!text.empty()) text.remove_prefix(1);
        return arc;
    }
    consteval void put(uint64_t arc) {
        size_t more = 0;
        while (more < 9 && arc >> (7 * (more + 1)) != 0) ++more;
        for (; more > 0; --more) octets_[size_++] = static_cast<uint8_t>(0x80 | (arc >> (7 * more) & 0x7F));
        octets_[size_++] = static_cast<uint8_t>(arc & 0x7F);
    }

    const char* dotted_;
    const char* name_;
    std::array<uint8_t, 24> octets_{};
    size_t size_ = 0;
};

/// OBJECT IDENTIFIER, kept as its content octets. Arcs up to 2^128 - 1.
class ASNobjectId : public ASNprimitive {
  public:
    static constexpr unsigned char kTag = 6;
    ASNobjectId() : ASNprimitive(kTag) {}
    explicit ASNobjectId(const KnownOid& oid) : ASNobjectId() { *this = oid; }
    ASNobjectId& operator=(const KnownOid& oid);

    /// From dotted decimal text: at least two arcs, the first 0 to 2, the second below 40 under 0 and 1, no signs,
    /// spaces, empty arcs or needless zeros. False, and nothing changed, for anything else.
    [[nodiscard]] bool setText(std::string_view dotted);
    /// The same as a new object.
    [[nodiscard]] static std::optional<ASNobjectId> fromText(std::string_view dotted);
    /// Dotted decimal text; empty for an object that holds none.
    [[nodiscard]] std::string text() const;
    /// The well-known name, or the dotted text.
    [[nodiscard]] std::string name() const;
    [[nodiscard]] bool isSet() const { return !contents_.empty(); }
    /// Whether the octets are the contents of an identifier: whole arcs, each in its shortest form (X.690 8.19.2) and
    /// within 128 bits.
    [[nodiscard]] static bool areArcs(ByteView octets);

    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }
    friend bool operator==(const ASNobjectId& a, const ASNobjectId& b);
    friend bool operator==(const ASNobjectId& a, const KnownOid& b);
    /// Orders by content octets.
    friend bool operator<(const ASNobjectId& a, const ASNobjectId& b);

  protected:
    [[nodiscard]] bool validContents() const override { return areArcs(contents()); }
};

/// The row of the table of known identifiers with these content octets, null when there is none.
[[nodiscard]] const KnownOid* findKnownOid(ByteView contents);

}  // namespace crv
