#!/usr/bin/env python3
"""Makes a manual page from its scdoc source: scripts/man_page.py [--scdoc PROGRAM] --document FILE --words FILE SOURCE PAGE

A line `@methods@` in the source becomes the methods of the document, docs/openrpc.json as it is for one build, a line
`@errors@` its error codes, `@build@` what that build is,
`@words@` what is in FILE: the client's words, as it describes them.
"""
import argparse
import pathlib
import re
import subprocess

import methods_doc as doc


def escape(words):
    """The text, with none of its characters meaning anything to scdoc but `code`, which becomes bold."""
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


def methods(document):
    for method in document["methods"]:
        yield f"## {method['name']}"
        yield ""
        yield escape(" ".join([method["summary"], method.get("description", "")]).strip())
        yield ""
        if method["params"]:
            yield "Parameters:"
            yield ""
            yield from entries(params(method))
        yield from result(method)


def errors(document):
    yield from entries((str(error["code"]), error["message"], document["x-errors"][name]["when"])
                       for name, error in document["components"]["errors"].items())


def build(document):
    texts = {"slave": "This page is of a daemon in slave mode: a host system beside it owns the data path.",
             "standalone": "This page is of a standalone daemon: no host system beside it owns the data path."}
    yield texts[document["info"]["x-build"]]


FRAGMENTS = {"@methods@": methods, "@errors@": errors, "@build@": build}


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


main()
