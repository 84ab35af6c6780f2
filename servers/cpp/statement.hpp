// A prepared SQLite statement: parameters are bound, never pasted into the
// SQL, and columns read as the optional values that the records hold.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace kestrune::example {

class Statement {
 public:
  Statement(sqlite3* db, std::string_view sql) : db_(db) {
    sqlite3_stmt* stmt = nullptr;
    check(sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &stmt, nullptr));
    stmt_.reset(stmt);
  }

  /// bind: sets parameter `i` (from 1); the text is copied by SQLite.
  Statement& bind(int i, std::string_view text) {
    check(sqlite3_bind_text(stmt_.get(), i, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
    return *this;
  }
  Statement& bind(int i, std::int64_t value) {
    check(sqlite3_bind_int64(stmt_.get(), i, value));
    return *this;
  }
  Statement& bind(int i, std::nullopt_t /*null*/) {
    check(sqlite3_bind_null(stmt_.get(), i));
    return *this;
  }
  /// bind: an optional value, null when it is empty.
  template <class T>
  Statement& bind(int i, const std::optional<T>& value) {
    if (!value) return bind(i, std::nullopt);
    if constexpr (std::is_same_v<T, bool> || std::is_integral_v<T>) {
      return bind(i, static_cast<std::int64_t>(*value));
    } else {
      return bind(i, std::string_view(*value));
    }
  }

  /// reset: ready to step again from the start, its parameters cleared.
  Statement& reset() {
    sqlite3_reset(stmt_.get());
    sqlite3_clear_bindings(stmt_.get());
    return *this;
  }

  /// step: moves to the next row; false after the last.
  bool step() {
    const int rc = sqlite3_step(stmt_.get());
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    check(rc);
    return false;
  }

  [[nodiscard]] bool is_null(int column) const { return sqlite3_column_type(stmt_.get(), column) == SQLITE_NULL; }
  [[nodiscard]] std::string text(int column) const {
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt_.get(), column));
    return p == nullptr ? std::string()
                        : std::string(p, static_cast<std::size_t>(sqlite3_column_bytes(stmt_.get(), column)));
  }
  [[nodiscard]] std::int64_t integer(int column) const { return sqlite3_column_int64(stmt_.get(), column); }
  [[nodiscard]] double real(int column) const { return sqlite3_column_double(stmt_.get(), column); }
  [[nodiscard]] std::optional<std::string> optional_text(int column) const {
    return is_null(column) ? std::nullopt : std::optional<std::string>(text(column));
  }
  [[nodiscard]] std::optional<std::int64_t> optional_integer(int column) const {
    return is_null(column) ? std::nullopt : std::optional<std::int64_t>(integer(column));
  }
  [[nodiscard]] std::optional<bool> optional_bool(int column) const {
    return is_null(column) ? std::nullopt : std::optional<bool>(integer(column) != 0);
  }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* stmt) const noexcept { sqlite3_finalize(stmt); }
  };

  void check(int rc) const {
    if (rc != SQLITE_OK) throw std::runtime_error(std::string("index database: ") + sqlite3_errmsg(db_));
  }

  sqlite3* db_;
  std::unique_ptr<sqlite3_stmt, Finalize> stmt_;
};

}  // namespace kestrune::example
