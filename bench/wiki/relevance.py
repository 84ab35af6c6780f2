"""How often the wiki's ask answers a newcomer's question with a section that
answers it: questions over the Markdown documentation of three projects that
Debian ships (questions.json, each with the sections that answer it, chosen by
reading the documents), asked through an example server over stdio.

  python3 bench/wiki/relevance.py --indexer build/release/indexer/kestrune-index \
      [--server CMD ...] [--work DIR]

Copies each project's Markdown files (gunzipped) into DIR, indexes them, and
prints the share of questions whose first section is one that answers it, and
whose first three hold one, without a token budget and with 400 tokens."""

import argparse
import gzip
import json
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent


def copy_docs(sources, tree):
    if tree.exists():
        shutil.rmtree(tree)
    for source in map(pathlib.Path, sources):
        for path in sorted(source.rglob("*")):
            name = path.name.removesuffix(".gz")
            if not (name.endswith(".md") or name.endswith(".markdown")) or not path.is_file():
                continue
            target = tree / path.relative_to(source).with_name(name)
            target.parent.mkdir(parents=True, exist_ok=True)
            data = path.read_bytes()
            target.write_bytes(gzip.decompress(data) if path.name.endswith(".gz") else data)


class Server:
    def __init__(self, command):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self.id = 0
        self.call("initialize", {"protocolVersion": "2025-06-18", "capabilities": {},
                                 "clientInfo": {"name": "relevance", "version": "1"}})
        self.send({"jsonrpc": "2.0", "method": "notifications/initialized"})

    def send(self, message):
        self.process.stdin.write(json.dumps(message) + "\n")
        self.process.stdin.flush()

    def call(self, method, params):
        self.id += 1
        self.send({"jsonrpc": "2.0", "id": self.id, "method": method, "params": params})
        return json.loads(self.process.stdout.readline())["result"]

    def tool(self, name, arguments):
        return json.loads(self.call("tools/call", {"name": name, "arguments": arguments})["content"][0]["text"])

    def close(self):
        self.process.stdin.close()
        self.process.wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--indexer", required=True)
    parser.add_argument("--server", nargs="+", default=["build/release/servers/cpp/kestrune-example-server"])
    parser.add_argument("--work", default="/tmp/kestrune-wiki-relevance")
    parser.add_argument("--verbose", action="store_true")
    args = parser.parse_args()
    plan = json.loads((HERE / "questions.json").read_text())
    work = pathlib.Path(args.work)
    work.mkdir(parents=True, exist_ok=True)
    servers = {}
    for project, sources in plan["projects"].items():
        tree, db = work / project, work / f"{project}.db"
        copy_docs(sources, tree)
        db.unlink(missing_ok=True)
        subprocess.run([args.indexer, str(tree), "--db", str(db)], check=True, capture_output=True)
        servers[project] = Server(args.server + ["--db", str(db), "--root", str(tree)])
    rows = []
    for label, extra in (("no token_budget", {}), ("token_budget 400", {"token_budget": 400})):
        first = top3 = 0
        for project, question, answers in plan["questions"]:
            wanted = {tuple(a) for a in answers}
            got = servers[project].tool("wiki", {"action": "ask", "query": question, **extra})
            found = [(s["page_id"], s["heading"]) for s in got["sections"]]
            # With a budget that keeps fewer sections, the note names the rest.
            hit1 = bool(found) and found[0] in wanted
            hit3 = any(f in wanted for f in found[:3])
            if not found and "The best:" in got.get("note", ""):
                named = got["note"]
                hit3 = any(f'"{h}" (page "{p}")' in named for p, h in wanted)
            first += hit1
            top3 += hit3
            if args.verbose and not hit1:
                print(f"  miss [{label}] {question} -> {found[:3]}", file=sys.stderr)
        n = len(plan["questions"])
        rows.append((label, n, 100.0 * first / n, 100.0 * top3 / n))
    for server in servers.values():
        server.close()
    print("| asked with | questions | first section answers | one of the first three answers |")
    print("|---|---:|---:|---:|")
    for label, n, first, top3 in rows:
        print(f"| {label} | {n} | {first:.0f}% | {top3:.0f}% |")


if __name__ == "__main__":
    main()
