// Where a Utf8Sink keeps its bytes: growing, and the finished bytes object.
#include "utf8_sink.hpp"

#include <utility>

#include "buffer_memory.hpp"

namespace kestrune::mcp_responses::python {

void Utf8Sink::grow(std::size_t n) {
  const std::size_t size = this->size();
  const std::size_t old_capacity = static_cast<std::size_t>(end_ - begin_);
  std::size_t capacity = grown_capacity(old_capacity, size + n);
  if (bytes_ != nullptr && capacity < kHugeFrom) {
    if (_PyBytes_Resize(&bytes_, static_cast<Py_ssize_t>(capacity)) != 0) throw NoMemory{};  // gone with the text
  } else {
    PyObject* fresh = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(capacity));
    if (fresh == nullptr && capacity > size + n) {
      PyErr_Clear();  // a generous request refused: what is needed
      capacity = size + n;
      fresh = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(capacity));
    }
    if (fresh == nullptr) throw NoMemory{};
    char* data = PyBytes_AS_STRING(fresh);
    if (capacity >= kHugeFrom) advise_huge(data, data + capacity);
    moved_by_hand(data, begin_, size, old_capacity);
    Py_XDECREF(bytes_);
    bytes_ = fresh;
  }
  begin_ = PyBytes_AS_STRING(bytes_);
  p_ = begin_ + size;
  end_ = begin_ + capacity;
}

PyObject* Utf8Sink::bytes() {
  if (bytes_ == nullptr) return PyBytes_FromStringAndSize(begin_, static_cast<Py_ssize_t>(size()));
  if (_PyBytes_Resize(&bytes_, static_cast<Py_ssize_t>(size())) != 0) return nullptr;
  return std::exchange(bytes_, nullptr);
}

}  // namespace kestrune::mcp_responses::python
