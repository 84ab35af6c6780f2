// kestrune/mcp_responses.hpp - the whole response layer in one include.
#pragma once

#include "kestrune/mcp_responses/code_index.hpp"
#include "kestrune/mcp_responses/encoding.hpp"
#include "kestrune/mcp_responses/types.hpp"
#include "kestrune/mcp_responses/wiki.hpp"
#include "kestrune/utils/pagination.hpp"
