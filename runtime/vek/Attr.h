#pragma once
// What generated entity code needs from the runtime.
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

#include "runtime/vek/Entity.h"
#include "runtime/vek/Exception.h"
#include "runtime/vek/HashMap.h"
#include "runtime/vek/SmallMap.h"
#include "runtime/vek/Ptr.h"
#include "runtime/vek/Sm.h"
#include "runtime/vek/Types.h"

namespace Vek {

template <class T>
std::string toString(T const& v) {
   if constexpr (requires { { v.stringValue() } -> std::convertible_to<std::string>; }) {
      return v.stringValue();
   } else if constexpr (std::is_convertible_v<T, std::string>) {
      return std::string(v);
   } else if constexpr (std::is_arithmetic_v<T>) {
      return std::to_string(v);
   } else {
      std::ostringstream os;
      os << v;
      return os.str();
   }
}

// The same key made again with another value of a constructor attribute.
template <class T>
[[noreturn]] void reinstantiationError(char const* attr, T const& v) {
   throw RangeException(std::string("Reinstantiating the pointer interface where constructor "
                                    "parameter attribute _") +
                        attr + " has a different value of " + toString(v));
}

// Makes a member of a keyed collection: the key is its first constructor
// attribute when the member type has one.
template <class T, class K, class... A>
Ptr<T> makeMember(K const& k, A&&... args) {
   if constexpr (T::kHasKey) return Ptr<T>(new T(k, std::forward<A>(args)...));
   else return Ptr<T>(new T(std::forward<A>(args)...));
}

}  // namespace Vek
