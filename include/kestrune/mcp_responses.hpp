// kestrune/mcp_responses.hpp - the whole response layer in one include.
#pragma once

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/code_lines.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/logging.hpp"
#include "kestrune/mcp_responses/mcp.hpp"
#include "kestrune/mcp_responses/text.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
