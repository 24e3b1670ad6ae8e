#!/usr/bin/env python3
"""board_schema.py QELI2C-SIM SCHEMA MANUAL BOARD...: the schema and the program agree on every board file.

Both must accept the boards and the manual's example. Then a small board is changed at one place at a time: every
device type gets every key with values around its limits, and whatever stands elsewhere in a file is left out,
doubled, misspelt or made something else. The schema must accept exactly what the program accepts.
"""
import copy
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import jsonschema

VALUES = {
    "inputs": [0, 255, 256, 65535, 65536, -1, 1.5, "0xf0", "", "x", True],
    "voltage_mv": [0, 36000, 36001, -1, "0x10", "-5", None],
    "current_ma": [-1000000, -1000001, 1000000, 1000001, "-0x10", "-"],
    "shunt_uohm": [0, 1, 10000000, 10000001, "7"],
    "id": [0, 0xffffff, 0x1000000, 0xffffffff, 0x100000000, "0xffff", []],
    "eid": [0, 254, 255, "8", "eight"],
    "pattern": ["00 7f", "0", "0x00", "", "g0", "00" * 31, "00" * 32, 7, "a 1"],
    "pins": [[], ["a"], ["a", "", "b-1"], ["1a"], [7], ["p%d" % i for i in range(8)],
             ["p%d" % i for i in range(9)], ["p%d" % i for i in range(17)], "a"],
    "busy_after_write": [True, False, 0, "true"],
    "channels": [{}, {"0": []}, {"7": [{"name": "n", "type": "mctp", "address": 9}]}, {"8": []}, {"x": []}, [],
                 {"1": {}}, {"1": [{"name": "n", "type": "mctp"}]}],
    "adress": ["0x20"],
    "name": ["d", "a.b-c_9", "", "9", "a b", "a" * 63, "a" * 64, 5],
    "address": [8, 7, 119, 120, "0x08", "0x7", "0x77", "0x78", "119", "120", "008", "0X20", "", None, "0x0", 0],
    "type": ["registers", "nothing", "", 1],
}
BUS = {
    "bus": [0, 15, 16, -1, "15", "0xf", "16", "0x10", "015", None, "x"],
    "speed": ["instant", "100k", "400k", "1M", "", 100],
    "status": [0, 0xffffffff, 0x100000000, -1, "0x10000", "s"],
    "devices": [[], {}, None, [5]],
    "device": [[]],
}
BOARD = {
    "name": ["b", "", "n" * 63, "n" * 64, 3],
    "speed": ["100k", "fast"],
    "buses": [[], {}, [{"bus": 1}], [{}], "bus"],
    "busses": [[]],
}


def small_board(kind):
    return {"name": "b", "buses": [{"bus": 3, "devices": [{"name": "d", "type": kind, "address": "0x20"}]}]}


def changed_boards(kinds):
    def change(board, place, key, values):
        for value in values:
            changed = copy.deepcopy(board)
            place(changed)[key] = value
            yield changed
        changed = copy.deepcopy(board)
        if place(changed).pop(key, None) is not None:
            yield changed

    for kind in kinds:
        for key, values in VALUES.items():
            yield from change(small_board(kind), lambda board: board["buses"][0]["devices"][0], key, values)
    for key, values in BUS.items():
        yield from change(small_board("registers"), lambda board: board["buses"][0], key, values)
    for key, values in BOARD.items():
        yield from change(small_board("registers"), lambda board: board, key, values)
    yield from ([], "board", None)


def verdicts(program, files):
    checked = subprocess.run([program, "check", "--json", *files], stdout=subprocess.PIPE, check=False)
    return [entry["good"] for entry in json.loads(checked.stdout)]


def main(program, schema_file, manual, *board_files):
    schema = json.loads(pathlib.Path(schema_file).read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    boards = [json.loads(pathlib.Path(file).read_text()) for file in board_files]
    boards += [json.loads(text) for text in re.findall(r"```json\n(.*?)```", pathlib.Path(manual).read_text(), re.S)]
    must_be_good = len(boards)
    kinds = schema["$defs"]["device"]["properties"]["type"]["enum"]
    boards += list(changed_boards(kinds))
    with tempfile.TemporaryDirectory() as directory:
        files = []
        for number, board in enumerate(boards):
            files.append(f"{directory}/{number}.json")
            pathlib.Path(files[-1]).write_text(json.dumps(board))
        unknown = pathlib.Path(files[0]).with_name("unknown.json")
        unknown.write_text(json.dumps(small_board("unknown")))
        complaint = subprocess.run([program, "check", unknown], stdout=subprocess.PIPE, check=False, text=True).stdout
        good = verdicts(program, files)
    mistakes = [] if re.findall('"(.*?)"', complaint) == kinds else [f"device types: {complaint}"]
    for number, (board, by_program) in enumerate(zip(boards, good)):
        by_schema = validator.is_valid(board)
        if by_schema != by_program or (number < must_be_good and not by_schema):
            mistakes.append(f"schema {by_schema}, program {by_program}: {json.dumps(board)[:300]}")
    print("\n".join(mistakes))
    print(f"{len(boards)} boards, {sum(good)} of them good, {len(mistakes)} mistakes")
    return 1 if mistakes else 0


sys.exit(main(*sys.argv[1:]))
