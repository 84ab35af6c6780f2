"""Writes a C++ header of the native part's signatures, taken from its type
stubs (_native.pyi), so that the stubs are their one description: for each
function its Params (the parameter names, how many may come by position,
how many must be given) and its __doc__, which starts with the text
signature that inspect.signature and help() read, then the stub's typed
signature and its docstring.

  python3 stub_signatures.py STUB.pyi OUT.hpp
"""
import ast
import sys


def c_string(text):
    out = []
    for ch in text:
        if ch == "\\":
            out.append("\\\\")
        elif ch == '"':
            out.append('\\"')
        elif ch == "\n":
            out.append("\\n")
        elif 32 <= ord(ch) < 127:
            out.append(ch)
        else:
            raise SystemExit(f"stub_signatures: non-ASCII {ch!r} in a docstring")
    return '"' + "".join(out) + '"'


def entries(stub_text):
    for node in ast.parse(stub_text).body:
        if not isinstance(node, ast.FunctionDef):
            continue
        a = node.args
        if a.vararg or a.kwarg or a.posonlyargs:
            raise SystemExit(f"stub_signatures: {node.name}: only plain and keyword-only parameters are bound")
        params = a.args + a.kwonlyargs
        defaults = [None] * (len(a.args) - len(a.defaults)) + list(a.defaults) + list(a.kw_defaults)
        required = sum(d is None for d in defaults)
        if any(d is None for d in defaults[required:]):
            raise SystemExit(f"stub_signatures: {node.name}: a required parameter after an optional one")
        plain, typed = [], []
        for i, (p, d) in enumerate(zip(params, defaults)):
            if i == len(a.args) and a.kwonlyargs:
                plain.append("*")
                typed.append("*")
            default = "" if d is None else ast.unparse(d)
            plain.append(p.arg + ("=" + default if default else ""))
            typed.append(f"{p.arg}: {ast.unparse(p.annotation)}" + (f" = {default}" if default else ""))
        doc = ast.get_docstring(node) or ""
        text = (f"{node.name}({', '.join(plain)})\n--\n\n"
                f"{node.name}({', '.join(typed)}) -> {ast.unparse(node.returns)}\n\n{doc}")
        yield node.name, [p.arg for p in params], len(a.args), required, text


def main():
    stub, out = sys.argv[1:3]
    with open(stub, encoding="utf-8") as f:
        found = list(entries(f.read()))
    lines = ["// Written by python/tools/stub_signatures.py from _native.pyi: edit the stubs, not this.",
             "#pragma once", "", '#include "fast_call.hpp"', "",
             "namespace kestrune::mcp_responses::python::stubs {", ""]
    for name, names, positional, required, text in found:
        quoted = ", ".join(c_string(n) for n in names)
        lines.append(f"inline constexpr Params<{len(names)}> {name}{{{c_string(name)}, {{{quoted}}}, "
                     f"{positional}, {required}}};")
        lines.append(f"inline constexpr char {name}_doc[] = {c_string(text)};")
    lines += ["", "}  // namespace kestrune::mcp_responses::python::stubs", ""]
    with open(out, "w", encoding="utf-8") as f:
        f.write("\n".join(lines))


if __name__ == "__main__":
    main()
