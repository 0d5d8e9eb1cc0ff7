// Mime type mapping between platform-side and Java-side names, and the category predicates.
#include "clipboard/clipboard_impl.hpp"

namespace EditorServices {
namespace {

bool startsWith(std::string const& text, std::string const& prefix) {
  return text.rfind(prefix, 0) == 0;
}

}  // namespace

std::string ClipboardImpl::getJavaMimeType(std::string mimeType) {
  if (mimeType == nativeMimeType1) {
    return javaMimeType1;
  }
  if (mimeType == nativeMimeType2) {
    return javaMimeType2;
  }
  if (mimeType == nativeMimeType3) {
    return javaMimeType3;
  }
  return std::string();
}

std::string ClipboardImpl::getCppMimeType(std::string mimeType) {
  if (mimeType == javaMimeType1) {
    return nativeMimeType1;
  }
  if (mimeType == javaMimeType2) {
    return nativeMimeType2;
  }
  if (mimeType == javaMimeType3) {
    return nativeMimeType3;
  }
  return std::string();
}

bool ClipboardImpl::isTextUriList(std::string mimeType) {
  return mimeType == textUriListMimeType;
}

bool ClipboardImpl::isGraphicsType(std::string mimeType) {
  return startsWith(mimeType, graphicsMimePrefix);
}

bool ClipboardImpl::isApplicationType(std::string mimeType) {
  return startsWith(mimeType, applicationMimePrefix);
}

bool ClipboardImpl::isTextType(std::string mimeType) {
  return startsWith(mimeType, textMimePrefix);
}

bool ClipboardImpl::isJavaMimeType(std::string mimeType) {
  return startsWith(mimeType, javaMimePrefix);
}

}  // namespace EditorServices
