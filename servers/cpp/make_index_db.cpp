// make-index-db SQL... DB: runs the SQL scripts, in order, into a new SQLite
// database, made whole under a temporary name and then renamed, so that a
// failed run never leaves half a database behind.
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: make-index-db SQL... DB\n";
    return 2;
  }
  std::stringstream sql;
  for (int i = 1; i + 1 < argc; ++i) {
    std::ifstream in(argv[i], std::ios::binary);
    if (!in) {
      std::cerr << "make-index-db: cannot read " << argv[i] << "\n";
      return 1;
    }
    sql << in.rdbuf() << "\n";
  }
  const std::string target = argv[argc - 1];
  const std::string temporary = target + ".tmp";
  std::filesystem::remove(temporary);
  sqlite3* db = nullptr;
  char* error = nullptr;
  int rc = sqlite3_open(temporary.c_str(), &db);
  if (rc == SQLITE_OK) rc = sqlite3_exec(db, sql.str().c_str(), nullptr, nullptr, &error);
  if (rc != SQLITE_OK) {
    std::cerr << "make-index-db: " << (error != nullptr ? error : sqlite3_errmsg(db)) << "\n";
    sqlite3_free(error);
    sqlite3_close(db);
    std::filesystem::remove(temporary);
    return 1;
  }
  sqlite3_close(db);
  std::filesystem::rename(temporary, target);
  return 0;
}
