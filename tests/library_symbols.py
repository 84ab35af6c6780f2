#!/usr/bin/env python3
"""The library writes to no stream and no file but through its default log sink.

Lists the symbols that each object of the library leaves undefined (nm) and
fails on
  - a function that writes to a stream or a file, called from any object but
    logger.cpp's, whose default sink writes each record to stderr, or
  - any symbol that library_symbols.txt does not list: a new call, which a
    reviewer looks at and adds with --update.

  library_symbols.py LIBRARY [--update]
"""
import pathlib
import re
import subprocess
import sys

KNOWN = pathlib.Path(__file__).with_name("library_symbols.txt")

# What writes to a stream or a file (demangled names). Formatting into a
# buffer (snprintf, to_chars) and opening or reading files are not writes.
WRITERS = re.compile(
    r"^(write|writev|pwrite|pwrite64|pwritev|fwrite|fwrite_unlocked|fputs|fputs_unlocked|fputc|putc|"
    r"putc_unlocked|putchar|puts|perror|fflush|fopen|fopen64|freopen|fdopen|creat|creat64|syslog|vsyslog|"
    r"(__)?(v|f|vf|d|vd)?printf(_chk)?|stdout|stderr)$"
    r"|std::(cout|cerr|clog|wcout|wcerr)\b|std::(basic_)?ostream|basic_ofstream|basic_filebuf|std::endl"
)
# The one object that may write: the default log sink.
MAY_WRITE = {"logger.cpp.o": {"fwrite", "stderr"}}
# The library's own symbols and those of a sanitizer or coverage runtime.
IGNORED = re.compile(r"^(kestrune::|_GLOBAL_OFFSET_TABLE_$|__(asan|ubsan|tsan|sanitizer|sancov|gcov|msan)_)")


def undefined(library):
    """{object: {symbol}} of what each object leaves undefined."""
    out = subprocess.run(["nm", "-u", "-C", library], check=True, capture_output=True, text=True).stdout
    objects, current = {}, pathlib.Path(library).name
    for line in out.splitlines():
        if line.endswith(":") and not line.startswith(" "):
            current = line[:-1]
            continue
        parts = line.split(None, 1)
        if len(parts) == 2 and parts[0] in ("U", "w", "v"):
            objects.setdefault(current, set()).add(parts[1].strip())
    return objects


def main():
    library, update = sys.argv[1], "--update" in sys.argv[2:]
    objects = undefined(library)
    shared = not any(name.endswith(".o") for name in objects)
    failures = []
    for name, symbols in sorted(objects.items()):
        allowed = set().union(*MAY_WRITE.values()) if shared else MAY_WRITE.get(name, set())
        for symbol in sorted(symbols):
            if WRITERS.search(symbol) and symbol not in allowed:
                failures.append(f"{name}: calls {symbol}, which writes to a stream or a file")
    seen = {s for symbols in objects.values() for s in symbols if not IGNORED.search(s)}
    if update:
        KNOWN.write_text("".join(f"{s}\n" for s in sorted(seen | set(KNOWN.read_text().splitlines()))))
    known = set(KNOWN.read_text().splitlines())
    failures += [f"new undefined symbol: {s} (review it, then add it with --update)" for s in sorted(seen - known)]
    print(f"{len(seen)} symbols undefined in {len(objects)} objects of {library}")
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
