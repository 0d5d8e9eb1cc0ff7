// Request reading: our reader against the DOM parsers of RapidJSON and simdjson on the same
// texts, with a memcpy of the text as the floor. Each parser builds a fresh document per
// iteration, as a request would (simdjson keeps its parser and padded input, as it is meant to
// be used).
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "heap_mode_main.hpp"
#include "json/reader.hpp"

#if defined(__has_include)
#if __has_include(<rapidjson/document.h>)
// The peer at its best on the baseline instruction set: SIMD string scanning on.
#if defined(__SSE2__) && !defined(RAPIDJSON_SSE2)
#define RAPIDJSON_SSE2
#endif
#include <rapidjson/document.h>
#define BENCH_HAVE_RAPIDJSON 1
#endif
#if __has_include(<simdjson.h>)
#include <simdjson.h>
#define BENCH_HAVE_SIMDJSON 1
#endif
#endif

namespace {

// A set request with one text item of about 16 MB, one byte in a hundred starting an escape.
std::string big_string_request() {
  static char const* const escapes[] = {"\\n", "\\\"", "\\\\", "\\t", "\\u00e9", "\\/"};
  std::string data;
  data.reserve(17u << 20);
  std::size_t i = 0;
  while (data.size() < (16u << 20)) {
    if (i % 100 == 99) {
      data += escapes[(i / 100) % 6];
    } else {
      data += static_cast<char>('a' + i % 26);
    }
    ++i;
  }
  return R"({"requestid":"r-1","uid":"u1","clipboardItems":[{"mimeType":"text/plain","data":")" +
         data + "\"}]}";
}

std::string small_get_request() {
  return R"({"requestid":"r-42","uid":"u1","flavors":["text/plain","image/png"]})";
}

// A set request with a uri list of 100,000 paths.
std::string uri_list_request() {
  std::string text =
      R"({"requestid":"r-7","uid":"u1","clipboardItems":[{"mimeType":"text/uri-list",)"
      R"("action":"copy","data":[)";
  for (int i = 0; i < 100000; ++i) {
    if (i != 0) {
      text += ',';
    }
    text += "\"/home/user/projects/editor/assets/file-" + std::to_string(i) + ".txt\"";
  }
  return text + "]}]}";
}

// A typed array of count int32 values.
std::string typed_int32_request(int count) {
  std::mt19937 random(42);
  std::uniform_int_distribution<int> values(-2147483647 - 1, 2147483647);
  std::string text = R"({"qvtype":"int32","qvdata":[)";
  for (int i = 0; i < count; ++i) {
    if (i != 0) {
      text += ',';
    }
    text += std::to_string(values(random));
  }
  return text + "]}";
}

std::string const& text_of(int workload) {
  static std::string const texts[] = {big_string_request(), small_get_request(), uri_list_request(),
                                      typed_int32_request(1000000), typed_int32_request(500000)};
  return texts[workload];
}

void set_label_and_bytes(benchmark::State& state, std::string const& text) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(text.size()));
}

void Ours(benchmark::State& state) {
  std::string const& text = text_of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    foundation::json::Object request;
    char const* pos = text.data();
    int const code = foundation::json::parse_object(pos, text.data() + text.size(), false, request);
    if (code != 0) {
      state.SkipWithError("reader failed");
      break;
    }
    benchmark::DoNotOptimize(request);
  }
  set_label_and_bytes(state, text);
}

#if defined(BENCH_HAVE_RAPIDJSON)
void RapidJsonDom(benchmark::State& state) {
  std::string const& text = text_of(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
    if (document.HasParseError()) {
      state.SkipWithError("RapidJSON failed");
      break;
    }
    benchmark::DoNotOptimize(document);
  }
  set_label_and_bytes(state, text);
}
#endif

#if defined(BENCH_HAVE_SIMDJSON)
void SimdjsonDom(benchmark::State& state) {
  std::string const& text = text_of(static_cast<int>(state.range(0)));
  simdjson::padded_string const padded(text);
  simdjson::dom::parser parser;
  for (auto _ : state) {
    simdjson::dom::element document;
    if (parser.parse(padded).get(document) != simdjson::SUCCESS) {
      state.SkipWithError("simdjson failed");
      break;
    }
    benchmark::DoNotOptimize(document);
  }
  set_label_and_bytes(state, text);
}
#endif

// The floor of the small get request under the value model: its map built by hand from the
// known places of its strings, no reading at all (five allocations: three map nodes, the
// array's box and its elements), and destroyed. What the reader adds is the rest.
void BuildSmallGetByHand(benchmark::State& state) {
  std::string_view const text = text_of(1);
  for (auto _ : state) {
    foundation::json::Object request;
    benchmark::DoNotOptimize(text.data());
    auto const member = [&](std::size_t key, std::size_t keyLength, auto&& value) {
      return request.emplace(std::piecewise_construct,
                             std::forward_as_tuple(text.substr(key, keyLength)),
                             std::forward_as_tuple(std::forward<decltype(value)>(value)));
    };
    member(2, 9, std::string(text.substr(14, 4)));
    member(21, 3, std::string(text.substr(27, 2)));
    auto& flavors = member(32, 7, foundation::json::Array{}).first->second;
    auto& elements = flavors.get<foundation::json::Array>();
    elements.reserve(4);
    elements.emplace_back(std::string(text.substr(43, 10)));
    elements.emplace_back(std::string(text.substr(56, 9)));
    benchmark::DoNotOptimize(request);
  }
  set_label_and_bytes(state, text_of(1));
}

void Memcpy(benchmark::State& state) {
  std::string const& text = text_of(static_cast<int>(state.range(0)));
  std::vector<char> copy(text.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), text.data(), text.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  set_label_and_bytes(state, text);
}

}  // namespace

int main(int argc, char** argv) {
  keep_freed_memory_in_heap(argc, argv);
  // Side by side per workload; the argument picks the text.
  char const* const workloads[] = {"set_16MB_string_1pct_escapes", "get_small",
                                   "set_uri_list_100000", "typed_int32_1000000",
                                   "typed_int32_500000"};
  for (int i = 0; i < 5; ++i) {
    std::string const name = workloads[i];
    benchmark::RegisterBenchmark((name + "/ours").c_str(), Ours)->Arg(i);
#if defined(BENCH_HAVE_RAPIDJSON)
    benchmark::RegisterBenchmark((name + "/rapidjson_dom").c_str(), RapidJsonDom)->Arg(i);
#endif
#if defined(BENCH_HAVE_SIMDJSON)
    benchmark::RegisterBenchmark((name + "/simdjson_dom").c_str(), SimdjsonDom)->Arg(i);
#endif
    benchmark::RegisterBenchmark((name + "/memcpy").c_str(), Memcpy)->Arg(i);
    if (i == 1) {
      benchmark::RegisterBenchmark((name + "/map_by_hand").c_str(), BuildSmallGetByHand);
    }
  }
  return run_registered_benchmarks(argc, argv);
}
