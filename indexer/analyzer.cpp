#include "analyzer.hpp"

#include <unistd.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "python_analyzer.hpp"
#include "utf8.hpp"

namespace kestrune::indexer {

namespace {

using Json = nlohmann::json;

// How long an analyzer may go without a word: sending it a file, or
// between two answers (the first comes once it has read every file).
constexpr int kSendTimeoutMs = 60'000;
constexpr int kAnswerTimeoutMs = 600'000;

std::optional<std::string> text_of(const Json& object, const char* key) {
  const auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

int int_of(const Json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_number_integer() ? it->get<int>() : 0;
}

SymbolRecord symbol_of(const Json& s, const std::string& path) {
  SymbolRecord symbol{.fqn = text_of(s, "fqn").value_or(""),
                      .name = text_of(s, "name").value_or(""),
                      .kind = text_of(s, "kind").value_or(""),
                      .file_path = path,
                      .start_line = int_of(s, "line"),
                      .end_line = int_of(s, "end"),
                      .signature = text_of(s, "signature"),
                      .docstring = text_of(s, "doc")};
  if (const auto e = s.find("export"); e != s.end() && e->is_boolean()) symbol.is_export = e->get<bool>();
  return symbol;
}

ReferenceRecord reference_of(const Json& r) {
  return {.symbol_fqn = text_of(r, "fqn").value_or(""),
          .line = int_of(r, "line"),
          .caller_fqn = text_of(r, "caller"),
          .caller_kind = text_of(r, "caller_kind"),
          .usage_type = text_of(r, "usage").value_or("reference")};
}

// The folder of this program, where the analyzers built with it are.
std::filesystem::path own_folder() {
  std::error_code ec;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::path() : self.parent_path();
}

}  // namespace

std::optional<AnalyzedFile> parse_analyzed_file(std::string_view line) {
  const Json answer = Json::parse(valid_utf8(line), nullptr, false);
  if (!answer.is_object() || text_of(answer, "_type") != "file") return std::nullopt;
  AnalyzedFile file{.path = text_of(answer, "path").value_or(""), .error = text_of(answer, "error")};
  if (const auto s = answer.find("symbols"); s != answer.end() && s->is_array()) {
    for (const Json& symbol : *s) {
      if (symbol.is_object()) file.symbols.push_back(symbol_of(symbol, file.path));
    }
  }
  if (const auto r = answer.find("references"); r != answer.end() && r->is_array()) {
    for (const Json& reference : *r) {
      if (reference.is_object()) file.references.push_back(reference_of(reference));
    }
  }
  return file;
}

bool Analyzer::takes(std::string_view path) const {
  for (const std::string& extension : extensions_) {
    if (path.ends_with(extension)) return true;
  }
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return std::find(file_names_.begin(), file_names_.end(), name) != file_names_.end();
}

bool Analyzer::start(std::string& error) {
  // Text as UTF-8 whatever the user's locale; nothing else.
  session_ = Conversation::start(
      argv_, {.directory = "/", .quiet = true, .environment = std::vector<std::string>{"LC_ALL=C.UTF-8"}}, error);
  return session_.valid();
}

bool Analyzer::add(std::string_view path, std::string_view bytes, std::string& error) {
  std::string message = Json{{"command", "file"}, {"path", valid_utf8(path)}, {"size", bytes.size()}}.dump();
  message += '\n';
  return session_.send(message, kSendTimeoutMs, error) && session_.send(bytes, kSendTimeoutMs, error);
}

bool Analyzer::analyze(const std::function<void(AnalyzedFile)>& each, std::string& error) {
  if (!session_.send("{\"command\":\"analyze\"}\n", kSendTimeoutMs, error)) return false;
  for (;;) {
    const std::optional<std::string> line = session_.read_line(kAnswerTimeoutMs, error);
    if (!line) return false;
    if (line->starts_with(R"({"_type":"completed")") || line->starts_with(R"({"_type": "completed")")) {
      session_ = Conversation();
      return true;
    }
    if (std::optional<AnalyzedFile> file = parse_analyzed_file(*line)) each(std::move(*file));
  }
}

std::vector<Analyzer> analyzers(const std::string& python) {
  std::vector<Analyzer> found;
  // -I: no PYTHONPATH, user site or current folder, so nothing but the
  // standard library is imported; the analyzer itself is handed over whole.
  if (!python.empty() && *kPythonAnalyzer != '\0')
    found.emplace_back("Python", std::vector<std::string>{".py"},
                       std::vector<std::string>{python, "-I", "-c", kPythonAnalyzer});
  const std::filesystem::path go = own_folder() / "go_analyzer";
  // Every go.mod with the .go files: a module's path prefixes its packages' import paths.
  if (::access(go.c_str(), X_OK) == 0)
    found.emplace_back("Go", std::vector<std::string>{".go"}, std::vector<std::string>{go.string()},
                       std::vector<std::string>{"go.mod"});
#ifdef KESTRUNE_NODE
  // JavaScript and TypeScript in one analyzer, as each imports the other;
  // installed beside the indexer with the TypeScript compiler it runs.
  const std::filesystem::path ts = own_folder() / "typescript_analyzer";
  std::error_code ec;
  if (::access(KESTRUNE_NODE, X_OK) == 0 && std::filesystem::exists(ts / "node_modules/typescript/package.json", ec))
    found.emplace_back("TypeScript",
                       std::vector<std::string>{".ts", ".tsx", ".mts", ".cts", ".js", ".jsx", ".mjs", ".cjs"},
                       std::vector<std::string>{KESTRUNE_NODE, (ts / "analyzer.mjs").string()});
#endif
  return found;
}

}  // namespace kestrune::indexer
