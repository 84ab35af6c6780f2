#include "ctags.hpp"

#include <nlohmann/json.hpp>

#include "utf8.hpp"

namespace kestrune::indexer {

namespace {

using Json = nlohmann::json;

std::string text_field(const Json& tag, const char* key) {
  const auto it = tag.find(key);
  return it != tag.end() && it->is_string() ? it->get<std::string>() : std::string();
}

int int_field(const Json& tag, const char* key) {
  const auto it = tag.find(key);
  return it != tag.end() && it->is_number_integer() ? it->get<int>() : 0;
}

// How long ctags may take over one file of at most the size limit before it
// is taken to be stuck on it.
constexpr int kFileTimeoutMs = 60'000;

// Every option ctags runs with: "--options=NONE" first, so that no option
// file (the tree's .ctags.d among them) and no environment variable
// configures it.
std::vector<std::string> ctags_argv(const std::string& program, const std::string& mode) {
  return {program,       "--options=NONE", "--_interactive=" + mode, "--output-format=json", "--fields=+nKSesZial",
          "--extras=+f", "--sort=no",      "--kinds-C=+p",           "--kinds-C++=+p"};
}

std::string request(std::string_view path, std::size_t size) {
  return Json{{"command", "generate-tags"}, {"filename", path}, {"size", size}}.dump() + "\n";
}

}  // namespace

std::optional<Tag> parse_tag(std::string_view line) {
  const Json tag = Json::parse(valid_utf8(line), nullptr, false);
  if (!tag.is_object() || text_field(tag, "_type") != "tag") return std::nullopt;
  std::string type = text_field(tag, "typeref");
  if (type.rfind("typename:", 0) == 0) type.erase(0, 9);
  const auto file = tag.find("file");
  return Tag{.path = text_field(tag, "path"),
             .name = text_field(tag, "name"),
             .kind = text_field(tag, "kind"),
             .language = text_field(tag, "language"),
             .line = int_field(tag, "line"),
             .end = int_field(tag, "end"),
             .scope = text_field(tag, "scope"),
             .signature = text_field(tag, "signature"),
             .type = std::move(type),
             .inherits = text_field(tag, "inherits"),
             .access = text_field(tag, "access"),
             .pattern = text_field(tag, "pattern"),
             .file_scope = file != tag.end() && file->is_boolean() && file->get<bool>()};
}

bool Ctags::usable(std::string& error) {
  const std::optional<ProcessOutput> run =
      run_process({program_, "--options=NONE", "--version"}, {.directory = "/", .quiet = true}, error);
  if (!run) {
    error = program_ + " cannot run (" + error + "): install universal-ctags";
    return false;
  }
  if (run->exit_code != 0 || run->output.find("Universal Ctags") == std::string::npos) {
    error = program_ + " is not Universal Ctags: install universal-ctags";
    return false;
  }
  const std::optional<ProcessOutput> features =
      run_process({program_, "--options=NONE", "--list-features"}, {.directory = "/", .quiet = true}, error);
  if (!features || features->output.find("json") == std::string::npos ||
      features->output.find("interactive") == std::string::npos) {
    error = program_ + " was built without JSON output or the interactive mode";
    return false;
  }
  // The sandbox forbids ctags to open any file; not every system allows it.
  for (const char* mode : {"sandbox", "default"}) {
    mode_ = mode;
    std::string why;
    if (tags("probe.py", "def probe():\n    pass\n", why)) return true;
    error = program_ + " does not answer in its interactive mode (" + why + ")";
  }
  return false;
}

Conversation Ctags::start(std::string& error) const {
  // A program given as a path is found from here, not from where it runs.
  const std::string program =
      program_.find('/') == std::string::npos ? program_ : std::filesystem::absolute(program_).string();
  return Conversation::start(ctags_argv(program, mode_), {.directory = "/", .quiet = true}, error);
}

std::optional<std::vector<Tag>> Ctags::tags(std::string_view path, std::string_view source, std::string& error) {
  if (!session_.valid()) {
    session_ = start(error);
    if (!session_.valid()) {
      error = "ctags cannot run (" + error + ")";
      return std::nullopt;
    }
  }
  std::string input = request(path, source.size());
  input += source;
  const std::optional<std::string> answer = session_.exchange(input, R"({"_type": "completed")", kFileTimeoutMs, error);
  if (!answer) {
    error = "ctags: " + error;
    return std::nullopt;
  }
  std::vector<Tag> tags;
  std::string_view lines = *answer;
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    const std::string_view line = lines.substr(0, end);
    if (line.starts_with(R"({"_type": "error")")) {
      error = "ctags: " + std::string(line);
      return std::nullopt;
    }
    if (std::optional<Tag> tag = parse_tag(line)) {
      tag->path = path;  // the answer is this file's, whatever ctags makes of its name
      tags.push_back(std::move(*tag));
    }
    lines = end == std::string_view::npos ? std::string_view() : lines.substr(end + 1);
  }
  return tags;
}

}  // namespace kestrune::indexer
