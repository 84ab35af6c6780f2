// One indexer writes an index at a time. It holds an exclusive lock on the
// database file for its whole run, which the system releases when the
// process ends, however it ends; so a reader can tell a run going on from
// one that died by whether the lock is held.
#pragma once

#include <filesystem>
#include <functional>

namespace kestrune::indexer {

class WriterLock {
 public:
  /// acquire: the lock on the database at `db`, made (empty) when missing.
  /// When another indexer holds it, `waiting` is called once and this waits
  /// for it. Throws std::runtime_error when the file cannot be opened.
  [[nodiscard]] static WriterLock acquire(const std::filesystem::path& db, const std::function<void()>& waiting);

  WriterLock(WriterLock&& other) noexcept;
  WriterLock& operator=(WriterLock&& other) noexcept;
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;
  ~WriterLock();

 private:
  explicit WriterLock(int fd) : fd_(fd) {}
  int fd_ = -1;
};

/// writer_active: whether an indexer holds the lock on the database at `db`.
[[nodiscard]] bool writer_active(const std::filesystem::path& db);

}  // namespace kestrune::indexer
