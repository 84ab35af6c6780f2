// Raising the module's exceptions from native code.
#pragma once

#include <Python.h>

#include <cstddef>
#include <string>

namespace kestrune::mcp_responses::python {

/// set_encoding_error: sets the module's EncodingError for the string at
/// `where` whose byte `byte` starts a sequence that is not UTF-8; the text
/// is the C++ library's.
void set_encoding_error(const std::string& where, std::size_t byte);

}  // namespace kestrune::mcp_responses::python
