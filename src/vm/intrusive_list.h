#pragma once

#include <cstddef>

namespace korin::vm {

// Links of an element that can stand in one list.
template <typename T>
struct ListLink {
  T* previous = nullptr;
  T* next = nullptr;
  bool linked = false;
};

// A doubly linked list of elements that live elsewhere: no operation allocates or
// fails, so an element can change lists on a path that must not throw.
template <typename T, ListLink<T> T::*kLink>
class IntrusiveList {
 public:
  IntrusiveList() = default;
  IntrusiveList(const IntrusiveList&) = delete;
  IntrusiveList& operator=(const IntrusiveList&) = delete;

  bool Empty() const { return m_first == nullptr; }
  T* First() const { return m_first; }
  T* Last() const { return m_last; }
  static T* Next(const T& element) { return (element.*kLink).next; }
  static T* Previous(const T& element) { return (element.*kLink).previous; }
  static bool Has(const T& element) { return (element.*kLink).linked; }

  void PushBack(T& element) { InsertAfter(m_last, element); }
  void PushFront(T& element) { InsertAfter(nullptr, element); }

  // Behind `place`; null: at the front.
  void InsertAfter(T* place, T& element) {
    ListLink<T>& link = element.*kLink;
    link.previous = place;
    link.next = place == nullptr ? m_first : (place->*kLink).next;
    link.linked = true;
    (link.previous == nullptr ? m_first : (link.previous->*kLink).next) = &element;
    (link.next == nullptr ? m_last : (link.next->*kLink).previous) = &element;
  }

  void Remove(T& element) {
    ListLink<T>& link = element.*kLink;
    (link.previous == nullptr ? m_first : (link.previous->*kLink).next) = link.next;
    (link.next == nullptr ? m_last : (link.next->*kLink).previous) = link.previous;
    link = {};
  }

 private:
  T* m_first = nullptr;
  T* m_last = nullptr;
};

}  // namespace korin::vm
