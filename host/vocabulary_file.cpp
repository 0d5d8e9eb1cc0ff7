#include "host/vocabulary_file.hpp"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "json/reader.hpp"

namespace clipboard_host {

EditorServices::ClipboardVocabulary loadVocabulary(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot open vocabulary file " + path);
  }
  std::stringstream content;
  content << file.rdbuf();
  std::string const text = content.str();

  foundation::json::Object members;
  char const* pos = text.data();
  if (int const code =
          foundation::json::parse_object(pos, text.data() + text.size(), false, members);
      code != 0) {
    throw std::runtime_error(path + ": not a JSON object (reader code " + std::to_string(code) +
                             ")");
  }

  EditorServices::ClipboardVocabulary v = EditorServices::defaultClipboardVocabulary();
  for (auto& [name, value] : members) {
    if (name == "fallbackFlavors") {
      if (!value.is<foundation::json::Array>()) {
        throw std::runtime_error(path + ": \"fallbackFlavors\" must be an array of strings");
      }
      for (auto const& flavor : value.get<foundation::json::Array>()) {
        if (!flavor.is<std::string>()) {
          throw std::runtime_error(path + ": \"fallbackFlavors\" must be an array of strings");
        }
      }
      v.fallbackFlavors = value.get<foundation::json::Array>();
      continue;
    }
    auto const& texts = EditorServices::vocabularyTexts();
    std::string const& member = name;  // a structured binding cannot be captured in C++17
    auto const text =
        std::find_if(texts.begin(), texts.end(), [&](auto const& t) { return member == t.name; });
    if (text == texts.end()) {
      throw std::runtime_error(path + ": unknown vocabulary member \"" + name + "\"");
    }
    if (!value.is<std::string>()) {
      throw std::runtime_error(path + ": \"" + name + "\" must be a string");
    }
    v.*text->field = value.get<std::string>();
  }

  if (v.requestIdKey != "requestid") {
    throw std::runtime_error(path + ": \"requestIdKey\" must stay \"requestid\"");
  }
  if ((v.dataUrlPrefix + v.graphicsMimePrefix).size() != 11) {
    throw std::runtime_error(path +
                             ": \"dataUrlPrefix\" followed by \"graphicsMimePrefix\" must be 11 "
                             "characters long");
  }
  return v;
}

}  // namespace clipboard_host
