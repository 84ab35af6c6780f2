"""Peak memory of one encoding of a ~100 MB response, each encoder in a fresh
process: the input is built first (from small pieces, so that the process's
peak is its current size), then the peak resident size is read before and
after one encoding. Run as a script with an encoder's name it prints one JSON
line of figures; `measure(name, text)` runs it so and returns them.
"""

import gc
import json
import os
import resource
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TARGET_BYTES = 100_000_000


def _encoders():
    import orjson
    import kestrune_mcp_responses as m
    return {
        "tool_result_text": m.tool_result_text,
        "json.dumps": lambda v: json.dumps(v, separators=(",", ":"), ensure_ascii=False),
        "orjson.dumps": orjson.dumps,
        "orjson.dumps().decode()": lambda v: orjson.dumps(v).decode(),
    }


NAMES = ("tool_result_text", "json.dumps", "orjson.dumps", "orjson.dumps().decode()")


def _peak_bytes():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024  # KiB on Linux


def _current_bytes():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def _child(name, text):
    import corpus
    encode = _encoders()[name]
    value = corpus.big_response(TARGET_BYTES, latin1=text == "latin1")
    gc.collect()
    current, before = _current_bytes(), _peak_bytes()
    start = time.perf_counter()
    text = encode(value)
    seconds = time.perf_counter() - start
    after = _peak_bytes()
    size = len(text) if isinstance(text, bytes) else len(text.encode())
    print(json.dumps({"name": name, "text_bytes": size, "object_bytes": sys.getsizeof(text),
                      "current_before": current, "peak_before": before, "peak_after": after,
                      "seconds": seconds}))


def measure(name, text):
    """Figures of encoder `name` on text of `text`: "bmp" (ASCII with Latin-1
    and other BMP characters) or "latin1" (ASCII with Latin-1 accents only)."""
    out = subprocess.run([sys.executable, os.path.join(HERE, "peak_memory.py"), name, text],
                         check=True, capture_output=True, text=True).stdout
    return json.loads(out.splitlines()[-1])


if __name__ == "__main__":
    _child(sys.argv[1], sys.argv[2])
