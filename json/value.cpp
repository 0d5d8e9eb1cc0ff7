#include "json/value.hpp"

#include <ostream>
#include <stdexcept>

#include "json/writer.hpp"

namespace foundation::json {

char const* const traits<Undefined>::name = "undefined";
char const* const traits<Null>::name = "null";
char const* const traits<bool>::name = "bool";
char const* const traits<double>::name = "double";
char const* const traits<std::string>::name = "string";
char const* const traits<std::vector<Value>>::name = "array";
char const* const traits<std::map<std::string, Value>>::name = "object";
char const* const traits<float>::name = "float";
char const* const traits<long>::name = "int64";
char const* const traits<unsigned long>::name = "uint64";

namespace detail {

void throw_invalid_conversion(char const* from, char const* to) {
  std::string message = "invalid conversion: ";
  message += from;
  message += " to ";
  message += to;
  throw std::runtime_error(message);
}

char const* kind_name(int which) noexcept {
  switch (which) {
    case 0:
      return traits<Undefined>::name;
    case 1:
      return traits<Null>::name;
    case 2:
      return traits<bool>::name;
    case 3:
      return traits<double>::name;
    case 4:
      return traits<std::string>::name;
    case 5:
      return traits<Array>::name;
    case 6:
      return traits<Object>::name;
    case 7:
      return traits<float>::name;
    case 8:
      return traits<long>::name;
    case 9:
      return traits<unsigned long>::name;
    default:
      return "?";
  }
}

}  // namespace detail

std::ostream& operator<<(std::ostream& os, Value const& value) {
  return os << serialize(value);
}

}  // namespace foundation::json
