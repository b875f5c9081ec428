#pragma once
// vrExactCast: `object` as a T when its dynamic type is exactly T, else null. For classes with no
// subclasses it answers what a dynamic_cast would, with one type comparison instead of a walk of
// the class hierarchy: cheap enough for code that runs once per primitive.

#include <type_traits>
#include <typeinfo>

template <class T, class From>
auto vrExactCast(From* object) {
  using Result = std::conditional_t<std::is_const_v<From>, const T, T>;
  return object && typeid(*object) == typeid(T) ? static_cast<Result*>(object) : nullptr;
}
