// A vocabulary read from a JSON file: an object whose members name ClipboardVocabulary fields
// ("successKey": "ok", "fallbackFlavors": ["text/plain"], ...). Fields it does not name keep
// the default vocabulary's texts.
#pragma once

#include <string>

#include "clipboard/vocabulary.hpp"

namespace clipboard_host {

// Throws std::runtime_error naming the file and what is wrong with it.
EditorServices::ClipboardVocabulary loadVocabulary(std::string const& path);

}  // namespace clipboard_host
