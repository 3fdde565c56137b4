"""docs/openrpc.json against the running daemon: clients get what the document says."""
import base64
import collections
import json
import re
import unittest

from harness.case import BARE_METAL, SCRIPTED, SLAVE, DaemonTest
from harness.daemon import ROOT
from harness.frames import write_pcap
from harness.schema import validates

DOCUMENT = json.loads((ROOT / "docs/openrpc.json").read_text())
COMPONENTS = DOCUMENT["components"]
ERRORS = COMPONENTS["errors"]

UNSIGNED = {2 ** 8 - 1: "byte", 2 ** 16 - 1: "uint16", 2 ** 32 - 1: "uint32", 2 ** 64 - 1: "uint64"}
OTHERS = {"boolean": "bool", "string": "string", "object": "object", "array": "array"}


def params_of(example):
    return {p["name"]: p["value"] for p in example["params"]} if example["params"] else None


def params_schema(method, params):
    """The schema of an example's `params`. What is required depends on its other members."""
    def required(param):
        return param["required"] or any(params.get(other) in values
                                        for other, values in param.get("x-required-when", {}).items())
    return {"type": "object", "additionalProperties": False,
            "properties": {p["name"]: p["schema"] for p in method["params"]},
            "required": [p["name"] for p in method["params"] if required(p)]}


def with_variant(schema, value):
    """The schema, completed with the variant that fits the value."""
    fitting = [v for v in schema.get("oneOf", []) if validates(v, value)]
    return {"properties": {k: s for part in [*reversed(fitting), schema] for k, s in part.get("properties", {}).items()},
            "required": [name for part in [schema, *fitting] for name in part.get("required", [])]}


def examples():
    """The examples that hold for this build, with their methods."""
    for method in DOCUMENT["methods"]:
        for example in method["examples"]:
            if example.get("x-build") in (None, "slave" if SLAVE else "standalone"):
                yield method, example


def sample():
    """The frame of the examples."""
    return next(base64.b64decode(params["buffer"]) for _, example in examples()
                if "buffer" in (params := params_of(example) or {}))


@unittest.skipIf(BARE_METAL, "the document loads engines without shared memory")
class Methods(DaemonTest):
    def enter(self, state):
        self.it = self.daemon(*(("-a", "--attach", "if0") if state == "activated (attached)" else ()), engine=SCRIPTED,
                              files={"script": "class push_pkts 7 HTTP\nreturn coffee 17\n"})
        write_pcap(self.it.cwd / "sample.pcap", [sample()] * 2)
        if state in ("deactivated", "activated"):
            self.it.result("load")
        if state == "activated":
            self.it.result("activate", {"resources": {"max_flows": 10}})
        self.assertEqual(self.it.result("status")["state"], state)

    def call(self, method, params):
        """Returns the reply, having checked that the document allows it."""
        reply = self.it.call(method["name"], params)
        error = reply.get("error")
        self.assertTrue(validates(COMPONENTS["schemas"]["Failure" if error else "Success"], reply), reply)
        if error:
            named = [ERRORS[e["$ref"].rpartition("/")[2]] for e in method["errors"]]
            self.assertIn((error["code"], error["message"]), [(e["code"], e["message"]) for e in named])
        else:
            self.assertTrue(validates(method["result"]["schema"], reply["result"]), reply)
        return reply

    def test_the_document_holds_exactly_the_daemons_methods(self):
        self.enter("not loaded")
        self.assertEqual(sorted(m["name"] for m in DOCUMENT["methods"]), sorted(self.it.result("cmds")))

    def test_a_message_that_reaches_no_method_gets_the_documented_error(self):
        self.enter("not loaded")
        for name, told in DOCUMENT["x-errors"].items():
            if "request" not in told:
                continue
            with self.subTest(name):
                error = json.loads(self.it.raw(told["request"]))["error"]
                self.assertEqual(error["code"], ERRORS[name]["code"])
                self.assertTrue(error["message"].startswith(ERRORS[name]["message"].partition("{")[0]), error)
                self.assertNotIn("specific_err", error)

    # --- what is missing or wrong
    def test_a_field_that_is_missing_or_of_the_wrong_type_is_refused_as_the_document_says(self):
        self.enter("not loaded")
        self.documented, self.accepted = collections.defaultdict(set), collections.defaultdict(set)
        for method, example in examples():
            params = params_of(example)
            if "x-error" in example or params is None:
                continue
            with self.subTest(f"{method['name']}, {example['name']}"):
                self.spoil_members(method, params, params, params_schema(method, params))
        self.assertTrue(self.documented)
        self.assertEqual(self.documented, self.accepted)

    def spoil_members(self, method, root, part, schema):
        """Leaves out or spoils each member of `part`, a value inside `root`, one at a time."""
        fitting = with_variant(schema, part)
        for name, kept in list(part.items()):
            if name not in fitting["properties"]:
                continue  # what only the engine understands
            del part[name]
            missing = self.call(method, root).get("error", {}).get("specific_err") == f"field '{name}' is missing"
            self.assertEqual(missing, name in fitting["required"], root)
            self.spoil_value(method, root, part, name, fitting["properties"][name])
            part[name] = kept
            if isinstance(kept, dict):
                self.spoil_members(method, root, kept, fitting["properties"][name])

    def refusal(self, method, params):
        return self.call(method, params)["error"]["specific_err"]

    def spoil_value(self, method, root, part, name, schema):
        part[name] = 5 if schema["type"] == "object" else {}
        text = self.refusal(method, root)
        if "enum" in schema and text.startswith(f"field '{name}' can only be one of ['"):
            self.documented[method["name"], name].update(schema["enum"])
            self.accepted[method["name"], name].update(re.findall("'([^']*)'", text.partition("[")[2]))
            return
        number = schema["type"] == "integer"
        kind = UNSIGNED[schema["maximum"]] if number else OTHERS[schema["type"]]
        self.assertRegex(text, f"'{name}' is .*, expecting '{kind}'$")
        if number and kind != "uint64":
            part[name] = schema["maximum"] + 1
            self.assertIn(f"'{name}' has size bigger than", self.refusal(method, root))

    # --- in each state of the engine
    def test_every_example_is_answered_as_the_document_says_in_each_state(self):
        for state in ("not loaded", "deactivated", "activated", "activated (attached)"):
            self.enter(state)
            for method, example in examples():
                with self.subTest(f"{method['name']}, {example['name']}", state=state):
                    self.check_example(method, example, state)
                # A method that changes the engine's state leaves a daemon that the next example can't use.
                gone = method["name"] == "shutdown" and self.it.wait_exit() == 0
                if gone or self.it.result("status")["state"] != state:
                    self.it.kill()
                    self.enter(state)

    def check_example(self, method, example, state):
        params = params_of(example)
        reply = self.call(method, params)
        if method["name"] != "shutdown":
            after = method.get("x-leads-to", {}).get(state, state) if "result" in reply else state
            self.assertEqual(self.it.result("status")["state"], after)
        if state not in example.get("x-states", [state]):
            return
        if "x-error" in example:
            self.assertEqual(reply.get("error"), example["x-error"])
            return
        self.assertTrue(params is None or validates(params_schema(method, params), params))
        self.assertTrue(validates(method["result"]["schema"], example["result"]["value"]))
        self.assertIn("result", reply)
        if not example.get("x-varies"):
            self.assertEqual(reply["result"], example["result"]["value"])
