#pragma once
// vrExactCast: `object` as a T when its dynamic type is exactly T, else null. For classes with no
// subclasses it answers what a dynamic_cast would, with one type comparison instead of a walk of
// the class hierarchy: cheap enough for code that runs once per primitive.
//
// VrRememberedCast<T>: a dynamic_cast to T* that keeps its last answer. The answer depends only on
// the object and its dynamic type, so it is cast again only when either changes: for code that
// asks once per primitive about an object that seldom changes (a description's active renderer
// or generator), where the cast itself, which compares type names across libraries, is too slow.

#include <type_traits>
#include <typeinfo>

template <class T, class From>
auto vrExactCast(From* object) {
  using Result = std::conditional_t<std::is_const_v<From>, const T, T>;
  return object && typeid(*object) == typeid(T) ? static_cast<Result*>(object) : nullptr;
}

template <class T>
class VrRememberedCast {
 public:
  template <class From>
  T* operator()(From* object) {
    if (!object) return nullptr;
    const std::type_info* type = &typeid(*object);
    if (object != from || type != fromType) {
      from = object;
      fromType = type;
      cast = dynamic_cast<T*>(object);
    }
    return cast;
  }

 private:
  const void* from = nullptr;
  const std::type_info* fromType = nullptr;
  T* cast = nullptr;
};
