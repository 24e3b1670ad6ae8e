#!/usr/bin/env python3
"""check_shapes.py SCHEMA FILE: validates JSON results against the schema of their command.

FILE holds command lines after "$ ", each followed by what it printed: one JSON document, or one a
line. The schema of "qeli2c gpio get ..." is $defs["gpio get"], else $defs["gpio"].
"""
import json
import re
import sys

import jsonschema


def documents(text):
    try:
        return [json.loads(text)]
    except json.JSONDecodeError:
        return [json.loads(line) for line in text.splitlines() if line]


def main():
    schema = json.load(open(sys.argv[1]))
    jsonschema.Draft202012Validator.check_schema(schema)
    wrong = 0
    for part in re.split(r"^\$ ", open(sys.argv[2]).read(), flags=re.M)[1:]:
        line, _, output = part.partition("\n")
        words = re.search(r"qeli2c((?: +\S+)+)", line).group(1).split()
        names = [word for word in words if not word.startswith("-")]
        name = next((n for n in (" ".join(names[:2]), names[0]) if n in schema["$defs"]), None)
        if name is None:
            print(f"no schema for: {line}")
            wrong += 1
            continue
        rules = {"$ref": f"#/$defs/{name.replace(' ', '%20')}", "$defs": schema["$defs"]}
        for document in documents(output):
            for error in jsonschema.Draft202012Validator(rules).iter_errors(document):
                print(f"{line}: {error.json_path}: {error.message}")
                wrong += 1
    return 1 if wrong else 0


sys.exit(main())
