// The example server's symbol search against the plain LIKE query it
// stands for, on a generated index: the trigram index must give the same
// count and the same page (exact names, then prefixes, then the rest, each
// most used first; names that begin with a query of one or two characters)
// for names in any case, names that are not in the fqn,
// unnamed symbols, non-ASCII text, dense and sparse matches, and every
// offset.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "index_db.hpp"
#include "statement.hpp"

namespace kestrune::example {
namespace {

struct Db {
  sqlite3* db = nullptr;
  explicit Db(const std::string& path) { sqlite3_open(path.c_str(), &db); }
  Db(const Db&) = delete;
  Db& operator=(const Db&) = delete;
  ~Db() { sqlite3_close(db); }
  void exec(const std::string& sql) const {
    ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  }
};

// An index with the indexer's state and no symbols yet.
void make_index(const Db& db) {
  std::ifstream schema(KESTRUNE_SCHEMA_SQL);
  std::stringstream sql;
  sql << schema.rdbuf();
  db.exec(sql.str());
  db.exec("INSERT INTO index_status VALUES (1, 'ready', 'healthy', NULL, 100, 0, 0, NULL, 0, NULL, NULL)");
}

class SymbolSearch : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    path_ = (std::filesystem::temp_directory_path() / "kestrune-symbol-search-test.db").string();
    std::filesystem::remove(path_);
    const Db db(path_);
    make_index(db);
    // 3000 symbols: a third named get in one case or another, names that
    // the fqn does not hold, a few without a name, some beyond ASCII.
    const std::vector<std::string> names = {"get", "Get", "GET", "getter", "parse", "Parser", "Über", "über", "x"};
    db.exec("BEGIN");
    for (int i = 0; i < 3000; ++i) {
      const std::string name = names[static_cast<std::size_t>(i) % names.size()];
      std::string fqn =
          "pkg" + std::to_string(i % 7) + ".mod" + std::to_string(i % 13) + "." + name + std::to_string(i);
      if (i % 50 == 0) fqn = "alias.n" + std::to_string(i);  // the name is not in the fqn
      const std::string value = i % 97 == 0 ? "NULL" : "'" + name + "'";
      db.exec("INSERT INTO symbols (fqn, name, uses) VALUES ('" + fqn + "', " + value + ", " + std::to_string(i % 5) +
              ")");
    }
    db.exec("COMMIT");
  }
  static void TearDownTestSuite() { std::filesystem::remove(path_); }

  // The query the search stands for.
  static Page<std::string> reference(const std::string& query, std::int64_t offset, std::int64_t limit) {
    const Db db(path_);
    std::string pattern = "%";
    for (const char c : query) {
      if (c == '%' || c == '_' || c == '\\') pattern += '\\';
      pattern += c;
    }
    pattern += '%';
    // A query of one or two characters finds the names that begin with it.
    const bool short_query = !query.empty() && std::count_if(query.begin(), query.end(), [](char c) {
                                                 return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
                                               }) < 3;
    if (short_query) pattern.erase(0, 1);
    const std::string match = short_query ? " FROM symbols WHERE name LIKE ?1 ESCAPE '\\'"
                                          : " FROM symbols WHERE fqn LIKE ?1 ESCAPE '\\' OR name LIKE ?1 ESCAPE '\\'";
    Page<std::string> page;
    Statement count(db.db, std::string("SELECT count(*)") + match);
    count.bind(1, pattern);
    if (count.step()) page.total = count.integer(0);
    Statement rows(db.db, std::string("SELECT fqn") + match +
                              " ORDER BY ifnull(name = ?2 COLLATE NOCASE, 0) DESC, ifnull(name LIKE ?3 ESCAPE '\\', 0) "
                              "DESC, uses DESC, fqn, id LIMIT ?4 OFFSET ?5");
    rows.bind(1, pattern)
        .bind(2, query)
        .bind(3, short_query ? pattern : pattern.substr(1))
        .bind(4, limit)
        .bind(5, offset);
    while (rows.step()) page.rows.push_back(rows.text(0));
    return page;
  }

  static inline std::string path_;
};

TEST_F(SymbolSearch, gives_what_like_gives_for_every_query_offset_and_limit) {
  const IndexDb index = IndexDb::open(path_);
  ASSERT_TRUE(index.initialized());
  const std::vector<std::string> queries = {"get",  "GET",   "getter", "parse", "über",    "ÜBER", "mod1",      "x12",
                                            "n150", "alias", "ge",     "",      "nothing", "a%b",  "pkg3.mod4", "x"};
  for (const std::string& query : queries) {
    for (const std::int64_t offset : {0, 1, 7, 64, 300, 999, 2990, 5000}) {
      for (const std::int64_t limit : {1, 20, 100}) {
        const Page<SymbolRow> got = index.search(query, offset, limit);
        const Page<std::string> want = reference(query, offset, limit);
        std::vector<std::string> fqns;
        for (const SymbolRow& row : got.rows) fqns.push_back(row.symbol.fqn);
        ASSERT_EQ(got.total, want.total) << query << " offset " << offset << " limit " << limit;
        ASSERT_EQ(fqns, want.rows) << query << " offset " << offset << " limit " << limit;
      }
    }
  }
  // A C++ name is found as the dotted fqn it stands for.
  const Page<SymbolRow> written = index.search("pkg3::mod4", 0, 100);
  const Page<std::string> want = reference("pkg3.mod4", 0, 100);
  ASSERT_EQ(written.total, want.total);
  for (std::size_t i = 0; i < want.rows.size(); ++i) EXPECT_EQ(written.rows[i].symbol.fqn, want.rows[i]);
}

// A NUL is text like any other, though LIKE and FTS5 read a pattern only up
// to it: a query that holds one finds the names that hold it, in any case,
// and no others.
TEST(SymbolSearchNul, finds_the_names_that_hold_it) {
  const std::string path = (std::filesystem::temp_directory_path() / "kestrune-symbol-search-nul.db").string();
  std::filesystem::remove(path);
  {
    const Db db(path);
    make_index(db);
    Statement insert(db.db, "INSERT INTO symbols (fqn, name) VALUES (?1, ?2)");
    for (const std::string& name : {std::string("a\0Bc", 4), std::string("abc"), std::string("\0", 1)}) {
      insert.reset().bind(1, "pkg." + name).bind(2, name).step();
    }
  }
  const IndexDb index = IndexDb::open(path);
  const struct {
    std::string query;
    std::vector<std::string> fqns;
  } cases[] = {
      {std::string("\0", 1), {std::string("pkg.\0", 5), std::string("pkg.a\0Bc", 8)}},
      {std::string("A\0b", 3), {std::string("pkg.a\0Bc", 8)}},
      {std::string("a\0bc", 4), {std::string("pkg.a\0Bc", 8)}},
      {std::string("c\0", 2), {}},
      {std::string("\0\0\0", 3), {}},
  };
  for (const auto& c : cases) {
    const Page<SymbolRow> got = index.search(c.query, 0, 20);
    std::vector<std::string> fqns;
    for (const SymbolRow& row : got.rows) fqns.push_back(row.symbol.fqn);
    EXPECT_EQ(fqns, c.fqns) << c.query.size();
    EXPECT_EQ(got.total, static_cast<std::int64_t>(c.fqns.size())) << c.query.size();
  }
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace kestrune::example
