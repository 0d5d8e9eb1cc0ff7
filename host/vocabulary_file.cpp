#include "host/vocabulary_file.hpp"

#include <fstream>
#include <map>
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
  std::map<std::string, std::string*> const texts = {
      {"requestIdKey", &v.requestIdKey},
      {"replyRequestIdKey", &v.replyRequestIdKey},
      {"uidKey", &v.uidKey},
      {"clipboardItemsKey", &v.clipboardItemsKey},
      {"flavorsKey", &v.flavorsKey},
      {"itemDataKey", &v.itemDataKey},
      {"itemMimeTypeKey", &v.itemMimeTypeKey},
      {"itemActionKey", &v.itemActionKey},
      {"successKey", &v.successKey},
      {"textUriListMimeType", &v.textUriListMimeType},
      {"svgMimeType", &v.svgMimeType},
      {"taggedImageMimeType", &v.taggedImageMimeType},
      {"ignoredMimeType", &v.ignoredMimeType},
      {"graphicsMimePrefix", &v.graphicsMimePrefix},
      {"applicationMimePrefix", &v.applicationMimePrefix},
      {"textMimePrefix", &v.textMimePrefix},
      {"javaMimePrefix", &v.javaMimePrefix},
      {"nativeMimeType1", &v.nativeMimeType1},
      {"nativeMimeType2", &v.nativeMimeType2},
      {"nativeMimeType3", &v.nativeMimeType3},
      {"javaMimeType1", &v.javaMimeType1},
      {"javaMimeType2", &v.javaMimeType2},
      {"javaMimeType3", &v.javaMimeType3},
      {"dataUrlPrefix", &v.dataUrlPrefix},
      {"dataUrlParameterSeparator", &v.dataUrlParameterSeparator},
      {"dataUrlEncodingName", &v.dataUrlEncodingName},
      {"dataUrlDataSeparator", &v.dataUrlDataSeparator},
      {"taggedImageValuePrefix", &v.taggedImageValuePrefix},
      {"defaultActionText", &v.defaultActionText},
      {"actionOneText", &v.actionOneText},
  };

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
    auto const field = texts.find(name);
    if (field == texts.end()) {
      throw std::runtime_error(path + ": unknown vocabulary member \"" + name + "\"");
    }
    if (!value.is<std::string>()) {
      throw std::runtime_error(path + ": \"" + name + "\" must be a string");
    }
    *field->second = value.get<std::string>();
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
