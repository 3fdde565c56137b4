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


def valid(schema):
    if "enum" in schema:
        return schema["enum"][0]
    if "default" in schema:
        return schema["default"]
    kind = schema.get("type", "object")
    if kind == "object":
        form = next(forms(schema))
        return {name: valid(form["properties"][name]) for name in form["required"]}
    return {"string": "lo", "integer": max(1, schema.get("minimum", 1)), "boolean": False, "array": []}[kind]


def parameters(method):
    return {p["name"]: p for p in METHODS[method]["params"]}


def around(method, name):
    """Valid values of all parameters that must be there for this one to be read."""
    known = parameters(method)
    values = {n: valid(p["schema"]) for n, p in known.items() if p["required"]}
    wanted = [name]
    for n in wanted:
        for other, choices in known[n].get("x-required-when", {}).items():
            values[other] = choices[0]
            wanted.append(other)
    return values


def text_places():
    """(method, name of the place, function from a text to params) for each text that a client may give."""
    for method in METHODS:
        for name, parameter in parameters(method).items():
            schema = parameter["schema"]
            base = around(method, name)
            if schema.get("type") == "string":
                yield method, name, lambda text, b=base, n=name: {**b, n: text}
            elif schema.get("type") == "object":
                yield method, f"{name}.{{}}", lambda text, b=base, n=name: {**b, n: {text: text}}
                for form in forms(schema):
                    whole = {p: valid(form["properties"][p]) for p in form["required"]}
                    for inner, s in form["properties"].items():
                        if s.get("type") == "string":
                            yield method, f"{name}.{inner}", lambda text, b=base, n=name, i=inner, w=whole: {
                                **b, n: {**w, i: text}}


WRONG = [None, True, -1, 0, 1.5, 2 ** 32, 2 ** 64 - 1, 1e300, "", "%s%n", "lo", [], [1, "x"], {}, {"type": "x"}, "A" * 3000]


def half_valid(random, method):
    """Parameters, most of them right, since only those get far into the method."""
    values = {}
    for name, parameter in parameters(method).items():
        if parameter["required"] or random.random() < 0.6:
            values[name] = half_valid_value(random, parameter["schema"])
    return values


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
