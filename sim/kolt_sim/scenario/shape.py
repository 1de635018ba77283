"""The form of a scenario document: what schema.json says, its complaints in plain words, and its defaults."""
import difflib
import json
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import jsonschema

from .problems import Place, Problem, cut, listed, short

SCHEMA = json.loads(Path(__file__).with_name("schema.json").read_text(encoding="utf-8"))
_VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)
_NOUNS = {"number": "a number", "integer": "an integer", "boolean": "true or false", "string": "a text",
          "array": "an array", "object": "an object"}


def problems(document: Any) -> Iterator[Problem]:
    """What the schema finds wrong with a document."""
    return (problem for error in _VALIDATOR.iter_errors(document) for problem in _explain(error))


def describe(schema: dict) -> str:
    """What a schema allows, in words and with its bounds."""
    if "expected" in schema:
        return schema["expected"]
    if "enum" in schema:
        return f"one of {listed(schema['enum'])}"
    return _NOUNS[schema["type"]] + _bounds(schema) + (f" ({schema['unit']})" if "unit" in schema else "")


def _bounds(schema: dict) -> str:
    if "exclusiveMinimum" in schema:
        return f" above {short(schema['exclusiveMinimum'])} and at most {short(schema['maximum'])}"
    return f" from {short(schema['minimum'])} to {short(schema['maximum'])}" if "minimum" in schema else ""


def resolve(schema: dict) -> dict:
    """The schema with the definition that it refers to, if it does; its own members go first."""
    if "$ref" not in schema:
        return schema
    return SCHEMA["$defs"][schema["$ref"].removeprefix("#/$defs/")] | schema


def _explain(error: jsonschema.ValidationError) -> Iterator[Problem]:
    place = tuple(error.absolute_path)
    match error.validator:
        case "oneOf":
            yield from _explain_kind(place, error)
        case "required":
            yield from _missing(place, error.schema, error.validator_value, error.instance)
        case "dependentRequired":
            given = [names for name, names in error.validator_value.items() if name in error.instance]
            wanted = [name for names in given for name in names]
            yield from _missing(place, error.schema, wanted, error.instance)
        case "additionalProperties":
            for name in error.instance:
                if name not in error.schema["properties"]:
                    yield place + (name,), _unknown(name, error.schema["properties"])
        case _:
            yield place, f"expected {describe(error.schema)}, found {short(error.instance)}"


def _missing(place: Place, schema: dict, wanted: list[str], instance: dict) -> list[Problem]:
    return [(place + (name,), f"missing member; expected {describe(resolve(schema['properties'][name]))}")
            for name in wanted if name not in instance]


def _unknown(name: str, known: dict) -> str:
    near = difflib.get_close_matches(name[:100], known, 1)
    hint = f"did you mean {short(near[0])}?" if near else f"known are {', '.join(known)}"
    return f"unknown member; {hint}"


def _explain_kind(place: Place, error: jsonschema.ValidationError) -> list[Problem]:
    """One of several kinds of object, told apart by the members that they require: says what is wrong in that kind."""
    value = error.instance
    if not isinstance(value, dict):
        return [(place, f"expected {describe(error.schema)}, found {short(value)}")]
    marks = _marks(error.validator_value)
    whole = [index for index, names in enumerate(marks) if all(name in value for name in names)]
    meant = whole or [index for index, names in enumerate(marks) if any(name in value for name in names)]
    if len(meant) == 1:
        return [problem for inner in error.context if inner.relative_schema_path[0] == meant[0]
                for problem in _explain(inner)]
    kinds = ", or ".join(" and ".join(marks[index]) for index in meant or range(len(marks)))
    found = f"the members {cut(listed(value))}" if value else "no members"
    return [(place, f"expected the members of one kind of event ({kinds}), found {found}")]


def _marks(kinds: list[dict]) -> list[list[str]]:
    """The members that tell each kind from the others."""
    required = [resolve(kind)["required"] for kind in kinds]
    return [[name for name in names if not all(name in others for others in required)] for names in required]


def complete(value: Any, schema: dict = SCHEMA) -> Any:
    """A valid document with every default filled in and its numbers as the records have them, int or float."""
    schema = resolve(schema)
    if "oneOf" in schema:
        schema = next(kind for kind in map(resolve, schema["oneOf"]) if all(name in value for name in kind["required"]))
    match schema.get("type"):
        case "object":
            known = schema["properties"]
            left_out = {name: resolve(inner)["default"] for name, inner in known.items()
                        if name not in value and "default" in resolve(inner)}
            return {name: complete(item, known[name]) for name, item in (value | left_out).items()}
        case "array":
            return [complete(item, schema["items"]) for item in value]
        case "integer":
            return int(value)
        case "number":
            return float(value)
    return value
