// Generated inputs that look like what the server's handlers pass in: dotted
// names, Python signatures, docstrings of a few sentences, code lines with
// quotes, backslashes and tabs, wiki prose with some non-ASCII text.
#include "corpus.hpp"

#include <cmath>
#include <initializer_list>
#include <random>
#include <span>
#include <string_view>

#include "kestrune/mcp_responses/code_index.hpp"

namespace kestrune::bench {

namespace {

constexpr std::string_view kWords[] = {"index",   "symbol", "reader", "cache",  "parse",  "resolve", "alias",  "scope",
                                       "module",  "graph",  "edge",   "node",   "token",  "budget",  "page",   "wiki",
                                       "section", "query",  "store",  "commit", "branch", "worker",  "daemon", "batch",
                                       "queue",   "path",   "file",   "line",   "range",  "span"};

constexpr std::string_view kProse[] = {
    "the",      "indexer", "walks",   "every",    "file",  "of",          "repository", "and",
    "records",  "its",     "symbols", "with",     "their", "references",  "when",       "a",
    "change",   "arrives", "worker",  "re-reads", "only",  "touched",     "files",      "so",
    "large",    "trees",   "stay",    "cheap",    "to",    "keep",        "current",    "storage",
    "layer",    "commits", "batches", "in",       "one",   "transaction", "readers",    "never",
    "see",      "half",    "written", "state",    "café",  "naïve",       "—",          "→",
    "“quoted”", "résumé",  "façade",  "日本語",   "über",  "graph",       "edges",      "point"};

// Joins pieces of text; avoids operator+ chains, on which g++ 12 warns
// spuriously (-Wrestrict).
std::string cat(std::initializer_list<std::string_view> pieces) {
  std::string s;
  for (const std::string_view p : pieces) s.append(p);
  return s;
}

class Gen {
 public:
  explicit Gen(std::uint64_t seed) : rng_(seed) {}

  std::size_t below(std::size_t n) { return static_cast<std::size_t>(rng_() % n); }
  bool chance(unsigned percent) { return below(100) < percent; }
  double uniform() { return std::uniform_real_distribution<double>(0.0, 1.0)(rng_); }

  std::string_view word() { return kWords[below(std::size(kWords))]; }

  std::string identifier(std::size_t parts) {
    std::string s(word());
    for (std::size_t k = 1; k < parts; ++k) {
      s += '_';
      s += word();
    }
    return s;
  }

  std::string class_name() {
    std::string s;
    for (std::size_t k = 0, n = 1 + below(2); k < n; ++k) {
      std::string w(word());
      w[0] = static_cast<char>(w[0] - 'a' + 'A');
      s += w;
    }
    return s;
  }

  // Sentences of prose, each capitalized and ended with a full stop, about
  // `chars` bytes in all.
  std::string prose(std::size_t chars, bool paragraphs = false) {
    std::string s;
    bool start = true;
    while (s.size() < chars) {
      std::string w(kProse[below(std::size(kProse))]);
      if (start && w[0] >= 'a' && w[0] <= 'z') w[0] = static_cast<char>(w[0] - 'a' + 'A');
      if (!s.empty()) s += ' ';
      s += w;
      start = chars_since_stop_++ > 8 && chance(20);
      if (start) {
        s += '.';
        chars_since_stop_ = 0;
        if (paragraphs && chance(15)) s += "\n\n   ";
      }
    }
    s += '.';
    return s;
  }

 private:
  std::mt19937_64 rng_;
  std::size_t chars_since_stop_ = 0;
};

mr::Symbol symbol(Gen& g, const std::string& module) {
  static constexpr std::string_view kKinds[] = {"function", "method", "class", "variable"};
  const std::string_view kind = kKinds[g.below(std::size(kKinds))];
  std::string name = kind == "class" ? g.class_name() : g.identifier(1 + g.below(3));
  std::string fqn = module;
  if (kind == "method") fqn.append(".").append(g.class_name());
  fqn.append(".").append(name);
  std::string signature = kind == "class" ? cat({"class ", name, "(Base", g.class_name(), "):"})
                                          : cat({"def ", name, "(self, ", g.identifier(1), ": str, ", g.identifier(2),
                                                 ": int | None = None) -> ", g.class_name(), " | None"});
  const std::int64_t start = static_cast<std::int64_t>(1 + g.below(2000));
  mr::Symbol s{.fqn = std::move(fqn),
               .name = std::move(name),
               .kind = std::string(kind),
               .start_line = start,
               .end_line = start + static_cast<std::int64_t>(g.below(40)),
               .signature = kind == "variable" ? std::nullopt : std::optional(std::move(signature))};
  if (!g.chance(15)) s.docstring = g.prose(60 + g.below(300), true);
  return s;
}

std::string module_name(Gen& g) { return cat({"kestrune.", g.word(), ".", g.identifier(2)}); }

std::string file_of(std::string_view module) {
  std::string path = "src/";
  for (const char c : module) path += c == '.' ? '/' : c;
  return path.append(".py");
}

mr::ResponseDict outline(Gen& g) {
  const std::string module = module_name(g);
  std::vector<mr::Symbol> symbols;
  std::vector<std::string> fqns;
  for (int k = 0; k < 200; ++k) {
    symbols.push_back(symbol(g, module));
    fqns.push_back(symbols.back().fqn);
  }
  const std::string shared = mr::outline_module(fqns);
  mr::ResponseList rows;
  rows.reserve(symbols.size());
  for (const mr::Symbol& s : symbols) rows.emplace_back(mr::build_file_symbol(s, shared));
  mr::ResponseDict page = mr::build_paginated_response(std::move(rows), 200, 0, {.items_key = "symbols"});
  return page;
}

// Lines of code such as code_lines returns: stripped, with string literals,
// escapes, regular expressions and tabs before trailing comments.
std::string code_line(Gen& g) {
  const std::string a = g.identifier(2);
  const std::string b = g.identifier(1);
  switch (g.below(5)) {
    case 0:
      return cat({a, R"( = re.compile(r"\s+\"(?P<)", b, R"(>[^\"]+)\""))", "\t# match \"", b, "\""});
    case 1:
      return cat({R"(path = "C:\\Users\\dev\\)", a, R"(\\)", b, ".py\"\t\t# windows form"});
    case 2:
      return cat({R"(print(f"{)", a, R"(}:\t{)", b, R"(!r}", file=sys.stderr))"});
    case 3:
      return cat({"return self._", a, "(", b, R"(, sep="\n", quote='"'))"});
    default:
      return cat({"if ", a, " is None:\t# ", g.prose(30)});
  }
}

mr::ResponseDict references(Gen& g) {
  mr::ResponseList rows;
  rows.reserve(100);
  for (int k = 0; k < 100; ++k) {
    const std::string module = module_name(g);
    mr::Reference r{
        .file_path = file_of(module),
        .line = static_cast<std::int64_t>(1 + g.below(3000)),
        .caller_symbol = mr::ResponseDict{{"fqn", cat({module, ".", g.identifier(2)})}, {"kind", "function"}},
        .usage_type = g.chance(70) ? "call" : "import"};
    rows.emplace_back(mr::build_reference(r, code_line(g)));
  }
  return mr::build_paginated_response(std::move(rows), 340, 0, {.items_key = "references"});
}

mr::ResponseDict citation(Gen& g) {
  const auto start = static_cast<std::int64_t>(1 + g.below(900));
  return mr::ResponseDict{{"path", file_of(module_name(g))},
                          {"line_start", start},
                          {"line_end", start + static_cast<std::int64_t>(g.below(30))},
                          {"symbol", g.identifier(2)}};
}

mr::ResponseDict doubles(Gen& g) {
  mr::ResponseDict scores;
  scores.reserve(1000);
  for (int k = 0; k < 1000; ++k) {
    char key[8];
    key[0] = 'm';
    for (int d = 4, v = k; d >= 1; --d, v /= 10) key[d] = static_cast<char>('0' + v % 10);
    double v = 0;
    switch (k % 4) {
      case 0:
      case 1:  // similarity scores: full precision in [0, 1)
        v = g.uniform();
        break;
      case 2:  // percentages rounded to two places
        v = std::round(g.uniform() * 10000.0) / 100.0;
        break;
      default:  // measurements across many magnitudes
        v = std::pow(10.0, g.uniform() * 12.0 - 6.0);
        break;
    }
    scores.append(std::string(key, 5), v);
  }
  return scores;
}

}  // namespace

SymbolHits symbol_hits(std::size_t n, std::uint64_t seed) {
  Gen g(seed);
  SymbolHits hits;
  for (std::size_t k = 0; k < n; ++k) {
    const std::string module = module_name(g);
    hits.symbols.push_back(symbol(g, module));
    hits.paths.push_back(file_of(module));
  }
  hits.total = static_cast<std::int64_t>(n * 3);
  return hits;
}

mr::ResponseDict symbol_page(const SymbolHits& hits) {
  mr::ResponseList rows;
  rows.reserve(hits.symbols.size());
  for (std::size_t k = 0; k < hits.symbols.size(); ++k) {
    rows.emplace_back(mr::build_symbol_search_result(hits.symbols[k], hits.paths[k]));
  }
  return mr::build_paginated_response(std::move(rows), hits.total, 0, {.items_key = "symbols"});
}

mr::WikiAskOptions ask_inputs(std::size_t sections, std::uint64_t seed, AskShape shape) {
  Gen g(seed);
  mr::ResponseList rows;
  for (std::size_t k = 0; k < sections; ++k) {
    mr::ResponseList cites;
    for (std::size_t c = 0, n = shape.citations + g.below(shape.citation_spread); c < n; ++c) {
      cites.emplace_back(citation(g));
    }
    const std::string page = cat({g.word(), "-", g.word()});
    rows.emplace_back(mr::ResponseDict{{"page_id", page},
                                       {"title", cat({g.class_name(), " overview"})},
                                       {"heading", cat({"How the ", g.word(), " works"})},
                                       {"similarity", 0.9 - 0.01 * static_cast<double>(k) - g.uniform() * 0.005},
                                       {"stale", g.chance(20)},
                                       {"excerpt", g.prose(shape.excerpt_chars + g.below(shape.excerpt_spread))},
                                       {"citations", std::move(cites)}});
  }
  mr::ResponseList extra;
  for (int c = 0; c < 4; ++c) extra.emplace_back(citation(g));
  return mr::WikiAskOptions{
      .mode = "answer",
      .query = cat({"How does the ", g.word(), " keep the ", g.word(), " current?"}),
      .answer = g.prose(900),
      .sections = std::move(rows),
      .citations = std::move(extra),
      .model = "wiki-answer-large",
      .tokens = mr::ResponseDict{{"prompt", 5123}, {"completion", 611}},
      .note = "Answered from the wiki; two pages are stale.",
      .decisions =
          mr::ResponseDict{{"calls", 2}, {"tokens", 812}, {"cost", 0.0021}, {"dropped", mr::ResponseList{"a#b"}}},
      .code = mr::ResponseDict{{"path", "src/kestrune/indexer/worker.py"}, {"text", g.prose(600)}},
      .memories = mr::ResponseDict{{"items", mr::ResponseList{g.prose(200), g.prose(200)}}}};
}

std::vector<Response> mix() {
  Gen g(2024);
  std::vector<Response> out;
  out.push_back({"symbol_page", true, symbol_page(symbol_hits(50, 11))});
  out.push_back({"outline", true, outline(g)});
  out.push_back({"references", true, references(g)});
  out.push_back({"ask_answer", true, mr::build_wiki_ask_response(ask_inputs(10, 13))});
  out.push_back({"doubles", false, doubles(g)});
  out.push_back({"status", false,
                 mr::build_index_status_response({.status = "indexing",
                                                  .health = "healthy",
                                                  .branch = "main",
                                                  .progress = 42,
                                                  .files_indexed = 1234,
                                                  .symbols_indexed = 56789,
                                                  .last_updated = "2024-05-01T12:00:00Z",
                                                  .phase = "symbols",
                                                  .phase_detail = "parsing src/kestrune/indexer/worker.py"})});
  return out;
}

}  // namespace kestrune::bench
