"""Requests made from docs/openrpc.json: nothing here names a method or a parameter."""
import copy
import json

from harness.daemon import ROOT

METHODS = {m["name"]: m for m in json.loads((ROOT / "docs/openrpc.json").read_text())["methods"]}


def forms(schema):
    """For each alternative of a schema, a schema without alternatives."""
    for choice in schema.get("oneOf", [{}]):
        form = {k: v for k, v in schema.items() if k != "oneOf"}
        form["properties"] = {**schema.get("properties", {}), **choice.get("properties", {})}
        form["required"] = schema.get("required", []) + choice.get("required", [])
        yield form


def with_text(value, text):
    """The value with the text in place of each string in it, and of each object's members, one at a time."""
    if isinstance(value, str):
        yield text
    if isinstance(value, dict):
        yield {text: text}
        for name, inner in value.items():
            yield from ({**value, name: spoilt} for spoilt in with_text(inner, text))


WRONG = [None, True, -1, 0, 1.5, 2 ** 32, 2 ** 64 - 1, 1e300, "", "%s%n", "lo", [], [1, "x"], {}, {"type": "x"}, "A" * 3000]


def half_valid(random, method):
    """Parameters, most of them right, since only those get far into the method."""
    return {parameter["name"]: half_valid_value(random, parameter["schema"]) for parameter in METHODS[method]["params"]
            if parameter["required"] or random.random() < 0.6}


def half_valid_value(random, schema):
    if random.random() < 0.12:
        return copy.deepcopy(random.choice(WRONG))
    if "enum" in schema:
        return random.choice(schema["enum"])
    kind = schema.get("type", "object")
    if kind == "object":
        form = random.choice(list(forms(schema)))
        return {n: half_valid_value(random, s) for n, s in form["properties"].items()
                if n in form["required"] or random.random() < 0.5}
    if kind == "array":
        return [half_valid_value(random, schema.get("items", {})) for _ in range(random.randrange(10))]
    if kind == "integer":
        top = min(schema.get("maximum", 1000), 2 ** 64 - 1)
        return random.choice([schema.get("minimum", 0), 1, top, random.randint(0, top)])
    if kind == "boolean":
        return random.random() < 0.5
    return random.choice([schema.get("default", "lo"), "lo", "default", "flows", "AAAA", ""])
