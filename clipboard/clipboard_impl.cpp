#include "clipboard/clipboard_impl.hpp"

namespace EditorServices {

ClipboardImpl::ClipboardImpl(ClipboardVocabulary const& v)
    : hostText1(v.hostTexts[0]),
      svgMimeType(v.svgMimeType),
      taggedImageMimeType(v.taggedImageMimeType),
      hostText4(v.hostTexts[1]),
      hostText5(v.hostTexts[2]),
      hostText6(v.hostTexts[3]),
      textUriListMimeType(v.textUriListMimeType),
      nativeMimeType1(v.nativeMimeType1),
      nativeMimeType2(v.nativeMimeType2),
      hostText10(v.hostTexts[4]),
      hostText11(v.hostTexts[5]),
      ignoredMimeType(v.ignoredMimeType),
      nativeMimeType3(v.nativeMimeType3),
      hostText14(v.hostTexts[6]),
      javaMimeType1(v.javaMimeType1),
      javaMimeType3(v.javaMimeType3),
      javaMimeType2(v.javaMimeType2),
      fallbackFlavors(v.fallbackFlavors),
      hostText19(v.hostTexts[7]),
      hostText20(v.hostTexts[8]),
      hostText21(v.hostTexts[9]),
      hostText22(v.hostTexts[10]),
      hostText23(v.hostTexts[11]),
      hostText24(v.hostTexts[12]),
      hostText25(v.hostTexts[13]),
      hostText26(v.hostTexts[14]),
      hostText27(v.hostTexts[15]),
      hostText28(v.hostTexts[16]),
      hostText29(v.hostTexts[17]),
      hostText30(v.hostTexts[18]),
      hostText31(v.hostTexts[19]),
      hostText32(v.hostTexts[20]),
      hostText33(v.hostTexts[21]),
      hostText34(v.hostTexts[22]),
      hostText35(v.hostTexts[23]),
      hostText36(v.hostTexts[24]),
      requestIdKey(v.requestIdKey),
      replyRequestIdKey(v.replyRequestIdKey),
      uidKey(v.uidKey),
      clipboardItemsKey(v.clipboardItemsKey),
      flavorsKey(v.flavorsKey),
      itemDataKey(v.itemDataKey),
      itemMimeTypeKey(v.itemMimeTypeKey),
      successKey(v.successKey),
      hostText45(v.hostTexts[25]),
      dataUrlPrefix(v.dataUrlPrefix),
      graphicsMimePrefix(v.graphicsMimePrefix),
      hostText48(v.hostTexts[26]),
      hostText49(v.hostTexts[27]),
      javaMimePrefix(v.javaMimePrefix),
      applicationMimePrefix(v.applicationMimePrefix),
      textMimePrefix(v.textMimePrefix),
      dataUrlEncodingName(v.dataUrlEncodingName),
      taggedImageValuePrefix(v.taggedImageValuePrefix),
      dataUrlParameterSeparator(v.dataUrlParameterSeparator),
      dataUrlDataSeparator(v.dataUrlDataSeparator),
      defaultActionText(v.defaultActionText),
      actionOneText(v.actionOneText),
      itemActionKey(v.itemActionKey),
      hostWord(v.hostWord) {}

ClipboardImpl::~ClipboardImpl() {
  // The listener holds a plain pointer to this object: detach it before any member goes.
  // unregister() returns only once no notification is running on another thread.
  if (changeRegistration) {
    changeRegistration->unregister();
  }
}

bool ClipboardImpl::isChangeSubscriptionActive() const {
  std::lock_guard<std::mutex> lock(subscriptionMutex);
  return changeSubscriptionActive;
}

bool ClipboardImpl::hasChangeRegistration() const {
  std::lock_guard<std::mutex> lock(subscriptionMutex);
  return changeRegistration != nullptr;
}

std::vector<foundation::json::Value> ClipboardImpl::lastReportedFlavorsSnapshot() const {
  std::lock_guard<std::mutex> lock(subscriptionMutex);
  return lastReportedFlavors;
}

}  // namespace EditorServices
