// SEQUENCE OF and SET OF.
#pragma once

#include <atomic>
#include <utility>

#include "asn/asn_object.h"
#include "asn/typed_pointer_list.h"
#include "misc/exceptions.h"
#include "misc/memory_file.h"

namespace crv {

/// What the two kinds of lists share whatever their elements are.
class ASNlistF : public ASNobject {
  protected:
    using ASNobject::ASNobject;

    /// The former elements go first: they may refer to an encoding that reading gives up, whether it succeeds or not.
    [[nodiscard]] long read(GenericFile* in, long maxLen = 0, unsigned char f = 0) override;

    /// Most levels of elements below the list that `soundContents` looks at.
    static constexpr int kSoundLevels = 3;
    /// Whether the contents are elements of the list, for a type that can tell without reading them as objects; true
    /// only for what the objects would take. A kept list then stays octets until somebody asks for an element. False
    /// leaves the verdict to the objects.
    [[nodiscard]] virtual bool soundContents(ByteView) const { return false; }
    virtual void postponeElements(ByteView contents) = 0;
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

/// The elements of a list: objects, or the octets of which they are made when they are first asked for. Several threads
/// may ask at a time.
template <class T>
class PostponedElements {
  public:
    PostponedElements() = default;
    PostponedElements(const PostponedElements& other) : list_(other.get()) {}
    PostponedElements(PostponedElements&& other) noexcept { swap(other); }
    PostponedElements& operator=(const PostponedElements& other) {
        if (this != &other) *this = PostponedElements(other);
        return *this;
    }
    PostponedElements& operator=(PostponedElements&& other) noexcept {
        PostponedElements taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~PostponedElements() { clear(); }

    [[nodiscard]] TypedPointerList<T>& get() { return octets_.empty() ? list_ : made(); }
    [[nodiscard]] const TypedPointerList<T>& get() const { return octets_.empty() ? list_ : made(); }
    /// Whole elements, which are read from these octets in that mode.
    void postpone(ByteView octets, unsigned char mode) {
        clear();
        octets_ = octets;
        mode_ = mode;
    }
    void clear() {
        list_.clear();
        octets_ = {};
        const std::unique_ptr<TypedPointerList<T>> made(made_.exchange(nullptr));
    }

  private:
    void swap(PostponedElements& other) noexcept {
        std::swap(list_, other.list_);
        std::swap(octets_, other.octets_);
        std::swap(mode_, other.mode_);
        made_ = other.made_.exchange(made_);
    }
    TypedPointerList<T>& made() const {
        if (TypedPointerList<T>* present = made_.load()) return *present;
        auto fresh = std::make_unique<TypedPointerList<T>>();
        MemoryFile file(octets_);
        for (BodyCursor body(file, static_cast<long>(octets_.size())); !body.atEnd();) {
            VTEST(body.read(fresh->emplace(), mode_) > 0, "src/asn/asn_list");
        }
        TypedPointerList<T>* first = nullptr;
        return made_.compare_exchange_strong(first, fresh.get()) ? *fresh.release() : *first;
    }

    TypedPointerList<T> list_;
    ByteView octets_{};
    mutable std::atomic<TypedPointerList<T>*> made_{nullptr};  // of octets_, owned
    unsigned char mode_ = 0;
};

/// List of T with the given tag.
template <class T, unsigned char Tag>
class ASNlistOf : public ASNlistF {
  public:
    static constexpr unsigned char kTag = Tag;
    using Element = T;
    ASNlistOf() : ASNlistF(Tag) {}

    [[nodiscard]] size_t size() const { return elements_.get().size(); }
    [[nodiscard]] bool empty() const { return elements_.get().empty(); }
    [[nodiscard]] const T& operator[](size_t index) const { return elements_.get()[index]; }
    [[nodiscard]] T& operator[](size_t index) { return elements_.get()[index]; }
    auto begin() const { return elements_.get().begin(); }
    auto end() const { return elements_.get().end(); }
    auto begin() { return elements_.get().begin(); }
    auto end() { return elements_.get().end(); }

    /// Appends an element and hands it back to be filled.
    T& add() {
        assertChangeable();
        return elements_.get().emplace();
    }
    T& add(T element) {
        assertChangeable();
        return elements_.get().emplace(std::move(element));
    }
    /// Takes the element out of the list.
    std::unique_ptr<T> remove(size_t index) {
        assertChangeable();
        return elements_.get().remove(index);
    }
    void clear() {
        assertChangeable();
        elements_.clear();
    }
    [[nodiscard]] const TypedPointerList<T>& elements() const { return elements_.get(); }
    [[nodiscard]] unsigned char getDefaultTag() const override { return Tag; }

  protected:
    void postponeElements(ByteView contents) final { elements_.postpone(contents, this->modeOfParts()); }
    void clearElements() final { elements_.clear(); }
    [[nodiscard]] ASNobject& appendElement() final { return elements_.get().emplace(); }
    [[nodiscard]] size_t elementCount() const final { return elements_.get().size(); }
    [[nodiscard]] const ASNobject& elementAt(size_t index) const final { return elements_.get()[index]; }

  private:
    PostponedElements<T> elements_;
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
