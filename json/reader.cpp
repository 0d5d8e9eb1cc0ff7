#include "json/reader.hpp"

#include <cstring>
#include <string_view>
#include <tuple>
#include <utility>

#include "json/text_scan.hpp"
#include "json/typed_array.hpp"
#include "json/value_places.hpp"

namespace foundation::json {

namespace {

namespace rc = read_result;

using reading::ElementPlace;
using reading::EmptyArray;
using reading::EmptyObject;
using reading::find_plain_string_end;
using reading::MemberPlace;
using reading::number_value;
using reading::OutPlace;
using reading::read_string;
using reading::read_typed_array;
using reading::skip_blank;
using reading::StringText;
using reading::type_group;
using reading::TypeGroup;

constexpr std::string_view qvdata_key = "qvdata";
constexpr std::string_view qvtype_key = "qvtype";

// Building a string member or element is on most paths; it is inlined except under
// AddressSanitizer, where its temporaries would multiply the frame of every nesting level.
#if defined(__SANITIZE_ADDRESS__)
#define FOUNDATION_JSON_SLOT FOUNDATION_JSON_NOINLINE
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FOUNDATION_JSON_SLOT FOUNDATION_JSON_NOINLINE
#endif
#endif
#if !defined(FOUNDATION_JSON_SLOT)
#define FOUNDATION_JSON_SLOT inline
#endif

// Empties a container that was being filled in place, unless the reading succeeded (target
// reset to null).
template <class Container>
struct ClearOnFailure {
  Container* target;
  ~ClearOnFailure() {
    if (target != nullptr) {
      target->clear();
    }
  }
};

// What parse_object keeps about "qvtype" and "qvdata" for the one object it reads.
struct TypedArrayState {
  TypeGroup pending = TypeGroup::none;
  bool data_seen = false;
  char const* data_start = nullptr;
};

class Reader {
 public:
  Reader(char const* end, bool comments) : end_(end), comments_(comments) {}

  void skip(char const*& pos) const { skip_blank(pos, end_, comments_); }

  int value(char const*& pos, Value& out, int depth) const;
  // Reads the opening bracket of an object or an array, and the closing one when the container
  // is empty (`empty` is then set). Counts the level against the nesting limit.
  int open_container(char const*& pos, char opening, char closing, int missing, int& depth,
                     bool& empty) const;
  int object(char const*& pos, Object& out, int depth) const;
  int array(char const*& pos, Array& out, int depth) const;
  int typed_data(char const*& pos, TypeGroup group, Value& out, int depth) const;

 private:
  template <class Place>
  int read_value(char const*& pos, Place& place, int depth) const;
  template <class Place>
  int put_string(char const*& pos, Place& place) const;
  template <class Place>
  int put_escaped_string(char const*& pos, Place& place) const;
  template <class Place>
  int put_number(char const*& pos, Place& place) const;
  template <class Place, class Scalar>
  int put_literal(char const*& pos, std::string_view literal, Scalar scalar, Place& place) const;
  template <class Place>
  int put_object(char const*& pos, Place& place, int depth) const;
  template <class Place>
  int put_array(char const*& pos, Place& place, int depth) const;
  int fresh_value(char const*& pos, Value* out, int depth) const;
  int fresh_object(char const*& pos, Value& out, int depth) const;
  int fresh_array(char const*& pos, Value& out, int depth) const;
  int special_member(char const*& pos, std::string_view key, TypedArrayState& state,
                     Object& members, int depth) const;
  int data_member(char const*& pos, TypedArrayState& state, Value& out, int depth) const;
  void type_member(Value const& type_value, TypedArrayState& state, Object& members,
                   int& code) const;

  char const* const end_;
  bool const comments_;
};

// A value is tried as string, number, object, array, boolean and null, and when all fail the
// one that got furthest reports. The first byte decides: it starts at most one alternative,
// every other one fails at that byte without moving, and a literal never moves when it fails.
// So the alternative the byte starts is the only one read; when it is a literal that does not
// match, or the byte starts none, all stand still and the string alternative, first in the
// order, reports expected_string.
template <class Place>
inline int Reader::read_value(char const*& pos, Place& place, int depth) const {
  if (pos == end_) {
    return rc::unexpected_end;
  }
  // Strings first, outside the switch: most values of requests are strings, and a compare
  // and a branch are cheaper than the switch's jump through a table.
  if (*pos == '"') {
    return put_string(pos, place);
  }
  switch (*pos) {
    case '{':
      return put_object(pos, place, depth);
    case '[':
      return put_array(pos, place, depth);
    case 't':
      return put_literal(pos, "true", true, place);
    case 'f':
      return put_literal(pos, "false", false, place);
    case 'n':
      return put_literal(pos, "null", Null{}, place);
    case '-':
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9':
      return put_number(pos, place);
    default:
      return rc::expected_string;
  }
}

template <class Place>
FOUNDATION_JSON_SLOT int Reader::put_string(char const*& pos, Place& place) const {
  char const* const first = pos + 1;
  if (char const* const close = find_plain_string_end(first, end_); close != nullptr) {
    // Built once, straight from the text, in its place.
    place.put(StringText{first, static_cast<std::size_t>(close - first)});
    pos = close + 1;
    return rc::ok;
  }
  return put_escaped_string(pos, place);
}

template <class Place>
FOUNDATION_JSON_NOINLINE int Reader::put_escaped_string(char const*& pos, Place& place) const {
  std::string decoded;
  std::string_view text;
  int const code = read_string(pos, end_, decoded, text);
  if (code == rc::ok) {
    if (text.data() != decoded.data()) {
      decoded.assign(text.data(), text.size());
    }
    place.put(std::move(decoded));
  }
  return code;
}

template <class Place>
FOUNDATION_JSON_NOINLINE int Reader::put_number(char const*& pos, Place& place) const {
  char const* const start = pos;
  int const code = scan_number(pos, end_);
  if (code == rc::ok) {
    place.put(number_value(start, pos));
  }
  return code;
}

template <class Place, class Scalar>
inline int Reader::put_literal(char const*& pos, std::string_view literal, Scalar scalar,
                               Place& place) const {
  if (static_cast<std::size_t>(end_ - pos) >= literal.size() &&
      std::memcmp(pos, literal.data(), literal.size()) == 0) {
    place.put(scalar);
    pos += literal.size();
    return rc::ok;
  }
  return rc::expected_string;
}

template <class Place>
inline int Reader::put_object(char const*& pos, Place& place, int depth) const {
  Value* const slot = place.container(EmptyObject{});
  if (slot != nullptr && slot->is<Object>()) {
    return object(pos, boost::get<Object>(*slot), depth);
  }
  return fresh_value(pos, slot, depth);
}

template <class Place>
inline int Reader::put_array(char const*& pos, Place& place, int depth) const {
  Value* const slot = place.container(EmptyArray{});
  if (slot != nullptr && slot->is<Array>()) {
    return array(pos, boost::get<Array>(*slot), depth);
  }
  return fresh_value(pos, slot, depth);
}

// An array or object read aside, then moved into out (a Value of another kind), or dropped
// when out is nullptr (the member of a key already there).
FOUNDATION_JSON_NOINLINE int Reader::fresh_value(char const*& pos, Value* out, int depth) const {
  Value dropped;
  Value& target = out != nullptr ? *out : dropped;
  return *pos == '{' ? fresh_object(pos, target, depth) : fresh_array(pos, target, depth);
}

// Reading into a Value of another kind: read aside, then move in.
FOUNDATION_JSON_NOINLINE int Reader::fresh_object(char const*& pos, Value& out, int depth) const {
  Object members;
  int const code = object(pos, members, depth);
  if (code == rc::ok) {
    out = Value(std::move(members));
  }
  return code;
}

FOUNDATION_JSON_NOINLINE int Reader::fresh_array(char const*& pos, Value& out, int depth) const {
  Array elements;
  int const code = array(pos, elements, depth);
  if (code == rc::ok) {
    out = Value(std::move(elements));
  }
  return code;
}

int Reader::value(char const*& pos, Value& out, int depth) const {
  OutPlace place{out};
  return read_value(pos, place, depth);
}

// A "qvdata" or "qvtype" member, whose value may change how the other is read.
FOUNDATION_JSON_NOINLINE int Reader::special_member(char const*& pos, std::string_view key,
                                                    TypedArrayState& state, Object& members,
                                                    int depth) const {
  Value scratch;  // the value of a key already there, read and dropped
  // The node is made first, empty, and the value read into it: for "qvdata" that is where a
  // later "qvtype" finds it.
  auto const make = [&](auto&& seed) -> Value& {
    auto const inserted =
        members.emplace(std::piecewise_construct, std::forward_as_tuple(key),
                        std::forward_as_tuple(std::forward<decltype(seed)>(seed)));
    return inserted.second ? inserted.first->second : scratch;
  };
  // A container is read in place when its slot already has that kind.
  Value& target = *pos == '[' ? make(Array{}) : *pos == '{' ? make(Object{}) : make(Undefined{});
  if (key == qvdata_key) {
    return data_member(pos, state, target, depth);
  }
  int code = value(pos, target, depth);
  if (code == rc::ok) {
    type_member(target, state, members, code);
  }
  return code;
}

// The value of a "qvdata" member, read under the pending type name. Whatever is thrown while
// reading it makes the text unreadable rather than escaping.
FOUNDATION_JSON_NOINLINE int Reader::data_member(char const*& pos, TypedArrayState& state,
                                                 Value& out, int depth) const {
  state.data_start = pos;
  int code;
  try {
    code = typed_data(pos, state.pending, out, depth);
  } catch (...) {
    code = rc::unexpected_end;
  }
  state.data_seen = true;
  return code;
}

// After a "qvtype" member has been read: take up its type name and, when "qvdata" came first,
// read that again as a typed array. Anything thrown here is dropped and the member stays as
// read; a failure of the second reading ends the object with its code.
FOUNDATION_JSON_NOINLINE void Reader::type_member(Value const& type_value, TypedArrayState& state,
                                                  Object& members, int& code) const {
  try {
    // A qvtype that is not a string changes nothing.
    if (!type_value.is<std::string>()) {
      return;
    }
    TypeGroup const group = type_group(type_value.get<std::string>());
    if (group != TypeGroup::none) {
      state.pending = group;
    }
    if (!state.data_seen || state.pending == TypeGroup::none) {
      return;
    }
    // The entry is Undefined while the second reading runs, so an exception leaves it so.
    Value& data = members[std::string(qvdata_key)];
    data = Value();
    char const* p = state.data_start;  // the main position does not move back
    Value typed;
    int const reread = typed_data(p, state.pending, typed, 0);
    if (reread != rc::ok) {
      code = reread;
      return;
    }
    data = std::move(typed);
    state.data_seen = false;
  } catch (...) {
  }
}

int Reader::open_container(char const*& pos, char opening, char closing, int missing, int& depth,
                           bool& empty) const {
  empty = false;
  if (pos == end_) {
    return rc::unexpected_end;
  }
  if (*pos != opening) {
    return missing;
  }
  ++pos;
  if (++depth > max_nesting_depth) {
    return rc::too_deep;
  }
  skip(pos);
  if (pos == end_) {
    return rc::unexpected_end;
  }
  if (*pos == closing) {
    ++pos;
    empty = true;
  }
  return rc::ok;
}

// Reading into a container that already holds something: read aside, then move in on success.
template <class Container, class Read>
FOUNDATION_JSON_NOINLINE int read_aside(Container& out, Read&& read) {
  Container aside;
  int const code = read(aside);
  if (code == rc::ok) {
    out = std::move(aside);
  }
  return code;
}

int Reader::object(char const*& pos, Object& out, int depth) const {
  if (!out.empty()) {
    return read_aside(out, [&](Object& aside) { return object(pos, aside, depth); });
  }
  bool empty = false;
  if (int const opened = open_container(pos, '{', '}', rc::expected_object, depth, empty);
      opened != rc::ok || empty) {
    if (empty) {
      out.clear();
    }
    return opened;
  }

  // The members go straight into out, which is empty (as it always is for a nested object,
  // whose node was just made). A failure, or an exception, leaves it empty again, which is as
  // it was.
  Object& members = out;
  ClearOnFailure<Object> guard{&out};
  // The key as it stands in the text, or decoded into decoded_key when it has escapes.
  std::string_view key;
  std::string decoded_key;
  TypedArrayState state;
  for (;;) {
    int code = read_string(pos, end_, decoded_key, key);
    if (code != rc::ok) {
      return code;
    }
    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }
    if (*pos != ':') {
      return rc::expected_colon;
    }
    ++pos;
    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }

    // Each member is one map insertion: a string or scalar once read, an array or object before
    // it is read into its node. Nothing looks at the map while a value is read, so inserting
    // first is the same as inserting after, and on failure the whole map is dropped anyway.
    if (key.size() == qvdata_key.size() && (key == qvdata_key || key == qvtype_key)) {
      code = special_member(pos, key, state, members, depth);
    } else {
      MemberPlace place{members, key};
      code = read_value(pos, place, depth);
    }
    if (code != rc::ok) {
      return code;
    }

    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }
    if (*pos == ',') {
      ++pos;
      skip(pos);
      continue;
    }
    if (*pos == '}') {
      ++pos;
      guard.target = nullptr;
      return rc::ok;
    }
    return rc::expected_comma_or_brace;
  }
}

int Reader::array(char const*& pos, Array& out, int depth) const {
  if (!out.empty()) {
    return read_aside(out, [&](Array& aside) { return array(pos, aside, depth); });
  }
  bool empty = false;
  if (int const opened = open_container(pos, '[', ']', rc::expected_array, depth, empty);
      opened != rc::ok || empty) {
    if (empty) {
      out.clear();
    }
    return opened;
  }

  // As in object: each element is read in place at the back of out; a failure drops them all.
  Array& elements = out;
  ClearOnFailure<Array> guard{&out};
  for (;;) {
    if (pos == end_) {
      return rc::unexpected_end;  // what the element's own reading would give
    }
    ElementPlace place{elements};
    int const code = read_value(pos, place, depth);
    if (code != rc::ok) {
      return code;
    }
    skip(pos);
    if (pos == end_) {
      return rc::unexpected_end;
    }
    if (*pos == ',') {
      ++pos;
      skip(pos);
      continue;
    }
    if (*pos == ']') {
      ++pos;
      guard.target = nullptr;
      return rc::ok;
    }
    return rc::expected_comma_or_bracket;
  }
}

int Reader::typed_data(char const*& pos, TypeGroup group, Value& out, int depth) const {
  if (group == TypeGroup::none) {
    return value(pos, out, depth);
  }
  auto const read = [&](Array& elements) {
    return group == TypeGroup::signed_integer
               ? read_typed_array<true>(pos, end_, comments_, elements)
               : read_typed_array<false>(pos, end_, comments_, elements);
  };
  if (out.is<Array>()) {
    return read(out.get<Array>());
  }
  Array elements;
  int const code = read(elements);
  if (code == rc::ok) {
    out = Value(std::move(elements));
  }
  return code;
}

}  // namespace

int parse_object(char const*& pos, char const* end, bool comments, Object& out) {
  return Reader(end, comments).object(pos, out, 0);
}

int parse_value(char const*& pos, char const* end, bool comments, Value& out) {
  return Reader(end, comments).value(pos, out, 0);
}

int parse_array(char const*& pos, char const* end, bool comments, Array& out) {
  return Reader(end, comments).array(pos, out, 0);
}

int parse_typed_data(char const*& pos, char const* end, bool comments, std::string const& type_name,
                     Value& out) {
  return Reader(end, comments).typed_data(pos, type_group(type_name), out, 0);
}

}  // namespace foundation::json
