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


def build_empty_paginated_response(items_key="items"):
    return {items_key: [], "total_count": 0, "truncated": False, "has_more": False, "offset": 0}


def fit_paginated_response(items, total_count, offset, max_bytes, *, items_key="items"):
    n = len(items)
    while n > 0 and _encoded_size(build_paginated_response(items[:n], total_count, offset,
                                                           items_key=items_key)) > max_bytes:
        n -= 1
    return build_paginated_response(items if n == len(items) else items[:n], total_count, offset,
                                    items_key=items_key)


def build_index_status_response(status, health, branch, progress, files_indexed=0, symbols_indexed=0,
                                last_updated=None, errors_count=0, phase=None, phase_detail=None):
    response = {"status": status, "health": health, "branch": branch, "progress": progress,
                "files_indexed": files_indexed, "symbols_indexed": symbols_indexed, "last_updated": last_updated,
                "errors_count": errors_count}
    if phase:
        response["phase"] = phase
    if phase_detail:
        response["phase_detail"] = phase_detail
    return response


_NOT_INITIALIZED = "Repository not initialized"
EMPTY_TOOL_RESPONSES = {
    "status": {"status": "not_initialized", "health": "unknown", "branch": None, "progress": 0,
               "files_indexed": 0, "symbols_indexed": 0, "errors_count": 0},
    "search": build_empty_paginated_response("symbols"),
    "symbol": {"found": False, "message": _NOT_INITIALIZED},
    "file": {"error": _NOT_INITIALIZED, "symbols": []},
    "files": build_empty_paginated_response("files"),
    "architecture": {"components": []},
    "git": {"error": _NOT_INITIALIZED, "files": [], "total_count": 0, "truncated": False, "has_more": False,
            "offset": 0},
    "quality": {"dead_symbols": [], "total_count": 0, "truncated": False, "has_more": False, "offset": 0},
    "context": {"message": _NOT_INITIALIZED, "status": "failed"},
    "tests": {"tests": [], "total_count": 0},
    "explore": {"error": _NOT_INITIALIZED, "results": []},
    "remember": {"error": _NOT_INITIALIZED},
    "wiki": {"built": False, "message": _NOT_INITIALIZED, "pages": []},
    "force_reindex": {"message": _NOT_INITIALIZED, "status": "failed"},
}


def get_empty_response(tool_name):
    return {k: list(v) if isinstance(v, list) else v
            for k, v in EMPTY_TOOL_RESPONSES.get(tool_name, {"error": _NOT_INITIALIZED}).items()}


def build_symbol_full_details(symbol, file_path=None):
    return {"found": True, "fqn": symbol.fqn, "name": symbol.name, "kind": symbol.kind, "file": file_path,
            "start_line": symbol.start_line, "end_line": symbol.end_line, "signature": symbol.signature,
            "is_export": symbol.is_export, "docstring": symbol.docstring,
            "docstring_truncated": symbol.docstring_truncated}


def build_api_endpoint(symbol, file_path=None, component_name=None):
    return {"fqn": symbol.fqn, "name": symbol.name, "kind": symbol.kind, "file": file_path or "",
            "line": symbol.start_line, "signature": symbol.signature, "component": component_name}


def build_component(component):
    return {"name": component.name, "layer": component.layer, "path_pattern": component.path_pattern,
            "file_count": component.file_count, "symbol_count": component.symbol_count}


def build_test_coverage(test_file, source_file, symbols_imported=None):
    row = {"test_file": test_file, "source_file": source_file}
    if symbols_imported:
        row["symbols_imported"] = symbols_imported
    return row


def build_wiki_status_response(*, built, branch, pages=0, files_covered=0, total_sources=0, coverage_pct=0.0,
                               last_built=None, model=None, stale_pages=None, enabled=False, configured=False):
    return {"built": built, "branch": branch, "enabled": enabled, "configured": configured, "pages": pages,
            "files_covered": files_covered, "total_sources": total_sources, "coverage_pct": coverage_pct,
            "last_built": last_built, "model": model, "stale_pages": stale_pages or []}


def build_wiki_list_response(pages, total, offset=0, truncated=False):
    return {"pages": pages, "total_count": total, "offset": offset, "truncated": truncated,
            "has_more": offset + len(pages) < total}


def build_wiki_read_response(*, page_id, title, content, citations=None, source_files=None, related_pages=None):
    return {"page_id": page_id, "title": title, "content": content, "citations": citations or [],
            "source_files": source_files or [], "related_pages": related_pages or []}


def call_tool_result(response, *, structured=False, is_error=False):
    result = {"content": [{"type": "text", "text": tool_result_text(response)}]}
    if structured and isinstance(response, dict):
        result["structuredContent"] = response
    if is_error:
        result["isError"] = True
    return result


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
