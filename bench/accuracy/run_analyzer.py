#!/usr/bin/env python3
"""Runs a language analyzer (indexer/analyzers) over a tree by its
protocol, as the indexer would, and writes its answer lines.

  bench/accuracy/run_analyzer.py --tree PATH [--out FILE]

Python only for now: every .py and .pyi file under the tree, less hidden
folders and __pycache__, fed to `python3 -I python_analyzer.py`. Prints the
analyzer's wall time, CPU time and peak RSS on stderr.
"""
import argparse
import json
import os
import resource
import subprocess
import sys
import threading
import time
from pathlib import Path

ANALYZER = Path(__file__).resolve().parents[2] / "indexer" / "analyzers" / "python_analyzer.py"


def python_files(root):
    found = []
    for folder, dirs, files in os.walk(root):
        dirs[:] = sorted(d for d in dirs if not d.startswith(".") and d != "__pycache__")
        found += [os.path.relpath(os.path.join(folder, f), root) for f in sorted(files) if f.endswith((".py", ".pyi"))]
    return [f.replace(os.sep, "/") for f in found]


def analyze(files, python=sys.executable, timeout=None):
    """The analyzer's answer lines for `files`, a list of (path, bytes);
    an analyzer still running after `timeout` seconds is killed."""
    process = subprocess.Popen([python, "-I", str(ANALYZER)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, cwd="/")
    killer = threading.Timer(timeout, process.kill) if timeout else None
    if killer:
        killer.start()

    def write():
        try:
            for path, data in files:
                process.stdin.write(json.dumps({"command": "file", "path": path, "size": len(data)}).encode() + b"\n")
                process.stdin.write(data)
            process.stdin.write(b'{"command":"analyze"}\n')
            process.stdin.close()
        except BrokenPipeError:
            pass

    writer = threading.Thread(target=write)
    writer.start()
    with process.stdout:
        lines = process.stdout.read().splitlines()
    writer.join()
    if killer:
        killer.cancel()
    if process.wait() != 0:
        raise RuntimeError(f"the analyzer exited with status {process.returncode}")
    return [json.loads(line) for line in lines]


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--tree", required=True)
    parser.add_argument("--out", help="where the answer lines go (default: stdout)")
    parser.add_argument("--python", default=sys.executable)
    args = parser.parse_args()
    root = Path(args.tree)
    files = [(p, (root / p).read_bytes()) for p in python_files(root)]
    start = time.monotonic()
    answers = analyze(files, args.python)
    wall = time.monotonic() - start
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    out = open(args.out, "w") if args.out else sys.stdout
    for answer in answers:
        out.write(json.dumps(answer) + "\n")
    errors = sum(1 for a in answers if a.get("error"))
    print(f"{len(files)} files ({sum(len(d) for _, d in files) / 1e6:.1f} MB), {errors} errors: "
          f"{wall:.1f} s wall, {usage.ru_utime + usage.ru_stime:.1f} s CPU, peak RSS {usage.ru_maxrss / 1024:.0f} MiB",
          file=sys.stderr)


if __name__ == "__main__":
    main()
