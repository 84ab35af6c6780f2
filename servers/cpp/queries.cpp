// The queries file read by its format: a query begins at a line
// "-- name: NAME" and runs to the next such line; its other comment lines
// and blank lines are left out, its lines joined with "\n" and its final
// ";" dropped.
#include "queries.hpp"

#include <functional>
#include <map>
#include <stdexcept>
#include <string>

#include "queries_sql.hpp"

namespace kestrune::example {

namespace {

using Queries = std::map<std::string, std::string, std::less<>>;

Queries parse(std::string_view text) {
  constexpr std::string_view kName = "-- name: ";
  constexpr std::string_view kBlank = " \t\r";
  Queries queries;
  std::string* sql = nullptr;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const std::size_t start = line.find_first_not_of(kBlank);
    if (line.starts_with(kName)) {
      const std::string_view name = line.substr(kName.size());
      sql = &queries[std::string(name.substr(0, name.find_last_not_of(kBlank) + 1))];
    } else if (sql != nullptr && start != std::string_view::npos && !line.substr(start).starts_with("--")) {
      if (!sql->empty()) *sql += '\n';
      *sql += line;
    }
  }
  for (auto& entry : queries) {
    if (entry.second.ends_with(';')) entry.second.pop_back();
  }
  return queries;
}

}  // namespace

std::string_view query(std::string_view name) {
  static const Queries queries = parse(kQueriesSql);
  const auto it = queries.find(name);
  if (it == queries.end()) throw std::logic_error("index/queries.sql holds no query named " + std::string(name));
  return it->second;
}

}  // namespace kestrune::example
