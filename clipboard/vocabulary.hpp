// The vocabulary of a ClipboardImpl: the JSON keys and mime names that a host gives the service.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "json/value.hpp"

namespace EditorServices {

class ClipboardImpl;

struct ClipboardVocabulary {
  // Request and reply keys.
  std::string requestIdKey;       // request id in a request (the front end sends "requestid")
  std::string replyRequestIdKey;  // request id echoed in a reply
  std::string uidKey;             // the requester's uid in a request
  std::string clipboardItemsKey;  // items of a set request; data object of a get reply
  std::string flavorsKey;         // flavor names of a flavors reply and of a get request
  std::string itemDataKey;        // data of a set item
  std::string itemMimeTypeKey;    // mime type of a set item
  std::string itemActionKey;      // optional action of a uri-list set item
  std::string successKey;         // outcome of a reply; parse flag of a request map

  // Mime types and prefixes.
  std::string textUriListMimeType;    // the file-list type (exact match)
  std::string svgMimeType;            // an image item of this type is written as "image/svg"
  std::string taggedImageMimeType;    // an image of this type is answered as a tagged object
  std::string ignoredMimeType;        // set items of this type are skipped
  std::string graphicsMimePrefix;     // images
  std::string applicationMimePrefix;  // raw bytes
  std::string textMimePrefix;         // text
  std::string javaMimePrefix;         // the front end's Java data-flavor types

  // The three formats known under a platform-side and a Java-side name (pair N is
  // nativeMimeTypeN <-> javaMimeTypeN). Java-side data is a Java-serialized string.
  std::string nativeMimeType1, nativeMimeType2, nativeMimeType3;
  std::string javaMimeType1, javaMimeType2, javaMimeType3;

  // Image texts: dataUrlPrefix + mime + dataUrlParameterSeparator + dataUrlEncodingName +
  // dataUrlDataSeparator + base64. dataUrlPrefix + graphicsMimePrefix must be 11 characters:
  // the set request recognises an image data URL by them.
  std::string dataUrlPrefix;
  std::string dataUrlParameterSeparator;
  std::string dataUrlEncodingName;
  std::string dataUrlDataSeparator;
  std::string taggedImageValuePrefix;  // put before the base64 text in a tagged image object

  // File-list actions: actionOneText selects PFClipboardAction::cut; defaultActionText is taken
  // when an item's action cannot be read.
  std::string defaultActionText;
  std::string actionOneText;

  // Flavors a get request falls back to when the clipboard cannot list its own.
  std::vector<foundation::json::Value> fallbackFlavors;

  // Texts and a word the host may park in the service object; the service never reads them.
  std::array<std::string, 28> hostTexts;
  std::uint64_t hostWord = 0;
};

// One named text of the vocabulary: its name (as a host's vocabulary file spells it), its field,
// the service member it lands in, and its text in the default vocabulary.
struct VocabularyText {
  char const* name;
  std::string ClipboardVocabulary::*field;
  std::string ClipboardImpl::*member;
  char const* defaultText;
};

// Every named text, each once: the service's constructor, the default vocabulary and hosts that
// read a vocabulary by name all go through this list.
std::array<VocabularyText, 30> const& vocabularyTexts();

// The default vocabulary: the texts of vocabularyTexts() (request id "requestid", items with
// "mimeType", "data" and "action", images as RFC 2397 data URLs, the three Java-serialized
// string pairs, actions "copy" and "cut") and the fallback flavors "text/plain",
// "text/uri-list", "image/png".
ClipboardVocabulary const& defaultClipboardVocabulary();

}  // namespace EditorServices
