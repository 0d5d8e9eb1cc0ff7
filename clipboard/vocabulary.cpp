#include "clipboard/vocabulary.hpp"

#include "clipboard/clipboard_impl.hpp"

namespace EditorServices {
namespace {

using V = ClipboardVocabulary;
using C = ClipboardImpl;

#define EDITOR_CLIPBOARD_TEXT(name, text) \
  VocabularyText {                        \
#name, &V::name, &C::name, text       \
  }

constexpr std::array<VocabularyText, 30> kTexts = {
    EDITOR_CLIPBOARD_TEXT(requestIdKey, "requestid"),
    EDITOR_CLIPBOARD_TEXT(replyRequestIdKey, "requestid"),
    EDITOR_CLIPBOARD_TEXT(uidKey, "uid"),
    EDITOR_CLIPBOARD_TEXT(clipboardItemsKey, "clipboardItems"),
    EDITOR_CLIPBOARD_TEXT(flavorsKey, "flavors"),
    EDITOR_CLIPBOARD_TEXT(itemDataKey, "data"),
    EDITOR_CLIPBOARD_TEXT(itemMimeTypeKey, "mimeType"),
    EDITOR_CLIPBOARD_TEXT(itemActionKey, "action"),
    EDITOR_CLIPBOARD_TEXT(successKey, "success"),
    EDITOR_CLIPBOARD_TEXT(textUriListMimeType, "text/uri-list"),
    EDITOR_CLIPBOARD_TEXT(svgMimeType, "image/svg+xml"),
    EDITOR_CLIPBOARD_TEXT(taggedImageMimeType, "image/x-java-image; class=java.awt.Image"),
    EDITOR_CLIPBOARD_TEXT(ignoredMimeType, "application/x-java-jvm-local-objectref"),
    EDITOR_CLIPBOARD_TEXT(graphicsMimePrefix, "image/"),
    EDITOR_CLIPBOARD_TEXT(applicationMimePrefix, "application/"),
    EDITOR_CLIPBOARD_TEXT(textMimePrefix, "text/"),
    EDITOR_CLIPBOARD_TEXT(javaMimePrefix, "application/x-java-"),
    EDITOR_CLIPBOARD_TEXT(nativeMimeType1, "application/rtf"),
    EDITOR_CLIPBOARD_TEXT(nativeMimeType2, "application/xhtml+xml"),
    EDITOR_CLIPBOARD_TEXT(nativeMimeType3, "application/json"),
    EDITOR_CLIPBOARD_TEXT(
        javaMimeType1, "application/x-java-serialized-object; class=java.lang.String; format=rtf"),
    EDITOR_CLIPBOARD_TEXT(
        javaMimeType2,
        "application/x-java-serialized-object; class=java.lang.String; format=xhtml"),
    EDITOR_CLIPBOARD_TEXT(
        javaMimeType3, "application/x-java-serialized-object; class=java.lang.String; format=json"),
    EDITOR_CLIPBOARD_TEXT(dataUrlPrefix, "data:"),
    EDITOR_CLIPBOARD_TEXT(dataUrlParameterSeparator, ";"),
    EDITOR_CLIPBOARD_TEXT(dataUrlEncodingName, "base64"),
    EDITOR_CLIPBOARD_TEXT(dataUrlDataSeparator, ","),
    EDITOR_CLIPBOARD_TEXT(taggedImageValuePrefix, "data:image/png;base64,"),
    EDITOR_CLIPBOARD_TEXT(defaultActionText, "copy"),
    EDITOR_CLIPBOARD_TEXT(actionOneText, "cut"),
};

#undef EDITOR_CLIPBOARD_TEXT

ClipboardVocabulary makeDefaultVocabulary() {
  ClipboardVocabulary v;
  for (VocabularyText const& text : kTexts) {
    v.*text.field = text.defaultText;
  }
  v.fallbackFlavors = {foundation::json::Value("text/plain"),
                       foundation::json::Value("text/uri-list"),
                       foundation::json::Value("image/png")};
  return v;
}

}  // namespace

std::array<VocabularyText, 30> const& vocabularyTexts() {
  return kTexts;
}

ClipboardVocabulary const& defaultClipboardVocabulary() {
  static ClipboardVocabulary const vocabulary = makeDefaultVocabulary();
  return vocabulary;
}

}  // namespace EditorServices
