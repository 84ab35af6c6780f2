"""The module's builders written in plain Python, small and exact.

They are what the native module is timed against, and what its output is
checked against: the same inputs must give the same dicts and the same text.
"""

import itertools
import json
import re

SUMMARY_CHARS = 160
_ASK_EXCERPT_CHARS = 1200
_ASK_MIN_EXCERPT_CHARS = 200
_ASK_CITATIONS_PER_SECTION = 3
_ASK_MAX_CITATIONS = 24
_BYTES_PER_TOKEN = 4
_ELLIPSIS = "\u2026"

# The 29 whitespace characters of stripping, word splitting and sentence ends.
WHITESPACE = ("\t\n\x0b\x0c\r\x1c\x1d\x1e\x1f \x85\xa0\u1680"
              + "".join(map(chr, range(0x2000, 0x200B)))
              + "\u2028\u2029\u202f\u205f\u3000")
# str.split() and str.strip() without arguments use exactly this set, so the
# builders below use them; checked here once rather than trusted.
assert len(WHITESPACE) == 29
assert {chr(c) for c in range(0x110000) if chr(c).isspace()} == set(WHITESPACE)

_SENTENCE_END = re.compile("(?<=[.!?])[" + re.escape(WHITESPACE) + "]")


def tool_result_text(value):
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False)


def _encoded_size(value):
    return len(tool_result_text(value).encode())


def _cut(text, chars):
    if len(text) <= chars:
        return text
    return text[:chars - 1].rstrip() + _ELLIPSIS


def _trimmed(text, chars):
    if len(text) <= chars:
        return text
    if chars <= 1:
        return ""
    cut = text.rfind(" ", 0, chars - 1)
    if cut < chars // 2:
        cut = chars - 1
    return text[:cut].rstrip() + _ELLIPSIS


def first_sentence(docstring):
    if not docstring:
        return None
    paragraph = " ".join(docstring.strip().split("\n\n", 1)[0].split())
    end = _SENTENCE_END.search(paragraph)
    sentence = paragraph[:end.start()] if end else paragraph
    return _cut(sentence, SUMMARY_CHARS) or None


def without_nulls(row):
    return {k: v for k, v in row.items() if v is not None}


def add_pagination_hint(response, count):
    if response.get("truncated") is True:
        response["hint"] = (f"Showing {count} of {response['total_count']} results. "
                            f"Call again with offset={response['offset'] + count} for more.")
    return response


def build_paginated_response(items, total_count, offset, *, items_key="items"):
    has_more = offset + len(items) < total_count
    return add_pagination_hint({items_key: items, "total_count": total_count, "truncated": has_more,
                                "has_more": has_more, "offset": offset}, len(items))


def build_symbol_search_result(symbol, file_path=None):
    return without_nulls({"fqn": symbol.fqn, "name": symbol.name, "kind": symbol.kind, "file": file_path,
                          "line": symbol.start_line, "signature": symbol.signature,
                          "summary": first_sentence(symbol.docstring)})


def outline_module(fqns):
    common = None
    for fqn in fqns:
        parent = fqn.split(".")[:-1]
        if common is None:
            common = parent
        else:
            shared = 0
            while shared < min(len(common), len(parent)) and common[shared] == parent[shared]:
                shared += 1
            del common[shared:]
    return ".".join(common or ())


def build_file_symbol(symbol, module=""):
    prefix = module + "." if module else ""
    name = symbol.fqn[len(prefix):] if prefix and symbol.fqn.startswith(prefix) else symbol.fqn
    end_line = symbol.end_line if symbol.end_line != symbol.start_line else None
    return without_nulls({"name": name, "kind": symbol.kind, "line": symbol.start_line, "end_line": end_line,
                          "signature": symbol.signature, "summary": first_sentence(symbol.docstring)})


def build_reference(reference, code=None):
    caller = reference.caller_symbol or {}
    return {"file": reference.file_path, "line": reference.line,
            **without_nulls({"code": code, "caller": caller.get("fqn"), "caller_kind": caller.get("kind"),
                             "usage_type": reference.usage_type})}


def _ask_citations(sections, extra):
    per_section = (c for s in sections for c in (s.get("citations") or ())[:_ASK_CITATIONS_PER_SECTION])
    result, seen = [], set()
    for citation in itertools.chain(per_section, extra):
        place = (citation.get("path"), citation.get("line_start"), citation.get("line_end"))
        if place in seen:
            continue
        seen.add(place)
        result.append(citation)
        if len(result) == _ASK_MAX_CITATIONS:
            break
    return result


def build_wiki_ask_response(*, mode, query, answer, sections, citations=None, model=None, tokens=None,
                            note=None, decisions=None, code=None, memories=None, token_budget=None):
    optional = {"model": model, "tokens": tokens, "note": note, "decisions": decisions, "code": code,
                "memories": memories}
    extra = list(citations) if citations else []
    full = []
    for s in sections:
        excerpt = s.get("excerpt") or ""
        full.append(_trimmed(excerpt if isinstance(excerpt, str) else tool_result_text(excerpt), _ASK_EXCERPT_CHARS))

    def assemble(excerpts):
        kept = sections[:len(excerpts)]
        response = {"mode": mode, "query": query, "answer": answer,
                    "sections": [{"page_id": s.get("page_id"), "title": s.get("title"), "heading": s.get("heading"),
                                  "similarity": s.get("similarity"), "stale": bool(s.get("stale")), "excerpt": e}
                                 for s, e in zip(kept, excerpts)],
                    "citations": _ask_citations(kept, extra)}
        response.update((k, v) for k, v in optional.items() if v is not None)
        return response

    if token_budget is None:
        return assemble(full)
    limit = token_budget * _BYTES_PER_TOKEN
    count = len(sections)
    while count > 0 and _encoded_size(assemble([""] * count)) + count * _ASK_MIN_EXCERPT_CHARS > limit:
        count -= 1
    excerpts = [""] * count
    for i in range(count):
        excerpts[i] = full[i]
        over = _encoded_size(assemble(excerpts)) + (count - i - 1) * _ASK_MIN_EXCERPT_CHARS - limit
        if over > 0:
            excerpts[i] = _trimmed(full[i], max(0, len(full[i]) - over - 8))
    result = assemble(excerpts)
    while _encoded_size(result) > limit and excerpts:
        excerpts.pop()
        result = assemble(excerpts)
    for key in ("memories", "code"):
        if _encoded_size(result) <= limit:
            break
        optional[key] = None
        result = assemble(excerpts)
    return result
