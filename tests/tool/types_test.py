"""Asks for the records that other modules see."""

import json
import unittest

from tool import run


class TypesTest(unittest.TestCase):
    def test_handles_are_bouncers(self):
        kinds = {record["class"]: record["kind"]
                 for record in json.loads(run("types", "--json").stdout)}
        self.assertEqual((len(kinds), set(kinds.values())), (13, {"plain", "bouncer"}))
        self.assertEqual({name for name, kind in kinds.items() if kind == "bouncer"},
                         {"::ZV::BodyLanguageState", "::ZV::PersonState"})
