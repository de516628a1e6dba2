#pragma once

#include <cstddef>
#include <new>

namespace korin::platform {

// The one object of its type that every other static object may still use while it is
// being destroyed: it lies in static storage and its destructor never runs. When the
// process ends or the library is unloaded, AtUnload() gives back what the object keeps,
// which would be lost with the library; the object stays usable. Other threads may
// have been killed by then, holding any lock: AtUnload must only try to lock.
template <typename Object>
Object& Lasting() {
  alignas(Object) static std::byte place[sizeof(Object)];
  static Object* const object = ::new (place) Object;
  struct End {
    ~End() { object->AtUnload(); }
  };
  static const End end;
  return *object;
}

}  // namespace korin::platform
