#include "ctags.hpp"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "process.hpp"
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

// A temporary file that holds the list of files for ctags's -L, removed when
// it goes out of scope.
class ListFile {
 public:
  explicit ListFile(const std::vector<std::string>& paths) {
    std::string name = (std::filesystem::temp_directory_path() / "kestrune-ctags-XXXXXX").string();
    const int fd = ::mkstemp(name.data());
    if (fd < 0) return;
    ::close(fd);
    path_ = name;
    std::ofstream out(path_, std::ios::binary);
    for (const std::string& p : paths) out << p << '\n';
    if (!out) path_.clear();
  }
  ListFile(const ListFile&) = delete;
  ListFile& operator=(const ListFile&) = delete;
  ~ListFile() {
    if (!path_.empty()) std::filesystem::remove(path_);
  }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

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

bool Ctags::usable(std::string& error) const {
  const std::optional<ProcessOutput> run = run_process({program_, "--version"}, {.quiet = true}, error);
  if (!run) {
    error = program_ + " cannot run (" + error + "): install universal-ctags";
    return false;
  }
  if (run->exit_code != 0 || run->output.find("Universal Ctags") == std::string::npos) {
    error = program_ + " is not Universal Ctags: install universal-ctags";
    return false;
  }
  const std::optional<ProcessOutput> features = run_process({program_, "--list-features"}, {.quiet = true}, error);
  if (!features || features->output.find("json") == std::string::npos) {
    error = program_ + " was built without JSON output";
    return false;
  }
  return true;
}

CtagsBatch Ctags::run(const std::filesystem::path& root, const std::vector<std::string>& paths) const {
  CtagsBatch batch;
  const ListFile list(paths);
  if (list.path().empty()) {
    batch.error = "cannot write the list of files for ctags";
    return batch;
  }
  // A program given as a path is found from here, not from the root.
  const std::string program =
      program_.find('/') == std::string::npos ? program_ : std::filesystem::absolute(program_).string();
  std::string error;
  const std::optional<ProcessOutput> run = run_process({program, "--output-format=json", "--fields=+nKSesZial",
                                                        "--extras=+f", "--sort=no", "-f", "-", "-L", list.path()},
                                                       {.directory = root}, error);
  if (!run) {
    batch.error = "ctags cannot run (" + error + ")";
    return batch;
  }
  if (run->exit_code != 0) {
    batch.error = "ctags exited with status " + std::to_string(run->exit_code);
    return batch;
  }
  batch.ok = true;
  std::string_view output = run->output;
  while (!output.empty()) {
    const std::size_t end = output.find('\n');
    if (std::optional<Tag> tag = parse_tag(output.substr(0, end))) batch.tags.push_back(std::move(*tag));
    output = end == std::string_view::npos ? std::string_view() : output.substr(end + 1);
  }
  return batch;
}

}  // namespace kestrune::indexer
