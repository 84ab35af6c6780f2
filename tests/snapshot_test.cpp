// A tool call of the example server answers from one snapshot of the index:
// an indexer's commit that lands between two of the call's statements shows
// in the next call, not in this one, so a page's rows agree with its count.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "index_db.hpp"
#include "tools.hpp"

namespace kestrune::example {
namespace {

void exec(sqlite3* db, const std::string& sql) {
  ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
}

// The connection that the index opens, caught as SQLite opens it.
sqlite3* opened = nullptr;
int catch_connection(sqlite3* db, const char** /*error*/, const sqlite3_api_routines* /*api*/) {
  opened = db;
  return SQLITE_OK;
}

// A writer that commits `change` once, when the reader begins the query
// that starts with `before`: the one that reads the page's rows.
struct Interleaved {
  sqlite3* writer = nullptr;
  std::string_view before;
  std::string_view change;
  bool made = false;
};

int on_statement(unsigned /*type*/, void* context, void* /*statement*/, void* sql) {
  auto& w = *static_cast<Interleaved*>(context);
  if (!w.made && std::string_view(static_cast<const char*>(sql)).starts_with(w.before)) {
    w.made = sqlite3_exec(w.writer, std::string(w.change).c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  return 0;
}

// An index in WAL mode, as kestrune-index writes it: 30 symbols named
// alpha0..alpha29, and 30 uses of pkg.target.
std::string make_index() {
  const std::string path = (std::filesystem::temp_directory_path() / "kestrune-snapshot-test.db").string();
  for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix);
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  std::ifstream schema(KESTRUNE_SCHEMA_SQL);
  std::stringstream sql;
  sql << "PRAGMA journal_mode = WAL;" << schema.rdbuf()
      << "INSERT INTO index_status VALUES (1, 'ready', 'healthy', NULL, 100, 1, 30, NULL, 0, NULL, NULL);";
  for (int i = 0; i < 30; ++i) {
    const std::string n = std::to_string(i);
    sql << "INSERT INTO symbols (id, fqn, name) VALUES (" << n << ", 'pkg.alpha" << n << "', 'alpha" << n << "');"
        << "INSERT INTO symbol_refs (id, symbol_fqn, line) VALUES (" << n << ", 'pkg.target', " << n << ");";
  }
  exec(db, sql.str());
  sqlite3_close(db);
  return path;
}

TEST(snapshot, a_call_sees_no_commit_made_during_it) {
  const struct {
    std::string_view tool;
    mr::ResponseDict arguments;
    std::string_view rows_key;
    std::string_view before;
    std::string_view change;
  } cases[] = {
      // Through the trigram index, and through the name index for a short query.
      {"search",
       {{"query", "alpha"}, {"limit", 100}},
       "symbols",
       "SELECT fqn, name",
       "DELETE FROM symbols WHERE id >= 10"},
      {"search",
       {{"query", "al"}, {"limit", 100}},
       "symbols",
       "SELECT fqn, name",
       "DELETE FROM symbols WHERE id >= 10"},
      {"references",
       {{"fqn", "pkg.target"}, {"limit", 100}},
       "references",
       "SELECT file_path",
       "DELETE FROM symbol_refs WHERE id >= 10"},
  };
  for (const auto& c : cases) {
    const std::string path = make_index();
    ASSERT_EQ(sqlite3_auto_extension(reinterpret_cast<void (*)()>(catch_connection)), SQLITE_OK);
    IndexDb index = IndexDb::open(path);
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(catch_connection));
    ASSERT_NE(opened, nullptr);
    Interleaved writer{.before = c.before, .change = c.change};
    ASSERT_EQ(sqlite3_open(path.c_str(), &writer.writer), SQLITE_OK);
    sqlite3_trace_v2(opened, SQLITE_TRACE_STMT, on_statement, &writer);
    const Tools tools({.index = std::move(index), .root = std::filesystem::temp_directory_path()});

    for (const std::int64_t want : {30, 10}) {  // before the change and after it
      const ToolAnswer answer = tools.call(c.tool, c.arguments);
      ASSERT_FALSE(answer.options.is_error) << c.tool;
      EXPECT_EQ(answer.response.get("total_count"), mr::ResponseValue(want)) << c.tool << " " << c.change;
      EXPECT_EQ(static_cast<std::int64_t>(answer.response.get(c.rows_key).as_list().size()), want) << c.tool;
      if (want == 30) {
        ASSERT_TRUE(writer.made) << c.tool << ": the change was not made during the call";
      }
    }
    sqlite3_close(writer.writer);
    opened = nullptr;
  }
}

}  // namespace
}  // namespace kestrune::example
