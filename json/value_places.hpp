// Where the reader puts a value once read: a map node, an array's back, or a Value given by the
// caller, each built in place from a seed. Shared by the reader's files only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "json/typed_array.hpp"
#include "json/value.hpp"
#include "platform/string_room.hpp"

namespace foundation::json::reading {

// The bytes of a string without escapes, as they stand in the text. Converted to the key of a
// map node or to the Value of a member or element, it is built right in that place (the
// conversion's result initializes it directly), so each byte is copied once and a short string
// with no call at all: a std::string built aside and moved in is two calls to memcpy.
struct KeyText {
  std::string_view text;
  operator std::string() const {
    std::string key;
    fl::strings::assign_short(key, text.data(), text.size());
    return key;
  }
};

struct StringText {
  char const* first;
  std::size_t size;
  operator Value() const {
    Value value{std::string()};
    fl::strings::assign_short(boost::get<std::string>(value), first, size);
    return value;
  }
};

// The seeds of an empty array or object, built in their place like StringText: the reading
// function is then left with no moved-from container of its own to destroy.
struct EmptyArray {
  operator Value() const { return Value(Array()); }
};

struct EmptyObject {
  operator Value() const { return Value(Object()); }
};

// Where a value goes once read. Strings and scalars are read first and then built once, in
// their place; an array or object cannot be moved without a new box, so its place is made
// first, empty, and it is read into it.
//
// Each place's put builds the Value from a seed (a scalar, a StringText, a std::string, or an
// empty container) and gives where it went, or nullptr when the value is to be dropped.
//
// A member of an object: its map node. When the key is already there the node made for it is
// dropped (the first member of a key stays).
struct MemberPlace {
  Object& members;
  // By reference: a copy of the view is one 16-byte load of the two 8-byte stores that the
  // key's reading has just made, which the store buffer cannot forward; each member waited.
  std::string_view const& key;

  template <class Seed>
  Value* put(Seed&& seed) {
    // One map operation: the node, key built from the text and value from the seed, is made
    // before the tree is searched. Members written in key order, as serializers of maps write
    // them, are placed after one comparison with the last key; others cost one comparison more
    // than a search from the root.
    std::size_t const before = members.size();
    auto const node =
        members.emplace_hint(hint(), std::piecewise_construct, std::forward_as_tuple(KeyText{key}),
                             std::forward_as_tuple(std::forward<Seed>(seed)));
    return members.size() != before ? &node->second : nullptr;
  }
  template <class Seed>
  Value* container(Seed&& seed) {
    return put(std::forward<Seed>(seed));
  }

  // Where the new key most likely goes: before the first key when its first byte sorts lower
  // (then it is surely first, and the map checks that with one comparison instead of searching
  // from the root after a failed comparison with the last key), else at the end. Requests
  // often come as "requestid", "uid", then a member that sorts before both. Any hint is
  // correct; a wrong one only costs comparisons.
  Object::iterator hint() const {
    auto const first = members.begin();
    if (first != members.end() && !key.empty() && !first->first.empty() &&
        static_cast<unsigned char>(key.front()) <
            static_cast<unsigned char>(first->first.front())) {
      return first;
    }
    return members.end();
  }
};

// An element of an array: a new Value at the back.
struct ElementPlace {
  Array& elements;

  template <class Seed>
  Value* put(Seed&& seed) {
    make_room(elements);
    return &elements.emplace_back(std::forward<Seed>(seed));
  }
  template <class Seed>
  Value* container(Seed&& seed) {
    return put(std::forward<Seed>(seed));
  }
};

// A Value given by the caller, written only on success: a container is read into it in place
// when it already holds that kind, else aside and moved in.
struct OutPlace {
  Value& out;

  template <class Seed>
  Value* put(Seed&& seed) {
    out = Value(std::forward<Seed>(seed));
    return &out;
  }
  template <class Seed>
  Value* container(Seed&&) {
    return &out;
  }
};

}  // namespace foundation::json::reading
