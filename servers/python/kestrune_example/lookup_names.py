"""Names as users write them: a C++ `ns::name`, a Go `net/http.Client`, a
Python module path without its src/ folder. The index names every symbol
with dots; these helpers turn a written name into that form and rank close
names for a lookup that missed (servers/cpp/lookup_names.hpp)."""

MOST_SUGGESTIONS = 5


def _ascii_lower(text):
    return "".join(chr(ord(c) + 32) if "A" <= c <= "Z" else c for c in text)


def dotted(text):
    """`text` with "::" and "/" written as "."."""
    return text.replace("::", ".").replace("/", ".")


def last_part(name):
    """What follows the last "." of a dotted name (all of it when it has none)."""
    return name[name.rfind(".") + 1 :]


def file_stem(text):
    """The name of the file that `text` points at: for a path, its last
    segment up to its first "."; for a module name, its last part."""
    slash = text.rfind("/")
    if slash < 0:
        return last_part(dotted(text))
    return text[slash + 1 :].split(".", 1)[0]


def edit_distance(a, b):
    """The Levenshtein distance between `a` and `b` with ASCII letters in
    lower case, counted in code points."""
    x, y = _ascii_lower(a), _ascii_lower(b)
    row = list(range(len(y) + 1))
    for i in range(1, len(x) + 1):
        diagonal, row[0] = row[0], i
        for j in range(1, len(y) + 1):
            above = row[j]
            row[j] = min(row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] != y[j - 1]))
            diagonal = above
    return row[len(y)]


def _parts_of(text):
    return [p for p in dotted(text).split(".") if p]


def closest(wanted_name, wanted, candidates):
    """Up to MOST_SUGGESTIONS of `candidates`, (shown, name) pairs, each shown
    once, the closest first: by edit distance of their name to `wanted_name`,
    then by how many of the parts of `wanted` (a dotted name) their shown
    text holds (read dotted), then the shorter, then in text order."""
    wanted_parts = _parts_of(wanted)
    keyed = []
    seen = set()
    for shown, name in candidates:
        if shown in seen:
            continue
        seen.add(shown)
        parts = _parts_of(shown)
        shared = sum(1 for p in wanted_parts if p in parts)
        keyed.append((edit_distance(wanted_name, name), -shared, len(shown), shown))
    keyed.sort()
    return [shown for *_, shown in keyed[:MOST_SUGGESTIONS]]


def suggestion_text(names):
    """" Close names: a, b." for `names`, or nothing when there are none."""
    return " Close names: " + ", ".join(names) + "." if names else ""
