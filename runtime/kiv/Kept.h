// Holds an object while a call into it is under way, so that the call may drop the object's last reference.
#pragma once

#include "KivPtr.h"

namespace Kiv {

// A reference to the object; empty for one that nobody counts, whose owner sees to its life.
template <class T>
Ptr<T> kept(T& object) {
  return object.references() > 0 ? Ptr<T>(&object) : Ptr<T>();
}

}  // namespace Kiv
