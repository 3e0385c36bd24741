"""The plans' schema says of the plans in tests/host/plans what their reader says.

    planSchema.py SCHEMA PLANS

Good plans are valid. Bad ones are not, except those that say which of their errors no schema can
know: "# schema: accepts, REASON". Ends with 77, which skips the test, where the modules are missing.
"""

import json
import pathlib
import re
import sys

try:
    import jsonschema
    import yaml
except ImportError as missing:
    print(f"skipped: {missing}; install python3-jsonschema and python3-yaml")
    sys.exit(77)


class Loader(yaml.SafeLoader):
    """Reads scalars by the core rules of YAML 1.2, and every key as a text, as editors do."""

    yaml_implicit_resolvers = {}

    def construct_mapping(self, node, deep=False):
        keys = [key.value for key, _ in node.value]
        if not all(isinstance(key, str) for key in keys):
            raise yaml.YAMLError("a key is not a scalar")
        return {
            key.value: self.construct_object(value, deep=True) for key, value in node.value
        }


def whole(self, node):
    text = node.value
    return int(text[2:], {"0x": 16, "0o": 8}[text[:2]]) if text[:2] in ("0x", "0o") else int(text)


Loader.add_constructor("tag:yaml.org,2002:int", whole)
Loader.add_constructor(
    "tag:yaml.org,2002:map", lambda self, node: self.construct_mapping(node, deep=True)
)
for tag, pattern in (
    ("null", r"~|null|Null|NULL|"),
    ("bool", r"true|True|TRUE|false|False|FALSE"),
    ("int", r"[-+]?[0-9]+|0o[0-7]+|0x[0-9a-fA-F]+"),
    (
        "float",
        r"[-+]?(\.[0-9]+|[0-9]+(\.[0-9]*)?)([eE][-+]?[0-9]+)?|[-+]?\.(inf|Inf|INF)|\.(nan|NaN|NAN)",
    ),
):
    Loader.add_implicit_resolver(
        "tag:yaml.org,2002:" + tag, re.compile(rf"^(?:{pattern})$"), None
    )


def fault(validator, path):
    """Why the plan is not valid, or None."""
    text = path.read_text(encoding="utf-8-sig")
    try:
        plan = json.loads(text) if path.suffix == ".json" else yaml.load(text, Loader)
    except (ValueError, RecursionError, yaml.YAMLError) as error:
        return str(error)
    found = jsonschema.exceptions.best_match(validator.iter_errors(plan))
    return None if found is None else found.message


def undescribed(schema, where=""):
    """The keys that editors would show without a word."""
    if not isinstance(schema, dict):
        return []
    missing = []
    for key, value in schema.get("properties", {}).items():
        if isinstance(value, dict) and "$ref" in value:
            name = value["$ref"].removeprefix("#/definitions/")
            if "description" not in DEFINITIONS[name]:
                missing.append(f"{where}/{key}")
        elif isinstance(value, dict) and where.rsplit("/", 1)[-1] not in ("if", "then"):
            if "description" not in value:
                missing.append(f"{where}/{key}")
    for key, value in schema.items():
        for item in value if isinstance(value, list) else [value]:
            missing += undescribed(item, f"{where}/{key}")
    return missing


SCHEMA = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
DEFINITIONS = SCHEMA["definitions"]
PLANS = pathlib.Path(sys.argv[2])


def main():
    jsonschema.Draft7Validator.check_schema(SCHEMA)
    validator = jsonschema.Draft7Validator(SCHEMA)
    wrong = [f"{key} has no description" for key in undescribed(SCHEMA)]
    counts = {"good": 0, "bad": 0, "excepted": 0}
    for path in sorted((PLANS / "good").iterdir()):
        counts["good"] += 1
        if (why := fault(validator, path)) is not None:
            wrong.append(f"{path}: is taken, and the schema refuses it: {why}")
    for path in sorted((PLANS / "bad").iterdir()):
        if path.suffix == ".expected":
            continue
        counts["bad"] += 1
        marks = path.with_suffix(".expected") if path.suffix == ".json" else path
        reason = re.search(r"^# schema: accepts, \S", marks.read_text(encoding="utf-8"), re.M)
        counts["excepted"] += reason is not None
        why = fault(validator, path)
        if reason is None and why is None:
            wrong.append(f"{path}: is refused, and the schema accepts it")
        if reason is not None and why is not None:
            wrong.append(f"{path}: says that the schema accepts it, which does not: {why}")
    if counts["good"] < 120 or counts["bad"] < 240:
        wrong.append("there are fewer plans than there were")
    print("\n".join(wrong) or "{good} good and {bad} bad plans, {excepted} beyond it".format(**counts))
    return 1 if wrong else 0


sys.exit(main())
