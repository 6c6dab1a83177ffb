#pragma once

namespace meridian {

/// What an element of a chain carries.
template <typename T>
struct Links {
    T* before = nullptr;
    T* after = nullptr;
};

/// A list whose elements carry their links: one leaves it without a search, and none of this allocates.
/// Elements are not owned. `links` is the member that holds the links of this list.
template <typename T>
class Chain {
  public:
    T* first() const { return first_; }
    T* last() const { return last_; }

    void append(T& element, Links<T> T::*links) { insert_behind(last_, element, links); }
    /// A null `before`: at the front.
    void insert_behind(T* before, T& element, Links<T> T::*links) {
        T* const after = before != nullptr ? (before->*links).after : first_;
        (element.*links) = {before, after};
        (before != nullptr ? (before->*links).after : first_) = &element;
        (after != nullptr ? (after->*links).before : last_) = &element;
    }
    /// The element must be in this list.
    void remove(T& element, Links<T> T::*links) {
        const Links<T> gap = element.*links;
        (gap.before != nullptr ? (gap.before->*links).after : first_) = gap.after;
        (gap.after != nullptr ? (gap.after->*links).before : last_) = gap.before;
        (element.*links) = {};
    }

  private:
    T* first_ = nullptr;
    T* last_ = nullptr;
};

} // namespace meridian
