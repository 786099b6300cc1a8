// SEQUENCE OF and SET OF.
#pragma once

#include "asn/asn_object.h"
#include "asn/typed_pointer_list.h"

namespace crv {

/// What the two kinds of lists share whatever their elements are.
class ASNlistF : public ASNobject {
  protected:
    using ASNobject::ASNobject;

    virtual void clearElements() = 0;
    [[nodiscard]] virtual ASNobject& appendElement() = 0;
    [[nodiscard]] virtual size_t elementCount() const = 0;
    [[nodiscard]] virtual const ASNobject& elementAt(size_t index) const = 0;

    [[nodiscard]] long read_contents(GenericFile* in, long len) override;
    [[nodiscard]] long read_ndfl_contents(GenericFile* in, long maxLen) override;
    [[nodiscard]] bool write_contents(GenericFile* out) const override;
    [[nodiscard]] long lenOfBody() const override;
    /// Writes the elements in ascending order of their encodings (X.690 11.6).
    [[nodiscard]] bool writeSorted(GenericFile& out) const;

  private:
    [[nodiscard]] long readElements(BodyCursor body);
};

/// List of T with the given tag, kept in a TypedPointerList<T>.
template <class T, unsigned char Tag>
class ASNlistOf : public ASNlistF {
  public:
    static constexpr unsigned char kTag = Tag;
    using Element = T;
    ASNlistOf() : ASNlistF(Tag) {}

    [[nodiscard]] size_t size() const { return elements_.size(); }
    [[nodiscard]] bool empty() const { return elements_.empty(); }
    [[nodiscard]] const T& operator[](size_t index) const { return elements_[index]; }
    [[nodiscard]] T& operator[](size_t index) { return elements_[index]; }
    auto begin() const { return elements_.begin(); }
    auto end() const { return elements_.end(); }
    auto begin() { return elements_.begin(); }
    auto end() { return elements_.end(); }

    /// Appends an element and hands it back to be filled.
    T& add() {
        assertChangeable();
        return elements_.emplace();
    }
    T& add(T element) {
        assertChangeable();
        return elements_.emplace(std::move(element));
    }
    /// Takes the element out of the list.
    std::unique_ptr<T> remove(size_t index) {
        assertChangeable();
        return elements_.remove(index);
    }
    void clear() {
        assertChangeable();
        elements_.clear();
    }
    [[nodiscard]] const TypedPointerList<T>& elements() const { return elements_; }
    [[nodiscard]] unsigned char getDefaultTag() const override { return Tag; }

  protected:
    void clearElements() final { elements_.clear(); }
    [[nodiscard]] ASNobject& appendElement() final { return elements_.emplace(); }
    [[nodiscard]] size_t elementCount() const final { return elements_.size(); }
    [[nodiscard]] const ASNobject& elementAt(size_t index) const final { return elements_[index]; }

  private:
    TypedPointerList<T> elements_;
};

/// SEQUENCE OF T.
template <class T>
class ASNsequenceList : public ASNlistOf<T, 0x30> {};

/// SET OF T, written in the order that DER asks for.
template <class T>
class ASNsetList : public ASNlistOf<T, 0x31> {
  protected:
    [[nodiscard]] bool write_contents(GenericFile* out) const override { return this->writeSorted(*out); }
};

}  // namespace crv
