// foundation::json::Value: one JSON value of ten kinds.
//
// Tags (Value::which()): 0 Undefined, 1 Null, 2 bool, 3 double, 4 string, 5 array, 6 object,
// 7 float, 8 int64, 9 uint64. Arrays and objects live in a heap box that the Value owns (a
// boost::recursive_wrapper); copies are deep. Moving an array or object leaves the source with
// its own, empty, box; move-assigning one array or object to another exchanges the boxes.
// A kind-changing assignment that fails while building the new payload leaves kind bool.
#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/variant/get.hpp>
#include <boost/variant/recursive_wrapper.hpp>
#include <boost/variant/variant.hpp>

namespace foundation::json {

class Value;

// The two payload-free kinds. Their default constructors are user-provided on purpose: it keeps
// them from being taken as the never-empty fallback of the variant, so that a kind-changing
// assignment that fails leaves a Value of kind bool.
struct Undefined {
  Undefined() {}
};
struct Null {
  Null() {}
};

inline bool operator==(Undefined, Undefined) {
  return true;
}
inline bool operator==(Null, Null) {
  return true;
}

// Display name of each kind, used in the "invalid conversion: " message of the getters.
template <class T>
struct traits;

template <>
struct traits<Undefined> {
  static char const* const name;
};
template <>
struct traits<Null> {
  static char const* const name;
};
template <>
struct traits<bool> {
  static char const* const name;
};
template <>
struct traits<double> {
  static char const* const name;
};
template <>
struct traits<std::string> {
  static char const* const name;
};
template <>
struct traits<std::vector<Value>> {
  static char const* const name;
};
template <>
struct traits<std::map<std::string, Value>> {
  static char const* const name;
};
template <>
struct traits<float> {
  static char const* const name;
};
template <>
struct traits<long> {
  static char const* const name;
};
template <>
struct traits<unsigned long> {
  static char const* const name;
};

using Array = std::vector<Value>;
using Object = std::map<std::string, Value>;

using ValueVariant =
    boost::variant<Undefined, Null, bool, double, std::string, boost::recursive_wrapper<Array>,
                   boost::recursive_wrapper<Object>, float, long, unsigned long>;

enum class Kind : int {
  undefined = 0,
  null = 1,
  boolean = 2,
  number = 3,
  string = 4,
  array = 5,
  object = 6,
  float32 = 7,
  int64 = 8,
  uint64 = 9,
};

namespace detail {
[[noreturn]] void throw_invalid_conversion(char const* from, char const* to);
char const* kind_name(int which) noexcept;

template <class T>
struct kind_of;
template <>
struct kind_of<Undefined> {
  static constexpr int value = 0;
};
template <>
struct kind_of<Null> {
  static constexpr int value = 1;
};
template <>
struct kind_of<bool> {
  static constexpr int value = 2;
};
template <>
struct kind_of<double> {
  static constexpr int value = 3;
};
template <>
struct kind_of<std::string> {
  static constexpr int value = 4;
};
template <>
struct kind_of<Array> {
  static constexpr int value = 5;
};
template <>
struct kind_of<Object> {
  static constexpr int value = 6;
};
template <>
struct kind_of<float> {
  static constexpr int value = 7;
};
template <>
struct kind_of<long> {
  static constexpr int value = 8;
};
template <>
struct kind_of<unsigned long> {
  static constexpr int value = 9;
};
}  // namespace detail

class Value : public ValueVariant {
 public:
  Value() = default;
  Value(Undefined u) : ValueVariant(u) {}
  Value(Null n) : ValueVariant(n) {}
  Value(bool b) : ValueVariant(b) {}
  Value(double d) : ValueVariant(d) {}
  Value(float f) : ValueVariant(f) {}
  Value(long i) : ValueVariant(i) {}
  Value(unsigned long u) : ValueVariant(u) {}
  Value(std::string const& s) : ValueVariant(s) {}
  Value(std::string&& s) : ValueVariant(std::move(s)) {}
  // A string literal is text, never a bool.
  Value(char const* s) : ValueVariant(std::string(s)) {}
  Value(Array const& a) : ValueVariant(a) {}
  Value(Array&& a) : ValueVariant(std::move(a)) {}
  Value(Object const& o) : ValueVariant(o) {}
  Value(Object&& o) : ValueVariant(std::move(o)) {}

  Value(Value const&) = default;
  Value(Value&&) = default;
  Value& operator=(Value const&) = default;
  Value& operator=(Value&&) = default;
  ~Value() = default;

  Kind kind() const noexcept { return static_cast<Kind>(which()); }

  // The payload of kind T; std::runtime_error "invalid conversion: <held> to <T>" on any other
  // kind. No conversion between kinds of any sort.
  template <class T>
  T& get() {
    if (which() != detail::kind_of<T>::value) {
      detail::throw_invalid_conversion(detail::kind_name(which()), traits<T>::name);
    }
    return boost::get<T>(static_cast<ValueVariant&>(*this));
  }
  template <class T>
  T const& get() const {
    if (which() != detail::kind_of<T>::value) {
      detail::throw_invalid_conversion(detail::kind_name(which()), traits<T>::name);
    }
    return boost::get<T>(static_cast<ValueVariant const&>(*this));
  }

  template <class T>
  bool is() const noexcept {
    return which() == detail::kind_of<T>::value;
  }

  friend bool operator==(Value const& a, Value const& b) {
    return static_cast<ValueVariant const&>(a) == static_cast<ValueVariant const&>(b);
  }
  friend bool operator!=(Value const& a, Value const& b) { return !(a == b); }
};

// Writes the Value as its JSON text (serialize).
std::ostream& operator<<(std::ostream& os, Value const& value);

}  // namespace foundation::json
