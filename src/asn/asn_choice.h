// CHOICE types: each lists its alternatives once.
#pragma once

#include <span>

#include "asn/asn_object.h"

namespace crv {

/// One alternative of a CHOICE type.
struct Alternative {
    unsigned char tag;  ///< the tag it begins with, ASN_TAG_ANY for an open one
    std::unique_ptr<ASNobject> (*make)();
    std::unique_ptr<ASNobject> (*copy)(const ASNobject& other);
};

using AlternativeTable = std::span<const Alternative>;

template <class T>
inline constexpr Alternative alternative = {T::kTag,
                                            []() -> std::unique_ptr<ASNobject> { return std::make_unique<T>(); },
                                            [](const ASNobject& other) -> std::unique_ptr<ASNobject> {
                                                return std::make_unique<T>(static_cast<const T&>(other));
                                            }};

template <class... T>
inline constexpr Alternative kAlternativesOf[] = {alternative<T>...};

/// Holds one alternative of a CHOICE type, or none. A type derives from ASNchoiceOf<alternatives...>; indices count the
/// alternatives from 0 in that order, -1 is none. A CHOICE has no tag of its own, so it can be tagged explicitly only.
class ASNchoice : public ASNobject {
  public:
    static constexpr unsigned char kTag = ASN_TAG_ANY;
    ASNchoice() : ASNobject(kTag) {}
    ASNchoice(const ASNchoice& other);
    ASNchoice(ASNchoice&& other) noexcept = default;
    ASNchoice& operator=(const ASNchoice& other);
    ASNchoice& operator=(ASNchoice&& other) = default;
    ~ASNchoice() override = default;

    /// Chooses the alternative that has the object's tag, with the object as its value, which must be of that
    /// alternative's type. Throws VtestException when there is no such alternative.
    void setChosen(std::unique_ptr<ASNobject> value);
    /// Chooses a new object of the alternative with the tag; null when there is none.
    ASNobject* setChosen(unsigned char tag);
    ASNobject* setChosenIndex(int index);

    [[nodiscard]] ASNobject* getChosen() { return chosen_.get(); }
    [[nodiscard]] const ASNobject* getChosen() const { return chosen_.get(); }
    /// Tag of the chosen object, ASN_TAG_ANY when there is none.
    [[nodiscard]] unsigned char getChosenTag() const { return chosen_ ? chosen_->getTag() : ASN_TAG_ANY; }
    [[nodiscard]] int getChosenIndex() const { return index_; }

    /// The chosen object when it is a T, else null.
    template <class T>
    [[nodiscard]] const T* chosenAs() const {
        return dynamic_cast<const T*>(chosen_.get());
    }
    template <class T>
    [[nodiscard]] T* chosenAs() {
        return dynamic_cast<T*>(chosen_.get());
    }

    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }
    [[nodiscard]] bool acceptsTag(int identifier) const override;

  protected:
    [[nodiscard]] virtual AlternativeTable alternatives() const = 0;

    [[nodiscard]] long readElement(GenericFile& in, long maxLen) override;
    [[nodiscard]] bool writeElement(GenericFile& out) const override;
    [[nodiscard]] long elementLength() const override;
    [[nodiscard]] long read_contents(GenericFile* in, long len) override;
    [[nodiscard]] bool write_contents(GenericFile* out) const override;
    [[nodiscard]] long lenOfBody() const override;

  private:
    [[nodiscard]] int find(int identifier) const;

    std::unique_ptr<ASNobject> chosen_;
    int index_ = -1;
};

template <class... T>
class ASNchoiceOf : public ASNchoice {
  protected:
    [[nodiscard]] AlternativeTable alternatives() const override { return kAlternativesOf<T...>; }
};

}  // namespace crv
