// SEQUENCE and SET types: each lists its members once, and reading, writing, length, digest and defaults follow from
// that.
#pragma once

#include <optional>
#include <span>

#include "asn/asn_object.h"

namespace crv {

class ASNsequenceF;

/// One row of a SEQUENCE or SET type's list of members. Rows are made by `member`, `defaulted` and `writtenDefault`.
struct Member {
    /// The member; null for an absent OPTIONAL one.
    const ASNobject* (*find)(const ASNsequenceF& whole);
    /// The member to read into; an absent OPTIONAL one is made.
    ASNobject& (*make)(ASNsequenceF& whole);
    /// Makes the member absent or gives it its default value; null for a member that must be there. The member it
    /// leaves behind, null when there is none.
    ASNobject* (*leaveOut)(ASNsequenceF& whole);
    /// Whether the member has the default value that is not written; null for a member without one.
    bool (*isDefault)(const ASNsequenceF& whole);

    /// The member when it is to be written, else null.
    [[nodiscard]] const ASNobject* written(const ASNsequenceF& whole) const {
        return isDefault && isDefault(whole) ? nullptr : find(whole);
    }
};

using MemberTable = std::span<const Member>;

/// Base of SEQUENCE types. A type derives from it, has its members as public data in the order of its module and lists
/// them in `members`:
///
///     class PolicyIdAndNote : public ASNsequenceF {
///       public:
///         ASNobjectId policyId;
///         std::optional<ASNoctstr> note;   // OPTIONAL
///
///       protected:
///         [[nodiscard]] MemberTable members() const override {
///             static constexpr Member kMembers[] = {member<&PolicyIdAndNote::policyId>,
///             member<&PolicyIdAndNote::note>}; return kMembers;
///         }
///     };
///
/// docs/adding-a-structure.md tells more.
class ASNsequenceF : public ASNobject {
  public:
    static constexpr unsigned char kTag = 0x30;
    ASNsequenceF() : ASNobject(kTag) {}
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    explicit ASNsequenceF(unsigned char tag) : ASNobject(tag) {}

    [[nodiscard]] virtual MemberTable members() const = 0;
    /// What the types of the members cannot say; asked after each reading.
    [[nodiscard]] virtual bool validMembers() const { return true; }

    [[nodiscard]] long read_contents(GenericFile* in, long len) override;
    [[nodiscard]] long read_ndfl_contents(GenericFile* in, long maxLen) override;
    [[nodiscard]] bool write_contents(GenericFile* out) const override;
    [[nodiscard]] long lenOfBody() const override;
    void releaseParts() override;

    [[nodiscard]] virtual long readMembers(BodyCursor body);
    [[nodiscard]] long readMember(BodyCursor& body, const Member& row);
    /// The rules for an absent member; false when it must be there.
    [[nodiscard]] bool leaveOut(const Member& row);

  private:
    template <class Class, class Type, Type Class::*M>
    friend struct MemberAccess;
    static void forget(ASNobject& part) { part.forgetReading(); }
};

/// Base of SET types: members may come in any order and are written in the order of the table, which is to be that of
/// their tags (X.690 10.3).
class ASNsetF : public ASNsequenceF {
  public:
    static constexpr unsigned char kTag = 0x31;
    ASNsetF() : ASNsequenceF(kTag) {}
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    [[nodiscard]] long readMembers(BodyCursor body) override;
};

/// How the rows reach a member: `Type` is an object, or std::optional of one.
template <class Class, class Type, Type Class::*M>
struct MemberAccess {
    static const ASNobject* find(const ASNsequenceF& whole) { return &(static_cast<const Class&>(whole).*M); }
    static ASNobject& make(ASNsequenceF& whole) { return static_cast<Class&>(whole).*M; }
    static constexpr ASNobject* (*leaveOut)(ASNsequenceF&) = nullptr;

    template <long Value>
    static bool isDefault(const ASNsequenceF& whole) {
        return (static_cast<const Class&>(whole).*M).value() == Value;
    }
    template <long Value>
    static ASNobject* setDefault(ASNsequenceF& whole) {
        Type& part = static_cast<Class&>(whole).*M;
        ASNsequenceF::forget(part);
        part.setValue(Value);
        return &part;
    }
};

template <class Class, class Object, std::optional<Object> Class::*M>
struct MemberAccess<Class, std::optional<Object>, M> {
    static const ASNobject* find(const ASNsequenceF& whole) {
        const std::optional<Object>& part = static_cast<const Class&>(whole).*M;
        return part ? &*part : nullptr;
    }
    static ASNobject& make(ASNsequenceF& whole) {
        std::optional<Object>& part = static_cast<Class&>(whole).*M;
        return part ? *part : part.emplace();
    }
    static ASNobject* leaveOut(ASNsequenceF& whole) {
        (static_cast<Class&>(whole).*M).reset();
        return nullptr;
    }
};

template <auto M>
struct MemberOf;
template <class Class, class Type, Type Class::*M>
struct MemberOf<M> : MemberAccess<Class, Type, M> {};

/// A member that must be there, or an OPTIONAL one when its type is std::optional of an object.
template <auto M>
inline constexpr Member member = {MemberOf<M>::find, MemberOf<M>::make, MemberOf<M>::leaveOut, nullptr};

/// An INTEGER, ENUMERATED or BOOLEAN with a DEFAULT, which is not written (X.690 11.5).
template <auto M, long Value>
inline constexpr Member defaulted = {MemberOf<M>::find, MemberOf<M>::make, MemberOf<M>::template setDefault<Value>,
                                     MemberOf<M>::template isDefault<Value>};

/// The same for a format whose writers put the default value down all the same.
template <auto M, long Value>
inline constexpr Member writtenDefault = {MemberOf<M>::find, MemberOf<M>::make, MemberOf<M>::template setDefault<Value>,
                                          nullptr};

}  // namespace crv
