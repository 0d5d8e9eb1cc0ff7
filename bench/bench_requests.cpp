// Whole requests through the message forms on the in-memory clipboard, each beside memcpy of
// the bytes it moves.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "clipboard/clipboard_impl.hpp"
#include "heap_mode_main.hpp"
#include "json/writer.hpp"
#include "platform/i18n.hpp"
#include "platform/memory/memory_clipboard.hpp"
#include "sample_text.hpp"

namespace {

using connector::message_service::JsonMessage;
using pf::clipboard::PFClipboardMode;

constexpr std::size_t kTextBytes = 16u << 20;

// Prose much denser in stops than the shared sample: about one byte in ten is an escape or
// part of a non-ASCII letter.
std::string denseProse(std::size_t bytes) {
  std::string text;
  text.reserve(bytes + 8);
  std::mt19937 random(7);
  char const* const words[] = {"clipboard ",   "editor ",       "paste ",
                               "caf\xc3\xa9 ", "line\n",        "tab\t",
                               "\"quoted\" ",  "na\xc3\xafve ", "JSON "};
  while (text.size() < bytes) {
    text += words[random() % 9];
  }
  text.resize(bytes);
  while ((static_cast<unsigned char>(text.back()) & 0xC0) == 0x80 ||
         static_cast<unsigned char>(text.back()) >= 0xC0) {
    text.pop_back();  // no cut UTF-8 sequence at the end
  }
  return text;
}

std::string jsonString(std::string const& text) {
  return foundation::json::serialize(foundation::json::Value(text));
}

struct Fixture {
  Fixture() : clipboard(std::make_shared<pf::clipboard::PFMemoryClipboard>()) {
    pf::clipboard::installClipboardBackend(clipboard);
  }
  std::shared_ptr<pf::clipboard::PFMemoryClipboard> clipboard;
  EditorServices::ClipboardImpl service;
};

// Puts one item on the clipboard, as a set request would.
template <class Content>
void putOnClipboard(std::u16string const& mimeType, Content content) {
  auto data = std::make_unique<pf::clipboard::PFClipboardData>();
  data->addData(mimeType, std::move(content));
  pf::clipboard::setClipboardData(std::move(data), PFClipboardMode::clipboard);
}

// Whole get requests for one flavor through the message form, timed; returns the reply's size.
std::size_t timeGetRequests(benchmark::State& state, Fixture& f, std::string const& flavor) {
  JsonMessage const message(R"({"requestid":"r","uid":"u","flavors":[")" + flavor + R"("]})");
  std::size_t replyBytes = 0;
  for (auto _ : state) {
    f.service.handleGetClipboardDataRequest(
        message, PFClipboardMode::clipboard,
        [&](std::string reply, std::string) { replyBytes = reply.size(); });
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * replyBytes));
  return replyBytes;
}

void BM_FlavorsRequest(benchmark::State& state) {
  Fixture f;
  pf::clipboard::PFClipboardData data;
  data.addData(u"text/plain", std::u16string(u"x"));
  data.addData(u"text/html", std::u16string(u"<b>x</b>"));
  data.addData(u"image/png", std::vector<std::byte>(16));
  f.clipboard->copyFromOtherProgram(std::move(data), PFClipboardMode::clipboard);
  JsonMessage const message(std::string(R"({"requestid":"r-1","uid":"ui-1"})"));
  std::size_t replyBytes = 0;
  for (auto _ : state) {
    f.service.handleRequestForAvailableDataFlavors(
        message, [&](std::string text, std::string) { replyBytes = text.size(); });
  }
  benchmark::DoNotOptimize(replyBytes);
}
BENCHMARK(BM_FlavorsRequest);

// The small get request that bench_reader reads (about 80 bytes), whole, through the message
// form: a short text and a small PNG image on the clipboard, both asked for.
void BM_GetSmallRequest(benchmark::State& state) {
  Fixture f;
  auto data = std::make_unique<pf::clipboard::PFClipboardData>();
  data->addData(u"text/plain", std::u16string(u"hello, clipboard"));
  std::vector<std::uint8_t> rgba(16u * 16u * 4u, 0x80);
  auto const png = pf::graphics::PFImage::fromRgba(16, 16, std::move(rgba))->encodedBytes();
  data->addData(u"image/png",
                std::unique_ptr<pf::graphics::PFGraphics>(std::make_unique<pf::graphics::PFImage>(
                    pf::graphics::PFImage::Format::png, png)));
  pf::clipboard::setClipboardData(std::move(data), PFClipboardMode::clipboard);
  JsonMessage const message(
      std::string(R"({"requestid":"r-42","uid":"u1","flavors":["text/plain","image/png"]})"));
  std::size_t replyBytes = 0;
  for (auto _ : state) {
    f.service.handleGetClipboardDataRequest(
        message, PFClipboardMode::clipboard,
        [&](std::string reply, std::string) { replyBytes = reply.size(); });
  }
  state.counters["reply_bytes"] = static_cast<double>(replyBytes);
}
BENCHMARK(BM_GetSmallRequest);

void getText(benchmark::State& state, std::string const& text) {
  Fixture f;
  putOnClipboard(u"text/plain", fl::i18n::to_ustring(text));
  std::size_t const replyBytes = timeGetRequests(state, f, "text/plain");
  state.counters["reply_MB"] = static_cast<double>(replyBytes) / 1e6;
}

void BM_GetText16MB(benchmark::State& state) {
  getText(state, sample_text(kTextBytes));
}
BENCHMARK(BM_GetText16MB)->Unit(benchmark::kMillisecond);

void BM_GetText16MB_DenseProse(benchmark::State& state) {
  getText(state, denseProse(kTextBytes));
}
BENCHMARK(BM_GetText16MB_DenseProse)->Unit(benchmark::kMillisecond);

void BM_SetText16MB(benchmark::State& state) {
  Fixture f;
  std::string const request =
      R"({"requestid":"r","uid":"u","clipboardItems":[{"mimeType":"text/plain","data":)" +
      jsonString(sample_text(kTextBytes)) + "}]}";
  JsonMessage const message = JsonMessage::view(request.data(), request.size());
  bool ok = false;
  for (auto _ : state) {
    f.service.handleSetClipboardDataRequest(
        message, PFClipboardMode::clipboard,
        [&](std::string reply, std::string) { ok = reply.find("true") != std::string::npos; });
  }
  if (!ok) {
    state.SkipWithError("set failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * request.size()));
}
BENCHMARK(BM_SetText16MB)->Unit(benchmark::kMillisecond);

void BM_GetPng4K(benchmark::State& state) {
  Fixture f;
  // A 3840x2160 screenshot-like image: flat panels, some detail.
  std::vector<std::uint8_t> rgba(3840u * 2160u * 4u);
  for (std::uint32_t y = 0; y < 2160; ++y) {
    for (std::uint32_t x = 0; x < 3840; ++x) {
      std::uint8_t* p = &rgba[(y * 3840u + x) * 4u];
      bool const detail = (y / 16) % 3 == 0 && (x / 7 + y) % 5 == 0;
      p[0] = detail ? 20 : static_cast<std::uint8_t>(200 + (x / 480));
      p[1] = detail ? 20 : static_cast<std::uint8_t>(210 - (y / 540));
      p[2] = detail ? 20 : 230;
      p[3] = 255;
    }
  }
  auto const png = pf::graphics::PFImage::fromRgba(3840, 2160, std::move(rgba))->encodedBytes();
  putOnClipboard(u"image/png",
                 std::unique_ptr<pf::graphics::PFGraphics>(std::make_unique<pf::graphics::PFImage>(
                     pf::graphics::PFImage::Format::png, png)));
  timeGetRequests(state, f, "image/png");
  state.counters["png_MB"] = static_cast<double>(png.size()) / 1e6;
}
BENCHMARK(BM_GetPng4K)->Unit(benchmark::kMillisecond);

// The get request's three passes over the text, one by one: the platform read (a copy of the
// clipboard's UTF-16 text), the getter's conversion to UTF-8, and the serialization of the
// reply. Beside them, memcpy of the UTF-16 text: the floor of the first pass.
void BM_GetTextPass1_PlatformRead(benchmark::State& state) {
  Fixture f;
  putOnClipboard(u"text/plain", fl::i18n::to_ustring(sample_text(kTextBytes)));
  std::size_t units = 0;
  for (auto _ : state) {
    auto content = pf::clipboard::getClipboardDataSync(u"text/plain", PFClipboardMode::clipboard);
    units = std::get<std::u16string>(content).size();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * units * 2));
}
BENCHMARK(BM_GetTextPass1_PlatformRead)->Unit(benchmark::kMillisecond);

void BM_GetTextPass2_ToUtf8(benchmark::State& state) {
  std::u16string const text = fl::i18n::to_ustring(sample_text(kTextBytes));
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = fl::i18n::ustring_to_utf8(text).size();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_GetTextPass2_ToUtf8)->Unit(benchmark::kMillisecond);

void BM_GetTextPass3_Serialize(benchmark::State& state) {
  foundation::json::Object items;
  items["text/plain"] = foundation::json::Value(sample_text(kTextBytes));
  foundation::json::Object reply;
  reply["clipboardItems"] = foundation::json::Value(std::move(items));
  reply["requestid"] = foundation::json::Value("r");
  reply["success"] = foundation::json::Value(true);
  foundation::json::Value const value(std::move(reply));
  std::size_t bytes = 0;
  for (auto _ : state) {
    bytes = foundation::json::serialize(value).size();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_GetTextPass3_Serialize)->Unit(benchmark::kMillisecond);

void BM_MemcpyOfPlatformText(benchmark::State& state) {
  std::u16string const from = fl::i18n::to_ustring(sample_text(kTextBytes));
  std::u16string to(from.size(), u'\0');
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size() * 2);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * from.size() * 2));
}
BENCHMARK(BM_MemcpyOfPlatformText)->Unit(benchmark::kMillisecond);

// The physical limit: copying the bytes of the 16 MB get reply once, between buffers that are
// already mapped.
void BM_MemcpyOfGetReply(benchmark::State& state) {
  std::size_t bytes = 0;
  {
    Fixture f;
    putOnClipboard(u"text/plain", fl::i18n::to_ustring(sample_text(kTextBytes)));
    f.service.handleGetClipboardDataRequest(
        JsonMessage(std::string(R"({"requestid":"r","uid":"u","flavors":["text/plain"]})")),
        PFClipboardMode::clipboard, [&](std::string reply, std::string) { bytes = reply.size(); });
  }
  std::vector<char> from(bytes, 'x');
  std::vector<char> to(bytes);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_MemcpyOfGetReply)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  return run_benchmarks_keeping_heap(argc, argv);
}
