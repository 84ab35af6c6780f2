"""The rows the example servers answer, by their own queries: the benchmark
scores what a user of `symbol` is told, not a row of its own choosing."""
import os

QUERIES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "index", "queries.sql")


def server_query(name):
    """The servers' query `name` from index/queries.sql, as they read it;
    None where the servers have no such file (they answer the first row)."""
    if not os.path.exists(QUERIES):
        return None
    lines, taking = [], False
    with open(QUERIES) as f:
        for line in f.read().split("\n"):
            if line.startswith("-- name: "):
                taking = line[len("-- name: "):].strip() == name
            elif taking and line.strip() and not line.startswith("--"):
                lines.append(line)
    return "\n".join(lines).rstrip().rstrip(";")


def symbol_row(con, fqn, query=server_query("symbol_by_fqn")):
    """The row `symbol` answers for `fqn` on the index `con` (fqn, name,
    kind, file_path, start_line, end_line, signature, docstring, ...), or
    None (no such query, or no such fqn)."""
    return con.execute(query, (fqn,)).fetchone() if query else None
