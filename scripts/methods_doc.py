#!/usr/bin/env python3
"""Writes docs/methods.md, the methods for people, from docs/openrpc.json, the methods for programs.

With --check it writes nothing and ends with 1 if the page isn't what the document gives. With --build BUILD FILE it
writes the document as it is for one build, "slave" or "standalone", and nothing else.
"""
import json
import pathlib
import sys

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
PAGE = DOCS / "methods.md"
BITS = {2**bits - 1: f"uint{bits}" for bits in (8, 16, 32, 64)}


def text(value):
    return json.dumps(value, ensure_ascii=False)


def type_of(schema):
    if "enum" in schema:
        return ", ".join(text(word) for word in schema["enum"])
    kind = schema.get("type", "any")
    if kind == "array":
        inner = schema["items"]
        return "array" if inner.get("type", "object") == "object" else f"array of {type_of(inner)}"
    if kind == "object" and isinstance(schema.get("additionalProperties"), dict):
        return f"object of {type_of(schema['additionalProperties'])}"
    return BITS.get(schema.get("maximum"), kind)


def members(schema, path=""):
    """Path, schema and whether it is always there, for each member of a value, those of variants included."""
    inner = schema.get("items", schema)
    path += "[]" if "items" in schema else ""
    for name, member in inner.get("properties", {}).items():
        where = f"{path}.{name}" if path else name
        yield where, member, name in inner.get("required", [])
        yield from members(member, where)


def cell(words):
    return words.replace("|", "\\|")


def table(head, rows):
    yield "| " + " | ".join(head) + " |"
    yield "|" + "---|" * len(head)
    for row in rows:
        yield "| " + " | ".join(cell(words) for words in row) + " |"
    yield ""


def either(words):
    """`1`, `1 or 2`, `1, 2 or 3`."""
    return " or ".join(filter(None, [", ".join(words[:-1]), *words[-1:]]))


def needed(required, when=None):
    conditions = [f"`{name}` {either([text(word) for word in words])}" for name, words in (when or {}).items()]
    return "yes" if required else "with " + ", ".join(conditions) if conditions else ""


def engine_rules(method):
    """The engine states that the method accepts, and the state it leads to; empty if it accepts all and changes none."""
    rules = []
    if "x-states" in method:
        rules.append(f"Refused unless the engine is {either(method['x-states'])}.")
    if leads_to := method.get("x-leads-to"):
        rules.append(f"An engine that was {either(list(leads_to))} is {either(sorted(set(leads_to.values())))} afterwards.")
    return " ".join(rules)


def param_rows(method):
    for param in method["params"]:
        schema = param["schema"]
        default = text(schema["default"]) if "default" in schema else ""
        yield (f"`{param['name']}`", type_of(schema), needed(param["required"], param.get("x-required-when")), default,
               param["description"])
        yield from nested_rows(schema, param["name"])


def nested_rows(schema, path):
    """A row for each member; only one where several variants share it."""
    variants = schema.get("oneOf", [])
    shared = schema.get("properties", {})
    found = {}
    for part in [schema, *variants]:
        # A variant is told by the word that picks it.
        told = [name for name, member in part.get("properties", {}).items() if name in shared and "enum" in member]
        when = {f"{path}.{name}": part["properties"][name]["enum"] for name in told} if part in variants else {}
        for where, member, required in members(part, path):
            if where in when:
                continue
            row = found.setdefault(where, {"member": member, "required": False, "when": {}})
            if required and when:
                row["when"] = {name: row["when"].get(name, []) + words for name, words in when.items()}
            else:
                row["required"] |= required
    for where, row in found.items():
        member = row["member"]
        default = text(member["default"]) if "default" in member else ""
        yield f"`{where}`", type_of(member), needed(row["required"], row["when"]), default, member.get("description", "")


def result_lines(schema):
    variants = schema.get("oneOf", [schema])
    for variant in variants:
        rows = [(f"`{where}`", type_of(member) + ("" if always else ", not always"), member.get("description", ""))
                for where, member, always in members(variant)]
        said = variant.get("description", "")
        kind = "empty object" if variant.get("type") == "object" and not rows else type_of(variant)
        yield f"Result: {kind}" + (f" ({said})" if said else "") + (":" if rows else ".")
        yield ""
        if rows:
            yield from table(("member", "type", "meaning"), rows)


def example_lines(example):
    request = {param["name"]: param["value"] for param in example["params"]}
    where = [f"{example['x-build']} build"] if "x-build" in example else []
    where += example.get("x-states", [])
    yield example["name"] + (f" ({', '.join(where)})" if where else "")
    yield "  > " + (text(request) if request else "no params")
    if "x-error" in example:
        yield f"  < error {example['x-error']['code']}: {example['x-error']['specific_err']}"
    else:
        yield "  < " + text(example["result"]["value"]) + (" (varies)" if example.get("x-varies") else "")


def method_lines(method, errors):
    yield f"## {method['name']}"
    yield ""
    yield " ".join([method["summary"], method.get("description", "")]).strip()
    yield ""
    if rules := engine_rules(method):
        yield rules
        yield ""
    if method["params"]:
        yield from table(("parameter", "type", "required", "default", "meaning"), param_rows(method))
    yield from result_lines(method["result"]["schema"])
    codes = [str(errors[error["$ref"].rsplit("/", 1)[1]]["code"]) for error in method.get("errors", [])]
    yield f"Errors: {', '.join(codes)}." if codes else "It has no errors of its own."
    yield ""
    yield "```"
    for example in method["examples"]:
        yield from example_lines(example)
    yield "```"
    yield ""


def page_lines(document):
    yield "<!-- Made by scripts/methods_doc.py from openrpc.json: change that. -->"
    yield "# Methods"
    yield ""
    yield document["info"]["description"]
    yield ""
    yield ("The same for programs: `openrpc.json`. Examples were run with a stand-in engine: what they show of an "
           "engine's own answers is an illustration. Where one names a build or engine states, it gives this answer "
           "only there. A slave build has a host system beside it that owns the data path; it is what `scripts/build` "
           "makes. A standalone build has none; it is what the packages contain. The line \"Attributes:\" of the log "
           "tells them apart: one of them says \"slave\".")
    yield ""
    yield ", ".join(f"[{method['name']}](#{method['name']})" for method in document["methods"])
    yield ""
    yield "## Messages"
    yield ""
    for name, schema in document["components"]["schemas"].items():
        yield f"{name}:"
        yield ""
        yield from table(("member", "type", "meaning"),
                         ((f"`{where}`", type_of(member) + ("" if always else ", optional"),
                           member.get("description", "")) for where, member, always in members(schema)))
    errors = document["components"]["errors"]
    yield from table(("code", "message", "when"),
                     ((str(error["code"]), error["message"], document["x-errors"][name]["when"])
                      for name, error in errors.items()))
    for method in document["methods"]:
        yield from method_lines(method, errors)


def document(path=DOCS / "openrpc.json"):
    return json.loads(path.read_text())


def for_build(value, build):
    """The document for one build: with its texts, and without the examples of others."""
    if isinstance(value, list):
        return [for_build(item, build) for item in value if not isinstance(item, dict) or is_for(item, build)]
    if not isinstance(value, dict):
        return value
    out = {name: for_build(member, build) for name, member in value.items() if name not in ("x-build", "x-builds")}
    if build in value.get("x-builds", {}):
        out["description"] = value["x-builds"][build]
    return out


def is_for(item, build):
    return item.get("x-build", build) == build


def write_for_build(build, path):
    made = for_build(document(), build)
    made["info"]["x-build"] = build
    pathlib.Path(path).write_text(json.dumps(made, indent=2, ensure_ascii=False) + "\n")


def main():
    if sys.argv[1:2] == ["--build"]:
        return write_for_build(*sys.argv[2:4])
    page = "\n".join(page_lines(document())).rstrip() + "\n"
    if sys.argv[1:] != ["--check"]:
        PAGE.write_text(page)
    elif PAGE.read_text() != page:
        sys.exit("docs/methods.md isn't what docs/openrpc.json gives: run scripts/methods_doc.py")


if __name__ == "__main__":
    main()
