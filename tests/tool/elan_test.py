"""Puts what raters made into recordings, and writes tiers of ELAN."""

import xml.etree.ElementTree

from tool import FolderTest, line, lines, recalculated, rows, run

SLOTS = [1000, 2000, 2000, 3000, 2500, 3500, 9000, 9500, None]
TIERS = {  # the tier, whom it is about, the type: where each annotation begins and ends, or what it refers to
    ("smiles", "guest", "free"): [(1, 2, ""), (3, 4, "")],
    ("deeds", "2", "free"): [(5, 6, "greets &amp; waves"), (7, 8, "leaves"), (7, 9, "stays")],
    ("notes", "guest", "one"): [("a1", "broad")],
    ("words", "guest", "several"): [("a1", "oh")],
}


def document(head="", tiers=TIERS):
    """A document of ELAN, its annotations numbered in order."""
    number = 0
    text = f'<?xml version="1.0" encoding="UTF-8"?>\n{head}<ANNOTATION_DOCUMENT>\n<TIME_ORDER>\n'
    for slot, time in enumerate(SLOTS, 1):
        text += f'<TIME_SLOT TIME_SLOT_ID="ts{slot}"' + (f' TIME_VALUE="{time}"' if time else "") + "/>\n"
    text += "</TIME_ORDER>\n"
    for (tier, subject, kind), annotations in tiers.items():
        text += f'<TIER TIER_ID="{tier}" PARTICIPANT="{subject}" LINGUISTIC_TYPE_REF="{kind}">\n'
        for *where, value in annotations:
            number += 1
            text += "<ANNOTATION>" + (
                f'<REF_ANNOTATION ANNOTATION_ID="a{number}" ANNOTATION_REF="{where[0]}"'
                if len(where) == 1 else f'<ALIGNABLE_ANNOTATION ANNOTATION_ID="a{number}" '
                f'TIME_SLOT_REF1="ts{where[0]}" TIME_SLOT_REF2="ts{where[1]}"') + (
                f"><ANNOTATION_VALUE>{value}</ANNOTATION_VALUE></"
                f'{"REF" if len(where) == 1 else "ALIGNABLE"}_ANNOTATION></ANNOTATION>\n')
        text += "</TIER>\n"
    return text + ('<LINGUISTIC_TYPE LINGUISTIC_TYPE_ID="one" CONSTRAINTS="Symbolic_Association"/>\n'
                   '<LINGUISTIC_TYPE LINGUISTIC_TYPE_ID="several" CONSTRAINTS="Symbolic_Subdivision"/>\n'
                   "</ANNOTATION_DOCUMENT>\n")


BORIS = ("Subject\tBehavior\tBehavior type\tStart (s)\tStop (s)\nguest\tsmiles\tSTATE\t1\t2\n"
         "guest\tsmiles\tSTATE\t2\t3\n2\tgreets & waves\tSTATE\t2.5\t3.5\nguest\tbroad\tPOINT\t1.5\tNA\n")
TABULAR = ("Time,Subject,Behavior,Status\n1,guest,smiles,START\n1.5,guest,broad,POINT\n2,guest,smiles,STOP\n"
           "2,guest,smiles,START\n2.5,2,greets & waves,START\n3,guest,smiles,STOP\n3.5,2,greets & waves,STOP\n")
BIDS = "onset\tduration\ttrial_type\n1\t1\tsmiles\n1.5\t0\tbroad\n2\t1\tsmiles\n4\tn/a\tfrowns\n"


class ElanTest(FolderTest):
    def annotated(self, file, text, *options, recording=None):
        """The lines that open and close scopes, and what is reported."""
        (self.folder / file).write_text(text)
        told = run("annotate", "-", file, *options, cwd=self.folder, input=recording or lines(
            line(0, "not_seen", person=1), line(3, "not_seen", person=2), line(6, "not_seen", person=1)))
        return [part for part in told.stdout.splitlines() if "_recording" in part], told.stderr

    def assert_scopes(self, found, *expected):
        written = [lines(line(time, what, person=person, scope=name))
                   .replace(", ", ",").replace('": ', '":').strip()
                   for begin, end, person, name in expected
                   for time, what in ((begin, "start_recording"), (end, "stop_recording"))]
        self.assertEqual(sorted(found), sorted(written))

    def test_what_raters_made_becomes_scopes(self):
        smiles = [(1, 2 - 1e-9, 1, "smiles"), (2, 3, 1, "smiles")]
        greets = (3, 3.5, 2, "greets & waves")  # from when person 2 is there
        found, told = self.annotated("film.eaf", document(), "--subject", "guest=1", "--subject", "2")
        self.assert_scopes(found, *smiles, greets, (1, 2, 1, "broad"))
        self.assertEqual(told.splitlines(), [
            'film.eaf: warning: tier "deeds": 1 annotation has no time of its own',
            'film.eaf: warning: tier "words": 1 annotation has no time of its own',
            'film.eaf: warning: tier "deeds", 9.000 s: begin is after the end of the recording, '
            "which is 6.000 s long"])
        for file, text in (("events.tsv", BORIS), ("events.csv", TABULAR)):
            with self.subTest(file=file):
                found, told = self.annotated(file, text, "--subject", "guest=1", "--subject", "2")
                self.assert_scopes(found, *smiles, greets, (1.5, 1.5, 1, "broad"))
                self.assertEqual(told, "")
        found, told = self.annotated("bids.tsv", BIDS, "--person", "1")
        self.assert_scopes(found, *smiles, (1.5, 1.5, 1, "broad"))
        self.assertEqual(told, 'bids.tsv: warning: tier "frowns": 1 annotation has no time of its own\n')
        late = "".join(f"{second}\t0.5\tsmiles\n" for second in range(50, 80))
        found, told = self.annotated("bids.tsv", BIDS.replace("4\tn/a\tfrowns\n", late), "--person", "1")
        self.assertTrue(told.startswith("bids.tsv: warning: 30 of 33 annotations begin after the end of the "
                                        "recording: are they another film's?\nbids.tsv: warning: tier "), told)
        found, told = self.annotated("film.eaf", document(), "--tier", "deeds", "--offset", "0.25")
        self.assert_scopes(found, (3, 3.75, 2, "greets & waves"))
        found, told = self.annotated("film.eaf", document(), "--tier", "smiles", "--subject", "guest=2")
        self.assertIn('tier "smiles", 1.000 s: person 2 is not there between begin and end', told)
        self.assert_scopes(found, (3, 3, 2, "smiles"))

    def test_errors_of_raters_files(self):
        entity = '<!DOCTYPE a [<!ENTITY b "c">]>\n'
        unknown = {("smiles", "guest", "free"): [(1, 2, "&b;")]}
        nobody = {("a", "", "free"): [(1, 4, "nods")], ("b", "", "free"): [(5, 6, "nods")]}
        for file, text, options, message in (
                ("a.eaf", document(entity, unknown), [], ":2: has a DOCTYPE, which is refused"),
                ("a.eaf", document(tiers=unknown), [], ": is not XML: undefined entity"),
                ("a.eaf", document()[:-9], [], ": is not XML: "),
                ("a.eaf", "<a></a>", [], ":1: is not a document of ELAN"),
                ("a.eaf", document().replace('"1000"', '"1s"'), [], ':4: "1s" is not a time in milliseconds'),
                ("a.eaf", document(), [], 'tier "smiles", 1.000 s: is about "guest", not a number; '
                                          "--subject guest=N gives one"),
                ("a.eaf", document(), ["--tier", "x"], 'has no tier "x"; those that it has: "deeds", '),
                ("a.eaf", document(), ["--subject", "x=1"], 'has no subject "x"; those that it has: "2", '),
                ("a.eaf", document(tiers=nobody), ["--subject", "x=1"], 'has no subject "x"; those that it has: '
                                                                        "none; --person says whose they are"),
                ("a.eaf", document(tiers=nobody), ["--person", "1"], 'tier "b", 2.500 s: overlaps tier "a", '
                                                                     "1.000 s, which has the same person and"),
                ("a.eaf", document(), ["--subject", "guest=7"], 'tier "smiles", 1.000 s: person 7 is not in'),
                ("a.eaf", document(), ["--subject", "guest"], "is neither like guest=3 nor a person's number"),
                ("a.csv", TABULAR.replace("START", "STOP"), [], ':2: column "Status": "smiles" stops without'),
                ("a.tsv", BIDS, [], 'tier "smiles", 1.000 s: names no subject; --person says whose it is'),
                ("a.tsv", BIDS.replace("1\t1\t", "1\t-1\t"), ["--person", "1"], ':2: column "duration": is'),
                ("a.csv", "person,scope,begin,end\n1,a,1,2\n", ["--tier", "a"], "names its persons and")):
            with self.subTest(message=message):
                found, told = self.annotated(file, text, *options)
                self.assertIn(message, told)
                self.assertEqual(found, [])

    def test_tiers_hold_what_a_replay_gives(self):
        run("simulate", "--seconds", "60", "--output", "scene.jsonl", cwd=self.folder, check=True)
        scene = (self.folder / "scene.jsonl").read_text()
        run("export", "elan", "scene.jsonl", "--film", "films/a b.mp4", "-o", "tiers.eaf", "--person", "1",
            "--series", "series.csv", cwd=self.folder, check=True)
        root = xml.etree.ElementTree.parse(self.folder / "tiers.eaf").getroot()
        media = root.find("HEADER/MEDIA_DESCRIPTOR")
        self.assertEqual((media.get("RELATIVE_MEDIA_URL"), media.get("MIME_TYPE")),
                         ("./films/a%20b.mp4", "video/mp4"))
        slots = {slot.get("TIME_SLOT_ID"): int(slot.get("TIME_VALUE")) for slot in root.iter("TIME_SLOT")}
        self.assertEqual(list(slots.values()), sorted(slots.values()))
        tiers = {tier.get("TIER_ID"): [
            (slots[part.get("TIME_SLOT_REF1")], slots[part.get("TIME_SLOT_REF2")],
             part.findtext("ANNOTATION_VALUE")) for part in tier.iter("ALIGNABLE_ANNOTATION")]
            for tier in root.iter("TIER")}
        for name, annotations in tiers.items():
            for (_, end, _), (begin, _, _) in zip(annotations, annotations[1:]):
                self.assertLessEqual(end, begin, name)

        run("replay", "scene.jsonl", "-q", "-o", ".", cwd=self.folder, check=True)
        recalculated(self.folder / "scene.jsonl", self.folder)
        timeline = [row for row in rows(self.folder / "timeline.csv") if row["person"] == "1"]
        names = {"1": "positive", "0": "neutral", "-1": "negative"}
        for row in timeline:
            at = float(row["seconds"]) * 1e3
            label = [value for begin, end, value in tiers["mood of person 1"] if begin + 1 < at < end - 1]
            self.assertIn(label, ([], [names[row["mood"]]]))
        visits = {visit: [float(row["seconds"]) * 1e3 for row in timeline if row["visit"] == visit]
                  for visit in ("1", "2")}
        self.assertEqual(tiers["visits of person 1"], [(int(times[0]), int(times[-1]) + 1, visit)
                                                       for visit, times in visits.items()])
        series = rows(self.folder / "series.csv")
        self.assertEqual([[row["valence"], row["ease_confidence"]] for row in series],
                         [[row["valence"], row["ease_confidence"]] for row in timeline])
        self.assertEqual([float(row["seconds"]) for row in series],
                         [float(row["seconds"]) for row in timeline])

        # Back again: the same cycles within the same scopes.
        bare = "".join(part for part in scene.splitlines(keepends=True) if "_recording" not in part)
        options = [f"--tier={name}" for name in tiers if name.startswith("scopes")]
        again = run("annotate", "-", "tiers.eaf", *options, cwd=self.folder, input=bare).stdout
        own = [row for row in rows(self.folder / "scopes.csv") if row["person"] == "1"]
        run("replay", "-", "-q", "-o", ".", cwd=self.folder, input=again, check=True)
        columns = ("scope", "visit", "label", "samples", "exact_mean_valence")
        self.assertEqual(sorted([row[column] for column in columns] for row in rows(self.folder / "scopes.csv")),
                         sorted([row[column] for column in columns] for row in own))
        told = run("export", "elan", "scene.jsonl", "--series", "s.csv", "-o", "none.eaf", cwd=self.folder)
        self.assertIn("a time series is of one person, whom --person chooses", told.stderr)
        self.assertFalse((self.folder / "none.eaf").exists())
