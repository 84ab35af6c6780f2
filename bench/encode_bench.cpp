// Encoding benchmarks: tool_result_text and encoded_size on the response mix,
// RapidJSON's Writer and nlohmann's ordered_json::dump() on the same trees,
// memcpy of as many bytes as the physical bound; the budgeted ask; building a
// symbol page; its MCP line and fitting it to a size. Ends with a table of ratios from the medians of this one run.
//
//   build/release/bench/kestrune_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "corpus.hpp"
#include "encoding/encoded_size.hpp"
#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "peers.hpp"

namespace {

namespace mr = kestrune::mcp_responses;
namespace kb = kestrune::bench;

// The budgeted asks, by benchmark name, with what the ratio table calls them.
constexpr std::pair<std::string_view, const char*> kAskCases[] = {
    {"10", "10 sections"},
    {"50", "50 sections"},
    {"50_long", "50 sections of 1,500-character excerpts and 2-6 citations"},
};

// Prints as the console reporter does and keeps the median real time per
// iteration (ns) of every benchmark, by name, for the ratio table.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& reports) override {
    ConsoleReporter::ReportRuns(reports);
    for (const Run& run : reports) {
      if (run.error_occurred) continue;
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
      if (median || single) times_[run.run_name.function_name] = run.GetAdjustedRealTime();
    }
  }

  // time: the median time of `name`, or 0 when it did not run.
  [[nodiscard]] double time(const std::string& name) const {
    const auto it = times_.find(name);
    return it == times_.end() ? 0.0 : it->second;
  }

 private:
  std::map<std::string, double> times_;
};

void bytes(benchmark::State& state, std::size_t per_iteration) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * per_iteration));
}

void register_mix(const std::vector<kb::Response>& mix) {
  // The trees as values, for the peers' converters; they outlive the run.
  static std::vector<mr::ResponseValue> values;
  values.reserve(mix.size());
  for (const kb::Response& r : mix) values.emplace_back(r.value);
  for (std::size_t k = 0; k < mix.size(); ++k) {
    const kb::Response& r = mix[k];
    const mr::ResponseValue* value = &values[k];
    const std::size_t size = mr::tool_result_text(r.value).size();

    benchmark::RegisterBenchmark(("tool_result_text/" + r.name).c_str(), [&r, size](benchmark::State& state) {
      for (auto _ : state) {
        std::string text = mr::tool_result_text(r.value);
        benchmark::DoNotOptimize(text.data());
      }
      bytes(state, size);
    });
    benchmark::RegisterBenchmark(("encoded_size/" + r.name).c_str(), [&r, size](benchmark::State& state) {
      for (auto _ : state) benchmark::DoNotOptimize(mr::detail::encoded_size(r.value));
      bytes(state, size);
    });
    benchmark::RegisterBenchmark(("rapidjson/" + r.name).c_str(), [value](benchmark::State& state) {
      const rapidjson::Document doc = kb::to_rapidjson(*value);
      std::size_t out = 0;
      for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        doc.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
        out = buffer.GetSize();
      }
      bytes(state, out);
    });
    benchmark::RegisterBenchmark(("nlohmann/" + r.name).c_str(), [value](benchmark::State& state) {
      const nlohmann::ordered_json json = kb::to_nlohmann(*value);
      std::size_t out = 0;
      for (auto _ : state) {
        std::string text = json.dump();
        benchmark::DoNotOptimize(text.data());
        out = text.size();
      }
      bytes(state, out);
    });
    benchmark::RegisterBenchmark(("memcpy/" + r.name).c_str(), [size](benchmark::State& state) {
      std::vector<char> from(size, 'x');
      std::vector<char> to(size);
      for (auto _ : state) {
        std::memcpy(to.data(), from.data(), size);
        benchmark::ClobberMemory();
      }
      bytes(state, size);
    });
  }
}

// A budgeted ask over `n` sections whose budget is 60% of the unbudgeted
// answer: some sections keep their excerpts, the rest are cut.
mr::WikiAskOptions budgeted_ask(std::size_t n, kb::AskShape shape) {
  mr::WikiAskOptions options = kb::ask_inputs(n, 100 + n, shape);
  const std::size_t full = mr::detail::encoded_size(mr::build_wiki_ask_response(options));
  options.token_budget = static_cast<std::int64_t>(full * 6 / 10 / 4);
  return options;
}

// The budgeted ask named `name` and the encoding of its result.
void register_ask(const std::string& name, std::size_t n, kb::AskShape shape = {}) {
  static std::deque<mr::WikiAskOptions> inputs;  // a deque keeps them in place
  const mr::WikiAskOptions& options = inputs.emplace_back(budgeted_ask(n, shape));

  benchmark::RegisterBenchmark(("ask_budgeted/" + name).c_str(), [&options](benchmark::State& state) {
    for (auto _ : state) {
      mr::WikiAskOptions copy = options;  // the caller's inputs, not timed
      const auto start = std::chrono::steady_clock::now();
      mr::ResponseDict response = mr::build_wiki_ask_response(std::move(copy));
      const auto stop = std::chrono::steady_clock::now();
      benchmark::DoNotOptimize(response);
      state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
  })->UseManualTime();
  benchmark::RegisterBenchmark(("ask_final_text/" + name).c_str(), [&options](benchmark::State& state) {
    const mr::ResponseDict response = mr::build_wiki_ask_response(options);
    for (auto _ : state) {
      std::string text = mr::tool_result_text(response);
      benchmark::DoNotOptimize(text.data());
    }
  });
}

void register_symbol_page() {
  static const kb::SymbolHits hits = kb::symbol_hits(50, 11);
  benchmark::RegisterBenchmark("symbol_page_build_and_encode", [](benchmark::State& state) {
    for (auto _ : state) {
      std::string text = mr::tool_result_text(kb::symbol_page(hits));
      benchmark::DoNotOptimize(text.data());
    }
  });
}

// The MCP line of the symbol page, and fitting the page's rows to a budget
// that keeps half of them, each against tool_result_text of what it sends.
void register_mcp() {
  static const mr::ResponseDict page = kb::symbol_page(kb::symbol_hits(50, 11));
  benchmark::RegisterBenchmark("tool_call_line/symbol_page", [](benchmark::State& state) {
    for (auto _ : state) {
      std::string line = mr::tool_call_line(7, page);
      benchmark::DoNotOptimize(line.data());
    }
  });
  static const mr::ResponseList rows = page.at("symbols").as_list();
  static const std::int64_t total = page.at("total_count").as_integer();
  static const mr::ResponseDict half = mr::build_paginated_response(mr::ResponseList(rows.begin(), rows.begin() + 25),
                                                                    total, 0, {.items_key = "symbols"});
  static const std::size_t budget = mr::detail::encoded_size(half);
  benchmark::RegisterBenchmark("fit_paginated_response/half", [](benchmark::State& state) {
    for (auto _ : state) {
      mr::ResponseList copy = rows;  // the caller's rows, not timed
      const auto start = std::chrono::steady_clock::now();
      mr::ResponseDict fitted = mr::fit_paginated_response(std::move(copy), total, 0, budget, {.items_key = "symbols"});
      const auto stop = std::chrono::steady_clock::now();
      benchmark::DoNotOptimize(fitted);
      state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
  })->UseManualTime();
  benchmark::RegisterBenchmark("tool_result_text/half", [](benchmark::State& state) {
    for (auto _ : state) {
      std::string text = mr::tool_result_text(half);
      benchmark::DoNotOptimize(text.data());
    }
  });
}

// "2.31x", or "-" when either side did not run.
std::string ratio(double numerator, double denominator) {
  if (numerator <= 0 || denominator <= 0) return "-";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2fx", numerator / denominator);
  return buf;
}

std::string gbps(std::size_t size, double ns) {
  if (ns <= 0) return "-";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", static_cast<double>(size) / ns);
  return buf;
}

// Whether RapidJSON writes the same text: a check that both sides do the same
// work. Doubles differ only in layout ("1e-05" against "1e-5").
bool same_as_rapidjson(const mr::ResponseDict& value) {
  const rapidjson::Document doc = kb::to_rapidjson(mr::ResponseValue(value));
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  doc.Accept(writer);
  return std::string_view(buffer.GetString(), buffer.GetSize()) == mr::tool_result_text(value);
}

void print_table(const std::vector<kb::Response>& mix, const RecordingReporter& reporter) {
  const auto time_of = [&](const std::string& name) { return reporter.time(name); };
  std::printf("\nRatios from the medians of this run (x = times faster than the other side):\n\n");
  std::printf(
      "| response | bytes | ours GB/s | vs RapidJSON | vs nlohmann | memcpy GB/s | encoded_size vs text "
      "| same text as RapidJSON |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---|\n");
  double ours = 0;
  double rapid = 0;
  double nlohmann = 0;
  double ours_text = 0;
  double rapid_text = 0;
  std::size_t total = 0;
  for (const kb::Response& r : mix) {
    const std::size_t size = mr::tool_result_text(r.value).size();
    const double t = time_of("tool_result_text/" + r.name);
    const double rj = time_of("rapidjson/" + r.name);
    const double nl = time_of("nlohmann/" + r.name);
    std::printf("| %s | %zu | %s | %s | %s | %s | %s | %s |\n", r.name.c_str(), size, gbps(size, t).c_str(),
                ratio(rj, t).c_str(), ratio(nl, t).c_str(), gbps(size, time_of("memcpy/" + r.name)).c_str(),
                ratio(t, time_of("encoded_size/" + r.name)).c_str(), same_as_rapidjson(r.value) ? "yes" : "no");
    ours += t;
    rapid += rj;
    nlohmann += nl;
    total += size;
    if (r.text_heavy) {
      ours_text += t;
      rapid_text += rj;
    }
  }
  std::printf("| text-heavy four | | | %s | | | |\n", ratio(rapid_text, ours_text).c_str());
  std::printf("| whole mix | %zu | %s | %s | %s | | |\n", total, gbps(total, ours).c_str(), ratio(rapid, ours).c_str(),
              ratio(nlohmann, ours).c_str());
  std::printf("\n| cost | ratio |\n|---|---:|\n");
  for (const auto& [name, label] : kAskCases) {
    const std::string n(name);
    std::printf("| budgeted ask, %s / tool_result_text of its result | %s |\n", label,
                ratio(time_of("ask_budgeted/" + n), time_of("ask_final_text/" + n)).c_str());
  }
  std::printf("| 50-row symbol page: build + encode / encode alone | %s |\n",
              ratio(time_of("symbol_page_build_and_encode"), time_of("tool_result_text/symbol_page")).c_str());
  std::printf("| 50-row symbol page: tool_call_line / tool_result_text | %s |\n",
              ratio(time_of("tool_call_line/symbol_page"), time_of("tool_result_text/symbol_page")).c_str());
  std::printf("| fit_paginated_response keeping 25 of 50 rows / tool_result_text of its result | %s |\n",
              ratio(time_of("fit_paginated_response/half"), time_of("tool_result_text/half")).c_str());
  std::printf("\ncompiler: %s %s\n",
#if defined(__clang__)
              "clang++",
#else
              "g++",
#endif
              __VERSION__);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  static const std::vector<kb::Response> mix = kb::mix();
  register_mix(mix);
  register_ask("10", 10);
  register_ask("50", 50);
  register_ask("50_long", 50, {.excerpt_chars = 1500, .excerpt_spread = 1, .citations = 2, .citation_spread = 5});
  register_symbol_page();
  register_mcp();
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  print_table(mix, reporter);
  benchmark::Shutdown();
  return 0;
}
