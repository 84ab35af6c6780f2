#!/usr/bin/env python3
"""The example MCP server in Python: an MCP server over stdio that answers
questions about one indexed repository, line for line as the C++ one
(kestrune-example-server) does. See --help."""

import logging
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from kestrune_example.index_db import IndexDb, IndexDbError  # noqa: E402
from kestrune_example.protocol import MAX_LINE_BYTES, McpServer  # noqa: E402
from kestrune_example.tools import Tools, ToolsConfig  # noqa: E402

PROGRAM = "kestrune-example-server"

# The usage, written once for both servers (servers/usage.txt).
with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "usage.txt"), encoding="utf-8") as _usage:
    HELP = _usage.read().replace("@PROGRAM@", "server.py")

# The most bytes a count may name: a size_t's, as for the C++ server.
_SIZE_MAX = 2**64 - 1


class UsageError(Exception):
    pass


def _byte_count(value):
    """Decimal digits only: no sign, no space, nothing beyond a size_t."""
    if not (value.isascii() and value.isdigit()) or len(value) > 20 or int(value) > _SIZE_MAX:
        raise UsageError("--budget needs a number of bytes")
    return int(value)


def parse_args(argv):
    """The options as (db, root, page_bytes); None after --help."""
    db, root, page_bytes = "", ".", ToolsConfig._field_defaults["page_bytes"]
    i = 0
    while i < len(argv):
        arg = argv[i]
        if arg in ("--help", "-h"):
            sys.stdout.write(HELP)
            return None
        if i + 1 >= len(argv):
            raise UsageError("unknown option or missing value: " + arg)
        value = argv[i + 1]
        i += 2
        if arg == "--db":
            db = value
        elif arg == "--root":
            root = value
        elif arg == "--budget":
            page_bytes = _byte_count(value)
        else:
            raise UsageError("unknown option: " + arg)
    return db, root, page_bytes


def read_lines(stream):
    """Each line of `stream` without its "\\n", or None for a line longer than
    MAX_LINE_BYTES, whose rest is skipped unread."""
    while True:
        chunk = stream.readline(MAX_LINE_BYTES + 1)
        if not chunk:
            return
        if chunk.endswith(b"\n"):
            yield chunk[:-1]
        elif len(chunk) <= MAX_LINE_BYTES:
            yield chunk  # the last line, without a "\n"
        else:
            while True:
                rest = stream.readline(1 << 16)
                if not rest or rest.endswith(b"\n"):
                    break
            yield None


def answer(server, line):
    """The server's answer to `line`; a failure that it did not answer itself
    is logged and answered as an internal error, and the next line is read."""
    try:
        return server.answer(line)
    except Exception as e:  # noqa: BLE001 - one line's failure stops nothing else
        logging.getLogger(PROGRAM).exception("a line was not answered")
        return McpServer.internal_error(e)


def main(argv):
    try:
        options = parse_args(argv)
        if options is None:
            return 0
        db, root, page_bytes = options
        index = IndexDb(db)
    except (UsageError, IndexDbError) as e:
        sys.stderr.write(f"{PROGRAM}: {e} (see --help)\n")
        return 2
    sys.stderr.write(f"{PROGRAM}: index {db or '(none)'}{'' if index.initialized() else ', not initialized'}\n")
    # The response layer logs files it cannot read, at info level.
    logging.basicConfig(stream=sys.stderr, level=logging.INFO, format="%(name)s: %(message)s")

    server = McpServer(Tools(ToolsConfig(index=index, root=root, page_bytes=page_bytes)))
    out = sys.stdout.buffer
    try:
        for line in read_lines(sys.stdin.buffer):
            reply = McpServer.too_long() if line is None else answer(server, line)
            if reply is None:
                continue
            # A lone surrogate stands for a byte of the index that is not
            # UTF-8 (index_db.py): it is sent as that byte.
            out.write(reply.encode("utf-8", "surrogateescape"))
            out.flush()
    except (BrokenPipeError, KeyboardInterrupt):
        # The client is gone: nothing is left to answer.
        sys.stderr.close()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
