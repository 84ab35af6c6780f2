// kestrune/mcp_responses.hpp - the whole response layer in one include.
//
// The rules every function of the API follows, so that the next one does too:
//  - Names and the order of positional arguments are the response layer's
//    own: build_<thing>_response for a whole response, build_<thing> for a
//    row, plain names for helpers.
//  - Arguments a caller names are an options struct (FooOptions) filled with
//    designated initializers; a member that must be set is Required<T>. Two
//    adjacent arguments of one type are members of such a struct, so they
//    never swap, unless the layer fixes them as positional (a page's total
//    and offset). No argument is a bare bool: a flag is an enum class or a
//    named member.
//  - Options and records own their text and lists and are taken by value; a
//    builder moves what it keeps into the response. Read-only arguments are
//    borrowed for the call only (std::string_view, ResponseRef, const&).
//  - Absent is an empty std::optional, defaulted as `= std::nullopt`; null in
//    a response is a null ResponseValue.
//  - Every writer returns a new string and has an append_ form; writers take
//    a ResponseRef, so a map or a list is written where it stands.
//  - One exception per condition: EncodingError for text that cannot be
//    measured, std::overflow_error for an integer beyond 64 bits,
//    std::invalid_argument for a value the protocol forbids. Messages name
//    public functions and quote arguments whole with quote().
//  - One spelling per thing: no aliases, no second way to the same call.
#pragma once

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/logging.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
