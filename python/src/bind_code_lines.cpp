// code_lines: the reader runs without the GIL; its log records go to
// Python's logging, to the logger of the library's name.
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "bindings.hpp"
#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/logging.hpp"
#include "native_stubs.hpp"
#include "values.hpp"

namespace kestrune::mcp_responses::python {
namespace {

// Sends a library record to logging.getLogger(logger).log(level, message).
// The message is passed as it is, with no arguments, so a % in a path is
// never taken for a format.
void log_to_python(std::string_view logger, LogLevel level, std::string_view message) {
  if (Py_IsInitialized() == 0) return;
  const py::gil_scoped_acquire gil;
  static constexpr int kLevels[] = {10, 20, 30, 40};
  try {
    const py::object get_logger = py::module_::import("logging").attr("getLogger");
    get_logger(text(logger)).attr("log")(kLevels[static_cast<int>(level)], text(message));
  } catch (py::error_already_set& e) {
    e.discard_as_unraisable("kestrune_mcp_responses log sink");
  }
}

py::dict lines_of(const py::handle& root, const py::iterable& places) {
  if (root.is_none()) return {};  // no work tree: nothing is read, the places not even looked at
  const std::optional<std::filesystem::path> root_path =
      std::filesystem::path(checked(PyOS_FSPath(root.ptr())).cast<std::string>());
  std::vector<Place> wanted;
  std::vector<py::object> keys;
  std::string scratch;
  for (const auto& place : places) {
    const py::object pair = checked(PySequence_Fast(place.ptr(), "code_lines: a place must be a (path, line) pair"));
    if (PySequence_Fast_GET_SIZE(pair.ptr()) != 2)
      throw py::value_error("code_lines: a place must be a (path, line) pair");
    std::string_view path;
    if (!utf8_of(PySequence_Fast_GET_ITEM(pair.ptr(), 0), scratch, path, "code_lines: a place's path")) {
      throw py::error_already_set();
    }
    const py::handle line = PySequence_Fast_GET_ITEM(pair.ptr(), 1);
    if (!PyLong_Check(line.ptr()) || PyBool_Check(line.ptr()))
      throw py::type_error("code_lines: a place's line must be an int");
    int overflow = 0;
    const long long n = PyLong_AsLongLongAndOverflow(line.ptr(), &overflow);
    wanted.push_back({std::string(path), overflow == 0 ? n : 0});  // a line beyond 64 bits is past any end
    keys.push_back(PyTuple_Check(place.ptr())
                       ? py::reinterpret_borrow<py::object>(place)
                       : py::object(py::make_tuple(py::handle(PySequence_Fast_GET_ITEM(pair.ptr(), 0)), line)));
  }
  CodeLines found;
  {
    const py::gil_scoped_release unlocked;
    found = code_lines(root_path, wanted);
  }
  py::dict out;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (const auto line = found.find(wanted[i].path, wanted[i].line)) set(out, keys[i].ptr(), text(*line));
  }
  return out;
}

}  // namespace

void bind_code_lines(py::module_& m) {
  set_log_sink(log_to_python);
  m.attr("CODE_LINE_CHARS") = CODE_LINE_CHARS;
  m.attr("LOGGER_NAME") = text(LOGGER_NAME);
  py::options options;  // the stub's doc carries the signature
  options.disable_function_signatures();
  m.def("code_lines", &lines_of, py::arg(stubs::code_lines.names[0]), py::arg(stubs::code_lines.names[1]),
        stubs::code_lines_doc);
}

}  // namespace kestrune::mcp_responses::python
