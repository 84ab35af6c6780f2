"""p50/p99 of the wiki tool's actions on a big wiki, over raw stdio: every
Markdown file under DOCS (gunzipped) indexed, then 200 calls an action with
a mix of arguments (the longest pages read whole and from later offsets,
list pages across the wiki, questions of common and rare words).

  python3 bench/wiki/latency.py --indexer build/release/indexer/kestrune-index \
      --docs /usr/share/doc/nodejs/api [--server CMD ...]"""

import argparse
import pathlib
import sqlite3
import subprocess
import time

from relevance import Server, copy_docs

QUESTIONS = ["How do I read a file line by line?", "what is the default timeout", "stream", "How do I do it?",
             "create a child process and pipe its output", "error codes", "the a of", "buffer to string encoding"]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--indexer", required=True)
    parser.add_argument("--docs", required=True)
    parser.add_argument("--server", nargs="+", default=["build/release/servers/cpp/kestrune-example-server"])
    parser.add_argument("--work", default="/tmp/kestrune-wiki-latency")
    parser.add_argument("--calls", type=int, default=200)
    args = parser.parse_args()
    work = pathlib.Path(args.work)
    tree, db = work / "docs", work / "docs.db"
    if not db.exists():
        copy_docs([args.docs], tree)
        subprocess.run([args.indexer, str(tree), "--db", str(db)], check=True, capture_output=True)
    with sqlite3.connect(db) as c:
        pages = c.execute("SELECT count(*) FROM wiki_pages").fetchone()[0]
        longest = [r[0] for r in c.execute("SELECT page_id FROM wiki_pages ORDER BY length(content) DESC LIMIT 10")]
        size = c.execute("SELECT sum(length(content)) FROM wiki_pages").fetchone()[0]
    server = Server(args.server + ["--db", str(db), "--root", str(tree)])
    mixes = {
        "status": lambda i: {"action": "status"},
        "list": lambda i: {"action": "list", "offset": (i * 7) % pages},
        "read": lambda i: {"action": "read", "page_id": longest[i % 10], **({"offset": i * 5000} if i % 2 else {})},
        "ask": lambda i: {"action": "ask", "query": QUESTIONS[i % len(QUESTIONS)]},
    }
    print(f"{pages} pages, {size / 1e6:.1f} M characters")
    print("| action | calls | p50 ms | p99 ms |")
    print("|---|---:|---:|---:|")
    for action, arguments in mixes.items():
        times = []
        for i in range(args.calls):
            start = time.perf_counter()
            server.tool("wiki", arguments(i))
            times.append((time.perf_counter() - start) * 1000)
        times.sort()
        print(f"| {action} | {len(times)} | {times[len(times) // 2]:.2f} | {times[int(len(times) * 0.99) - 1]:.2f} |")
    server.close()


if __name__ == "__main__":
    main()
