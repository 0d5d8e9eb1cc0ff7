#include "clipboard/vocabulary.hpp"

namespace EditorServices {
namespace {

ClipboardVocabulary makeDefaultVocabulary() {
  ClipboardVocabulary v;
  v.requestIdKey = "requestid";
  v.replyRequestIdKey = "requestid";
  v.uidKey = "uid";
  v.clipboardItemsKey = "clipboardItems";
  v.flavorsKey = "flavors";
  v.itemDataKey = "data";
  v.itemMimeTypeKey = "mimeType";
  v.itemActionKey = "action";
  v.successKey = "success";

  v.textUriListMimeType = "text/uri-list";
  v.svgMimeType = "image/svg+xml";
  v.taggedImageMimeType = "image/x-java-image; class=java.awt.Image";
  v.ignoredMimeType = "application/x-java-jvm-local-objectref";
  v.graphicsMimePrefix = "image/";
  v.applicationMimePrefix = "application/";
  v.textMimePrefix = "text/";
  v.javaMimePrefix = "application/x-java-";

  v.nativeMimeType1 = "application/rtf";
  v.nativeMimeType2 = "application/xhtml+xml";
  v.nativeMimeType3 = "application/json";
  v.javaMimeType1 = "application/x-java-serialized-object; class=java.lang.String; format=rtf";
  v.javaMimeType2 = "application/x-java-serialized-object; class=java.lang.String; format=xhtml";
  v.javaMimeType3 = "application/x-java-serialized-object; class=java.lang.String; format=json";

  v.dataUrlPrefix = "data:";
  v.dataUrlParameterSeparator = ";";
  v.dataUrlEncodingName = "base64";
  v.dataUrlDataSeparator = ",";
  v.taggedImageValuePrefix = "data:image/png;base64,";

  v.defaultActionText = "copy";
  v.actionOneText = "cut";

  v.fallbackFlavors = {foundation::json::Value("text/plain"),
                       foundation::json::Value("text/uri-list"),
                       foundation::json::Value("image/png")};
  return v;
}

}  // namespace

ClipboardVocabulary const& defaultClipboardVocabulary() {
  static ClipboardVocabulary const vocabulary = makeDefaultVocabulary();
  return vocabulary;
}

}  // namespace EditorServices
