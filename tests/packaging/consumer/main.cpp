// A host program built against the library from outside: one set request and one get request.
#include <iostream>
#include <string>

#include "clipboard/clipboard_impl.hpp"

int main() {
  EditorServices::ClipboardImpl service;
  std::string reply;
  auto capture = [&](std::string text, std::string) { reply = std::move(text); };
  service.handleSetClipboardDataRequest(
      connector::message_service::JsonMessage(
          R"({"requestid":"1","clipboardItems":[{"mimeType":"text/plain","data":"packaged"}]})"),
      pf::clipboard::PFClipboardMode::clipboard, capture);
  service.handleGetClipboardDataRequest(
      connector::message_service::JsonMessage(R"({"requestid":"2","flavors":["text/plain"]})"),
      pf::clipboard::PFClipboardMode::clipboard, capture);
  std::cout << reply << "\n";
  return reply == R"({"clipboardItems":{"text/plain":"packaged"},"requestid":"2","success":true})"
             ? 0
             : 1;
}
