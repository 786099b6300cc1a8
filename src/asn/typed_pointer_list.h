// An owning list of objects that keep their address.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace crv {

/// List of pointers that deletes its elements. Elements stay where they are while the list grows; iteration and
/// indexing give references; copying a list copies the elements.
template <class T>
class TypedPointerList {
  public:
    template <class Value, class Base>
    class Iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Value;
        using difference_type = std::ptrdiff_t;
        using pointer = Value*;
        using reference = Value&;

        Iterator() = default;
        explicit Iterator(Base at) : at_(at) {}
        reference operator*() const { return **at_; }
        pointer operator->() const { return at_->get(); }
        Iterator& operator++() {
            ++at_;
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++at_;
            return before;
        }
        bool operator==(const Iterator&) const = default;

      private:
        Base at_{};
    };
    using Pointers = std::vector<std::unique_ptr<T>>;
    using iterator = Iterator<T, typename Pointers::iterator>;
    using const_iterator = Iterator<const T, typename Pointers::const_iterator>;

    TypedPointerList() = default;
    TypedPointerList(TypedPointerList&&) noexcept = default;
    TypedPointerList& operator=(TypedPointerList&&) noexcept = default;
    TypedPointerList(const TypedPointerList& other) {
        pointers_.reserve(other.size());
        for (const T& element : other) pointers_.push_back(std::make_unique<T>(element));
    }
    TypedPointerList& operator=(const TypedPointerList& other) {
        if (this != &other) *this = TypedPointerList(other);
        return *this;
    }
    ~TypedPointerList() = default;

    [[nodiscard]] size_t size() const { return pointers_.size(); }
    [[nodiscard]] bool empty() const { return pointers_.empty(); }
    [[nodiscard]] T& operator[](size_t index) { return *pointers_[index]; }
    [[nodiscard]] const T& operator[](size_t index) const { return *pointers_[index]; }
    [[nodiscard]] T& back() { return *pointers_.back(); }

    /// Appends an element and hands it back.
    T& add(std::unique_ptr<T> element) { return *pointers_.emplace_back(std::move(element)); }
    template <class... Args>
    T& emplace(Args&&... args) {
        return add(std::make_unique<T>(std::forward<Args>(args)...));
    }
    void insert(size_t index, std::unique_ptr<T> element) {
        pointers_.insert(pointers_.begin() + static_cast<std::ptrdiff_t>(index), std::move(element));
    }
    /// Takes the element out of the list and gives it to the caller.
    std::unique_ptr<T> remove(size_t index) {
        std::unique_ptr<T> element = std::move(pointers_[index]);
        pointers_.erase(pointers_.begin() + static_cast<std::ptrdiff_t>(index));
        return element;
    }
    void clear() { pointers_.clear(); }

    iterator begin() { return iterator(pointers_.begin()); }
    iterator end() { return iterator(pointers_.end()); }
    const_iterator begin() const { return const_iterator(pointers_.begin()); }
    const_iterator end() const { return const_iterator(pointers_.end()); }

  private:
    Pointers pointers_;
};

}  // namespace crv
