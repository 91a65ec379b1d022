#!/usr/bin/env python3
"""The command config."""

import json

from bench import Bench, main

TYPES = {"number": int, "boolean": bool, "text": str, "word": str, "bytes": str, "texts": list, "channel lists": list}


class ConfigTest(Bench):
    def json_of(self, *arguments, code=0):
        done = self.run_tool("config", *arguments, "--json", code=code)
        self.assertEqual(done.stdout.count("\n"), 1)
        return json.loads(done.stdout)

    def test_keys_as_json_have_the_same_shape_everywhere(self):
        reference = self.json_of("keys")
        self.assertEqual(list(reference), ["tables"])
        self.assertEqual([(table["table"], table["repeated"]) for table in reference["tables"]],
                         [("board", False), ("wiring", False), ("queues", False), ("addresses", False), ("node", True),
                          ("node.answer", True), ("node.cyclic", True), ("peer", True), ("faults", False),
                          ("faults.event", True)])
        for table in reference["tables"]:
            self.assertEqual(list(table), ["table", "repeated", "keys"])
            for key in table["keys"]:
                limits = {"number": ["least", "most"], "word": ["words"]}.get(key["type"], [])
                self.assertEqual(list(key), ["key", "type", *limits, "default", "meaning"], key)
                self.assertTrue(key["meaning"])
                if key["default"] is not None:
                    self.assertIs(type(key["default"]), TYPES[key["type"]], key)
                if key["type"] == "word" and key["default"] is not None:
                    self.assertIn(key["default"], key["words"])

    def test_keys_as_json_have_the_defaults_that_are_shown(self):
        shown = self.json_of("show")
        for table in self.json_of("keys")["tables"]:
            if not table["repeated"]:
                defaults = {key["key"]: key["default"] for key in table["keys"]}
                of_table = {key: value for key, value in shown[table["table"]].items() if key != "event"}
                self.assertEqual(defaults, of_table)

    def test_keys_as_json_are_those_of_the_markdown(self):
        markdown = self.run_tool("config", "keys").stdout.splitlines()
        keys = [line.split("`")[1] for line in markdown if line.startswith("| `")]
        self.assertEqual([key["key"] for table in self.json_of("keys")["tables"] for key in table["keys"]], keys)

    def test_mistakes_as_json_have_line_column_and_text(self):
        self.assertEqual(self.json_of("check", self.write("good.toml", "")), {"mistakes": []})
        wrong = self.write("wrong.toml", "[board]\ntype = -1\nkind = \"a\\\"b\"\n")
        self.assertEqual(self.json_of("check", wrong, code=1), {"mistakes": [
            {"line": 2, "column": 8, "text": '"type" is a whole number from 0 to 4294967295'},
            {"line": 3, "column": 1, "text": 'unknown key "kind" in [board]; the nearest known name is "type"'}]})


if __name__ == "__main__":
    main()
