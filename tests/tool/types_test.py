"""Asks the tool whose path is in ZORVEL for the records that other modules see."""

import json
import os
import subprocess
import unittest


class TypesTest(unittest.TestCase):
    def test_handles_are_bouncers(self):
        told = subprocess.run([os.environ["ZORVEL"], "types", "--json"], capture_output=True,
                              text=True, check=True).stdout
        kinds = {record["class"]: record["kind"] for record in json.loads(told)}
        self.assertEqual((len(kinds), set(kinds.values())), (13, {"plain", "bouncer"}))
        self.assertEqual({name for name, kind in kinds.items() if kind == "bouncer"},
                         {"::ZV::BodyLanguageState", "::ZV::PersonState"})


if __name__ == "__main__":
    unittest.main()
