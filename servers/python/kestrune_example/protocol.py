"""The MCP protocol over JSON-RPC lines: one request line in, one answer
line out (none for a notification), every line written by the response
layer's MCP functions."""

import kestrune_mcp_responses as mr

from .request_json import MAX_DEPTH, NumberOverflow, ParseError, TooDeep, Unsigned64, parse
from .tools import Tools

# The protocol versions this server speaks, newest first: a client that asks
# for another gets the newest.
PROTOCOL_VERSIONS = ("2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05", "2024-10-07")

# Most bytes of one request line; a longer one is refused unread.
MAX_LINE_BYTES = 4 << 20

_INSTRUCTIONS = (
    "Answers questions about one indexed repository: find symbols with search, read one with symbol, "
    "outline a file with file, see uses with references, and read or ask its wiki with wiki."
)


class _Refusal(Exception):
    """A request that gets a JSON-RPC error instead of a result."""

    def __init__(self, code, message):
        super().__init__(message)
        self.code = code
        self.message = message


def _id_of(value):
    # The request's id: a string or a 64-bit integer, as MCP allows.
    if isinstance(value, str) or (isinstance(value, int) and not isinstance(value, (bool, Unsigned64))):
        return value
    raise _Refusal(mr.JSONRPC_INVALID_REQUEST, "Invalid Request: the id must be a string or a 64-bit integer")


def _holds_unsigned64(value):
    if isinstance(value, Unsigned64):
        return True
    if isinstance(value, dict):
        return any(_holds_unsigned64(v) for v in value.values())
    if isinstance(value, list):
        return any(_holds_unsigned64(v) for v in value)
    return False


def _initialize(params):
    asked = params.get("protocolVersion")
    version = asked if isinstance(asked, str) and asked in PROTOCOL_VERSIONS else PROTOCOL_VERSIONS[0]
    return {
        "protocolVersion": version,
        "capabilities": {"tools": {}},
        "serverInfo": {"name": "kestrune-example", "version": "0.1.0"},
        "instructions": _INSTRUCTIONS,
    }


def _call_tool(tools, request_id, params):
    name = params.get("name")
    if not isinstance(name, str):
        raise _Refusal(mr.JSONRPC_INVALID_PARAMS, 'Invalid params: tools/call needs the tool\'s "name", a string')
    if not Tools.exists(name):
        raise _Refusal(mr.JSONRPC_INVALID_PARAMS, "Unknown tool: " + name)
    arguments = params.get("arguments")
    if arguments is None:
        arguments = {}
    elif not isinstance(arguments, dict):
        raise _Refusal(mr.JSONRPC_INVALID_PARAMS, "Invalid params: arguments must be an object")
    elif _holds_unsigned64(arguments):
        raise _Refusal(mr.JSONRPC_INVALID_PARAMS, "Invalid params: an integer argument beyond 64 bits")
    answer = tools.call(name, arguments)
    return mr.tool_call_line(request_id, answer.response, structured=answer.structured, is_error=answer.is_error)


def _dispatch(tools, method, request_id, params):
    if method == "initialize":
        return mr.jsonrpc_result_line(request_id, _initialize(params))
    if method == "ping":
        return mr.jsonrpc_result_line(request_id, {})
    if method == "tools/list":
        return mr.jsonrpc_result_line(request_id, Tools.list())
    if method == "tools/call":
        return _call_tool(tools, request_id, params)
    raise _Refusal(mr.JSONRPC_METHOD_NOT_FOUND, "Method not found: " + method)


class McpServer:
    def __init__(self, tools):
        self._tools = tools

    @staticmethod
    def too_long():
        """The answer to a line longer than MAX_LINE_BYTES."""
        return mr.jsonrpc_error_line(
            None, mr.JSONRPC_INVALID_REQUEST, f"Invalid Request: a line longer than {MAX_LINE_BYTES} bytes"
        )

    @staticmethod
    def internal_error(error):
        """The answer to a line whose request failed unforeseen, its id unknown."""
        return mr.jsonrpc_error_line(None, mr.JSONRPC_INTERNAL_ERROR, f"Internal error: {error}")

    def answer(self, line):
        """The line, "\\n" included, that answers the request `line` (bytes
        without its "\\n"); None for a notification, a client's response or a
        blank line. A line that is not a valid request gets the JSON-RPC
        error that says why; nothing raises."""
        if not line.strip(b" \t\r"):
            return None  # a blank line says nothing
        try:
            request = parse(line)
        except TooDeep:
            return mr.jsonrpc_error_line(
                None, mr.JSONRPC_PARSE_ERROR, f"Parse error: nested deeper than {MAX_DEPTH} levels"
            )
        except ParseError:
            return mr.jsonrpc_error_line(None, mr.JSONRPC_PARSE_ERROR, "Parse error: not JSON")
        except NumberOverflow:
            return mr.jsonrpc_error_line(None, mr.JSONRPC_PARSE_ERROR, "Parse error: a number overflows a double")
        request_id = None  # null until the request's own is read
        try:
            if not isinstance(request, dict):
                raise _Refusal(mr.JSONRPC_INVALID_REQUEST, "Invalid Request: not a JSON object")
            has_id = "id" in request
            if has_id:
                request_id = _id_of(request["id"])
            if request.get("jsonrpc") != "2.0":
                raise _Refusal(mr.JSONRPC_INVALID_REQUEST, 'Invalid Request: "jsonrpc" must be "2.0"')
            if "method" not in request:
                # A client's answer to a request of ours: this server sends
                # none, so there is nothing to match it with and nothing to say.
                if has_id and ("result" in request or "error" in request):
                    return None
                raise _Refusal(mr.JSONRPC_INVALID_REQUEST, 'Invalid Request: no "method"')
            method = request["method"]
            if not isinstance(method, str):
                raise _Refusal(mr.JSONRPC_INVALID_REQUEST, "Invalid Request: the method must be a string")
            if not has_id:
                return None  # a notification is never answered
            params = request.get("params", {})
            if not isinstance(params, dict):
                raise _Refusal(mr.JSONRPC_INVALID_PARAMS, "Invalid params: params must be an object")
            return _dispatch(self._tools, method, request_id, params)
        except _Refusal as r:
            return mr.jsonrpc_error_line(request_id, r.code, r.message)
        except Exception as e:  # noqa: BLE001 - one request's failure is its own answer
            return mr.jsonrpc_error_line(request_id, mr.JSONRPC_INTERNAL_ERROR, f"Internal error: {e}")
