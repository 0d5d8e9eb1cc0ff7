// fl::filesystem: the file path type of clipboard file lists.
#pragma once

#include <string>
#include <utility>

namespace fl::filesystem {
namespace detail {

// Character types of a path: the native narrow type and the type its text is carried in.
template <class NativeChar, class TextChar>
struct path_traits {
  using native_char = NativeChar;
  using text_char = TextChar;
  using string_type = std::basic_string<TextChar>;
};

// The native form of a path text on this platform (POSIX):
//  - a "file:" URI ("file:///a%20b", "file://localhost/a") becomes the absolute path it names,
//    its %XX escapes decoded as UTF-8 (a URI naming another host is kept as it is);
//  - with `collapse` true, runs of "/" are collapsed to one and "/./" segments dropped
//    (".." is kept: resolving it would need the file system);
//  - a trailing "/" is removed, except from the root "/" itself;
//  - every other text is kept as it is; the empty text stays empty.
std::u16string make_native_form(std::u16string const& text, bool collapse);

}  // namespace detail

// A file path whose text is held as a string of TextChar (UTF-16 for the clipboard).
template <class NativeChar, class TextChar,
          class Traits = detail::path_traits<NativeChar, TextChar>>
class basic_path {
 public:
  using string_type = std::basic_string<TextChar>;
  using value_type = TextChar;

  basic_path() = default;
  explicit basic_path(string_type text) : text_(std::move(text)) {}

  string_type const& text() const noexcept { return text_; }
  TextChar const* c_str() const noexcept { return text_.c_str(); }
  bool empty() const noexcept { return text_.empty(); }

  friend bool operator==(basic_path const& a, basic_path const& b) { return a.text_ == b.text_; }
  friend bool operator!=(basic_path const& a, basic_path const& b) { return !(a == b); }

 private:
  string_type text_;
};

using path = basic_path<char, char16_t, detail::path_traits<char, char16_t>>;

}  // namespace fl::filesystem
