#include "writer_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace kestrune::indexer {

// flock, not fcntl's record locks: SQLite holds record locks on the same
// file, and closing any descriptor of it would drop those.
WriterLock WriterLock::acquire(const std::filesystem::path& db, const std::function<void()>& waiting) {
  const int fd = ::open(db.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644);
  if (fd < 0) throw std::runtime_error("cannot open " + db.string() + ": " + std::strerror(errno));
  WriterLock lock(fd);
  // A server holds a shared lock for a moment when it asks: a few tries
  // tell that from a run in progress.
  for (int attempt = 0; attempt < 20; ++attempt) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return lock;
    if (errno != EWOULDBLOCK && errno != EINTR)
      throw std::runtime_error("cannot lock " + db.string() + ": " + std::strerror(errno));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  waiting();
  while (::flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR) throw std::runtime_error("cannot lock " + db.string() + ": " + std::strerror(errno));
  }
  return lock;
}

WriterLock::WriterLock(WriterLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

WriterLock& WriterLock::operator=(WriterLock&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

WriterLock::~WriterLock() {
  if (fd_ >= 0) ::close(fd_);
}

bool writer_active(const std::filesystem::path& db) {
  const int fd = ::open(db.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return false;
  const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(fd);  // and with it the shared lock, if it was taken
  return held;
}

}  // namespace kestrune::indexer
