#include "include_graph.hpp"

#include <algorithm>

namespace kestrune::indexer {

std::vector<std::string> includes_of(std::string_view source) {
  std::vector<std::string> names;
  for (std::size_t start = 0; start < source.size();) {
    const std::size_t end = std::min(source.find('\n', start), source.size());
    std::string_view line = source.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (!line.starts_with('#')) continue;
    line.remove_prefix(1);
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (!line.starts_with("include")) continue;
    line.remove_prefix(7);
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    if (line.empty() || (line.front() != '"' && line.front() != '<')) continue;
    const char close = line.front() == '"' ? '"' : '>';
    const std::size_t stop = line.find(close, 1);
    if (stop != std::string_view::npos && stop > 1) names.emplace_back(line.substr(1, stop - 1));
  }
  return names;
}

IncludeGraph::IncludeGraph(const std::vector<std::string>& paths,
                           std::function<std::optional<std::string>(const std::string&)> read)
    : read_(std::move(read)) {
  for (const std::string& path : paths) {
    const std::size_t slash = path.rfind('/');
    by_file_name_[slash == std::string::npos ? path : path.substr(slash + 1)].push_back(path);
  }
}

std::vector<std::string> IncludeGraph::resolve(std::string_view name) const {
  while (name.starts_with("./")) name.remove_prefix(2);
  const std::size_t slash = name.rfind('/');
  const auto found = by_file_name_.find(std::string(slash == std::string_view::npos ? name : name.substr(slash + 1)));
  if (found == by_file_name_.end()) return {};
  std::vector<std::string> paths;
  for (const std::string& path : found->second) {
    if (path == name || (path.ends_with(name) && path[path.size() - name.size() - 1] == '/')) paths.push_back(path);
  }
  return paths;
}

const std::vector<std::string>& IncludeGraph::direct(const std::string& path, std::optional<std::string_view> source) {
  if (const auto it = direct_.find(path); it != direct_.end()) return it->second;
  std::optional<std::string> read;
  if (!source) {
    read = read_(path);
    if (read) source = *read;
  }
  std::vector<std::string> files;
  if (source) {
    for (const std::string& name : includes_of(*source)) {
      for (std::string& file : resolve(name)) files.push_back(std::move(file));
    }
  }
  return direct_.emplace(path, std::move(files)).first->second;
}

const std::unordered_set<std::string>& IncludeGraph::visible(const std::string& path,
                                                             std::optional<std::string_view> source) {
  if (const auto it = visible_.find(path); it != visible_.end()) return it->second;
  std::unordered_set<std::string> seen{path};
  std::vector<std::string> todo{path};
  while (!todo.empty()) {
    const std::string next = std::move(todo.back());
    todo.pop_back();
    for (const std::string& file : direct(next, next == path ? source : std::nullopt)) {
      if (seen.insert(file).second) todo.push_back(file);
    }
  }
  return visible_.emplace(path, std::move(seen)).first->second;
}

}  // namespace kestrune::indexer
