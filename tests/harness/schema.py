"""The part of JSON Schema that docs/openrpc.json and the engine's description of its methods use."""
TYPES = {"object": dict, "array": list, "string": str, "boolean": bool, "integer": int, "number": (int, float)}
KEYWORDS = {"additionalProperties", "default", "description", "enum", "format", "items", "maximum", "maxItems", "minimum",
            "oneOf", "properties", "required", "type"}


def is_of_type(value, name):
    return isinstance(value, TYPES[name]) and (name == "boolean" or not isinstance(value, bool))


def members_validate(schema, value):
    known, more = schema.get("properties", {}), schema.get("additionalProperties")
    return (all(name in value for name in schema.get("required", ()))
            and all(validates(known[name], v) for name, v in value.items() if name in known)
            and (more is not False or set(value) <= set(known))
            and (not isinstance(more, dict) or all(validates(more, v) for name, v in value.items() if name not in known)))


def validates(schema, value):
    if unknown := {k for k in schema if not k.startswith("x-")} - KEYWORDS:
        raise ValueError(f"unknown keywords {unknown}")
    if "type" in schema and not is_of_type(value, schema["type"]):
        return False
    if "enum" in schema and value not in schema["enum"]:
        return False
    if is_of_type(value, "integer") and not schema.get("minimum", value) <= value <= schema.get("maximum", value):
        return False
    if "oneOf" in schema and sum(validates(variant, value) for variant in schema["oneOf"]) != 1:
        return False
    if isinstance(value, list) and not all(validates(schema.get("items", {}), item) for item in value):
        return False
    return not isinstance(value, dict) or members_validate(schema, value)
