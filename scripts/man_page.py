#!/usr/bin/env python3
"""Makes a manual page from its scdoc source: scripts/man_page.py [--scdoc PROGRAM] --document FILE --words FILE SOURCE PAGE

A line `@methods@` in the source becomes the methods of the document, docs/openrpc.json as it is for one build, a line
`@errors@` its error codes, `@build@` what that build is, `@refused@` a request that is refused,
`@words@` what is in FILE: the client's words, as it describes them.
"""
import argparse
import json
import pathlib
import re
import subprocess

import methods_doc as doc


def escape(words):
    """The text, escaped for scdoc; `code` becomes bold."""
    parts = re.split(r"`([^`]*)`", words)
    safe = [re.sub(r"([^\w\s]|_)", r"\\\1", part) for part in parts]
    return "".join(f"*{part}*" if at % 2 else part for at, part in enumerate(safe))


def entries(rows):
    """Name, what stands beside it, meaning: a paragraph each, indented."""
    for name, beside, meaning in rows:
        yield f"{escape(name)}" + (f" ({escape(beside)})" if beside else "")
        if meaning:
            yield f"\t{escape(meaning)}"
        yield ""


def params(method):
    for name, kind, needed, default, meaning in doc.param_rows(method):
        need = "required" if needed == "yes" else f"required {needed}" if needed else ""
        yield name, ", ".join(filter(None, [kind, need, f"default {default}" if default else ""])), meaning


def result(method):
    schema = method["result"]["schema"]
    for variant in schema.get("oneOf", [schema]):
        rows = [(f"`{where}`", doc.type_of(member) + ("" if always else ", not always"), member.get("description", ""))
                for where, member, always in doc.members(variant)]
        kind = "empty object" if variant.get("type") == "object" and not rows else doc.type_of(variant)
        said = variant.get("description", "")
        yield escape(f"Result: {kind}" + (f" ({said})" if said else "") + (":" if rows else "."))
        yield ""
        yield from entries(rows)


# The columns of 80 that a literal text may use.
WIDTH = 69
# Room for the braces that may follow a value.
CLOSING = 4


def folded(value, indent=0, before=""):
    """JSON with as many members on each line as fit; only a long text makes a line too long. `before`: its name."""
    if indent + len(before + doc.text(value)) + CLOSING <= WIDTH or not isinstance(value, (dict, list)) or not value:
        return before + doc.text(value)
    named = value.items() if isinstance(value, dict) else ((None, member) for member in value)
    opening, closing = "{}" if isinstance(value, dict) else "[]"
    texts = [folded(member, indent + 1, f"{doc.text(name)}: " if name else "") for name, member in named]
    lines = [texts[0]]
    for last, text in zip(texts, texts[1:]):
        if "\n" in last + text or indent + len(lines[-1] + text) + CLOSING > WIDTH:
            lines.append(text)
        else:
            lines[-1] += ", " + text
    begin = "\n" + " " * (indent + 1)
    return before + opening + (begin if before else "") + ("," + begin).join(lines) + closing


def messages(method, example):
    """Request and reply of an example, whole."""
    params = {param["name"]: param["value"] for param in example["params"]}
    request = {"jsonrpc": "2.0", "id": 1, "method": method["name"], **({"params": params} if params else {})}
    if "x-error" in example:
        return request, {"error": example["x-error"], "id": 1, "jsonrpc": "2.0"}
    value = example["result"]["value"]
    size = len(json.dumps(value, ensure_ascii=False, separators=(",", ":")).encode()) + 1
    return request, {"fmt": {"size": size, "type": "plain"}, "id": 1, "jsonrpc": "2.0", "ms": 0, "result": value}


def telling_example(method):
    """Preferably one that succeeds, has something to tell and fits."""
    def merits(example):
        lines = folded(messages(method, example)[1]).splitlines()
        return ("result" in example, bool(example.get("result", {}).get("value")), max(map(len, lines)) <= WIDTH)
    return max(method["examples"], key=merits)


def exchange(method, example):
    request, reply = messages(method, example)
    states = [f'"{state}"' for state in example.get("x-states", [])]
    yield escape("Example" + (f", with the engine in state {doc.either(states)}" if states else "") + ":")
    yield ""
    yield from ["```", *folded(request).splitlines(), "```", ""]
    yield from ["```", *folded(reply).splitlines(), "```", ""]


def refused(document):
    method = next(method for method in document["methods"] if method["name"] == "echo")
    yield from exchange(method, next(example for example in method["examples"] if "x-error" in example))


def error_codes(document, method):
    errors = document["components"]["errors"]
    return ", ".join(str(errors[error["$ref"].rsplit("/", 1)[1]]["code"]) for error in method.get("errors", []))


def methods(document):
    for method in document["methods"]:
        yield f"## {method['name']}"
        yield ""
        yield escape(" ".join([method["summary"], method.get("description", "")]).strip())
        yield ""
        if rules := doc.engine_rules(method):
            yield escape(rules)
            yield ""
        if method["params"]:
            yield "Parameters:"
            yield ""
            yield from entries(params(method))
        yield from result(method)
        if codes := error_codes(document, method):
            yield escape(f"Errors: {codes}.")
            yield ""
        yield from exchange(method, telling_example(method))


def errors(document):
    yield from entries((str(error["code"]), error["message"], document["x-errors"][name]["when"])
                       for name, error in document["components"]["errors"].items())


def build(document):
    texts = {"slave": "This page is of a daemon in slave mode: a host system beside it owns the data path.",
             "standalone": "This page is of a standalone daemon: no host system beside it owns the data path."}
    yield texts[document["info"]["x-build"]]


FRAGMENTS = {"@methods@": methods, "@errors@": errors, "@build@": build, "@refused@": refused}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--scdoc", default="scdoc")
    parser.add_argument("--document", type=pathlib.Path, required=True)
    parser.add_argument("--words", type=pathlib.Path, required=True)
    parser.add_argument("source", type=pathlib.Path)
    parser.add_argument("page", type=pathlib.Path)
    args = parser.parse_args()
    document = doc.document(args.document)
    lines = []
    for line in args.source.read_text().splitlines():
        if line == "@words@":
            lines += args.words.read_text().splitlines()
            continue
        lines += FRAGMENTS[line](document) if line in FRAGMENTS else [line]
    page = subprocess.run([args.scdoc], input="\n".join(lines) + "\n", text=True, check=True, stdout=subprocess.PIPE)
    args.page.write_text(page.stdout)


if __name__ == "__main__":
    main()
