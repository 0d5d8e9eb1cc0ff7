#include "clipboard/clipboard_impl.hpp"

#include <array>
#include <cstddef>

namespace EditorServices {

namespace {

// The members that carry the host's own texts, in the order of ClipboardVocabulary::hostTexts.
constexpr std::array<std::string ClipboardImpl::*, 28> kHostTextMembers = {
    &ClipboardImpl::hostText1,  &ClipboardImpl::hostText4,  &ClipboardImpl::hostText5,
    &ClipboardImpl::hostText6,  &ClipboardImpl::hostText10, &ClipboardImpl::hostText11,
    &ClipboardImpl::hostText14, &ClipboardImpl::hostText19, &ClipboardImpl::hostText20,
    &ClipboardImpl::hostText21, &ClipboardImpl::hostText22, &ClipboardImpl::hostText23,
    &ClipboardImpl::hostText24, &ClipboardImpl::hostText25, &ClipboardImpl::hostText26,
    &ClipboardImpl::hostText27, &ClipboardImpl::hostText28, &ClipboardImpl::hostText29,
    &ClipboardImpl::hostText30, &ClipboardImpl::hostText31, &ClipboardImpl::hostText32,
    &ClipboardImpl::hostText33, &ClipboardImpl::hostText34, &ClipboardImpl::hostText35,
    &ClipboardImpl::hostText36, &ClipboardImpl::hostText45, &ClipboardImpl::hostText48,
    &ClipboardImpl::hostText49,
};

}  // namespace

ClipboardImpl::ClipboardImpl(ClipboardVocabulary const& v)
    : fallbackFlavors(v.fallbackFlavors), hostWord(v.hostWord) {
  for (VocabularyText const& text : vocabularyTexts()) {
    this->*text.member = v.*text.field;
  }
  for (std::size_t i = 0; i < kHostTextMembers.size(); ++i) {
    this->*kHostTextMembers[i] = v.hostTexts[i];
  }
}

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
