// foundation::json::serialize against RapidJSON's Writer writing the same document (held in a
// rapidjson::Document, as ours is held in a Value), with a memcpy of the same number of bytes
// as the ceiling. Rates are bytes of the document's JSON text, as serialize writes it, per
// second, for every contender.
//
// Documents:
//  - LargeText: a reply with one 16 MB string member (about 1% of the characters need an
//    escape, some are two- to four-byte UTF-8) and a few small members;
//  - ManyValues: an array of 100000 small objects (ids, names, ratios, flags).
#include <benchmark/benchmark.h>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include "heap_mode_main.hpp"
#include "sample_text.hpp"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "json/value.hpp"
#include "json/writer.hpp"

namespace {

namespace fj = foundation::json;

constexpr std::size_t kTextBytes = 16u << 20;
constexpr long kItems = 100000;

// A key or string value, copied (a Document must not point into temporaries).
template <class Handler>
void put(Handler& out, std::string const& text, bool key) {
  auto const size = static_cast<rapidjson::SizeType>(text.size());
  if (key) {
    out.Key(text.data(), size, true);
  } else {
    out.String(text.data(), size, true);
  }
}

// Each document as a Value and as the handler calls that build the rapidjson::Document which
// the peer serializes.
struct LargeText {
  // Both writers produce the very same bytes for this one.
  static constexpr bool kSameText = true;
  std::string text = sample_text(kTextBytes);

  fj::Value value() const {
    fj::Object reply;
    reply["clipboardItems"] = text;
    reply["requestid"] = "f3a9c2d4-0001";
    reply["success"] = true;
    reply["count"] = 1L;
    reply["ratio"] = 0.25;
    return fj::Value(std::move(reply));
  }

  template <class Handler>
  void write(Handler& out) const {
    out.StartObject();  // members in the byte order that the map uses
    put(out, "clipboardItems", true);
    put(out, text, false);
    put(out, "count", true);
    out.Int64(1);
    put(out, "ratio", true);
    out.Double(0.25);
    put(out, "requestid", true);
    put(out, "f3a9c2d4-0001", false);
    put(out, "success", true);
    out.Bool(true);
    out.EndObject(5);
  }
};

struct ManyValues {
  // RapidJSON writes integral doubles as "1.0" and has its own digit generation.
  static constexpr bool kSameText = false;

  static std::string name(long i) { return "item-" + std::to_string(i * 7919 % 100003); }

  fj::Value value() const {
    fj::Array items;
    items.reserve(kItems);
    for (long i = 0; i < kItems; ++i) {
      fj::Object item;
      item["id"] = i;
      item["name"] = name(i);
      item["ok"] = i % 3 == 0;
      item["ratio"] = static_cast<double>(i) / 7.0;
      items.emplace_back(std::move(item));
    }
    return fj::Value(std::move(items));
  }

  template <class Handler>
  void write(Handler& out) const {
    out.StartArray();
    for (long i = 0; i < kItems; ++i) {
      out.StartObject();
      put(out, "id", true);
      out.Int64(i);
      put(out, "name", true);
      put(out, name(i), false);
      put(out, "ok", true);
      out.Bool(i % 3 == 0);
      put(out, "ratio", true);
      out.Double(static_cast<double>(i) / 7.0);
      out.EndObject(4);
    }
    out.EndArray(static_cast<rapidjson::SizeType>(kItems));
  }
};

template <class Document>
Document const& document() {
  static Document const instance;
  return instance;
}

template <class Document>
fj::Value const& value() {
  static fj::Value const instance = document<Document>().value();
  return instance;
}

template <class Document>
rapidjson::Document const& rapidjson_document() {
  static rapidjson::Document const instance = [] {
    auto generate = [](rapidjson::Document& handler) {
      document<Document>().write(handler);
      return true;
    };
    rapidjson::Document doc;
    doc.Populate(generate);
    return doc;
  }();
  return instance;
}

template <class Document>
std::string rapidjson_text() {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  rapidjson_document<Document>().Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

template <class Document>
std::size_t text_size() {
  static std::size_t const size = fj::serialize(value<Document>()).size();
  return size;
}

template <class Document>
void set_bytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(text_size<Document>()));
}

template <class Document>
void serialize_ours(benchmark::State& state) {
  fj::Value const& doc = value<Document>();
  if (Document::kSameText && fj::serialize(doc) != rapidjson_text<Document>()) {
    state.SkipWithError("the two writers disagree on the document's text");
    return;
  }
  for (auto _ : state) {
    std::string text = fj::serialize(doc);
    benchmark::DoNotOptimize(text.data());
  }
  set_bytes<Document>(state);
}

// RapidJSON's own output, a StringBuffer; the text stays in it.
template <class Document>
void serialize_rapidjson(benchmark::State& state) {
  rapidjson::Document const& doc = rapidjson_document<Document>();
  text_size<Document>();
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    doc.Accept(writer);
    benchmark::DoNotOptimize(buffer.GetString());
  }
  set_bytes<Document>(state);
}

// The same, ending in a std::string as serialize does.
template <class Document>
void serialize_rapidjson_to_string(benchmark::State& state) {
  text_size<Document>();
  for (auto _ : state) {
    std::string text = rapidjson_text<Document>();
    benchmark::DoNotOptimize(text.data());
  }
  set_bytes<Document>(state);
}

template <class Document>
void copy_memcpy(benchmark::State& state) {
  std::string const text = fj::serialize(value<Document>());
  std::vector<char> out(text.size());
  for (auto _ : state) {
    std::memcpy(out.data(), text.data(), text.size());
    benchmark::ClobberMemory();
  }
  set_bytes<Document>(state);
}

BENCHMARK_TEMPLATE(serialize_ours, LargeText);
BENCHMARK_TEMPLATE(serialize_rapidjson, LargeText);
BENCHMARK_TEMPLATE(serialize_rapidjson_to_string, LargeText);
BENCHMARK_TEMPLATE(copy_memcpy, LargeText);
BENCHMARK_TEMPLATE(serialize_ours, ManyValues);
BENCHMARK_TEMPLATE(serialize_rapidjson, ManyValues);
BENCHMARK_TEMPLATE(serialize_rapidjson_to_string, ManyValues);
BENCHMARK_TEMPLATE(copy_memcpy, ManyValues);

}  // namespace

int main(int argc, char** argv) {
  return run_benchmarks_keeping_heap(argc, argv);
}
