"""Imports small files, and looks at the recordings."""

import json
import os
import struct
import subprocess
import unittest

import tool
from tool import TOOL, new_folder

START = 946_684_800 * 10**9  # 2000-01-01
OPENFACE = "frame,timestamp,confidence,success"
PYFEAT = "FaceRectX,FaceScore,Pitch,frame,"
FIRST = PYFEAT + "happiness,Identity"
USED = [36, 39, 42, 45, 17, 21, 22, 26, 30, 33, 48, 54]


def run(kind, text, *options):
    data = text if isinstance(text, bytes) else text.encode()
    return tool.run("import", kind, "-", *options, input=data, text=False)


def events(result):
    return [json.loads(line) for line in result.stdout.splitlines()][1:]


def rounded(value):
    if isinstance(value, dict):
        return {key: rounded(inner) for key, inner in value.items() if key != "facialPoints"}
    return round(value, 4) if isinstance(value, float) else value


def points(event):
    return {p["point"]: (p["x"], p["y"]) for p in event["facialPoints"]["points"]}


def emotions(confidence, *values):
    names = ["calm", "anger", "joy", "sorrow", "surprise"]
    return {n: {"value": v, "confidence": confidence} for n, v in zip(names, values)}


class ImportTest(unittest.TestCase):
    def imported(self, kind, text, *options):
        result = run(kind, text, "--quiet", *options)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        header = json.loads(result.stdout.splitlines()[0])
        origin = header.pop("origin")
        self.assertEqual(header, {"event": "header", "version": 1, "source": kind})
        if "--start" not in "".join(options):
            self.assertEqual(origin, START)
        return events(result)

    def test_openface_values(self):
        cells = {  # the camera sees the head 45 degrees to the right and 45 above
            "timestamp": "0.25", "success": "1", "frame": "9", "confidence": "1.5", "face_id": "3",
            "pose_Tz": "1000", "pose_Tx": "1000", "pose_Ty": "-1000", "pose_Rz": "0.2617993878",
            "pose_Rx": "-0.5235987756", "pose_Ry": "1.0471975512", "gaze_angle_y": "0.0872664626",
            "gaze_angle_x": "0.7853981634", "AU01_r": "1.2", "AU02_r": "0", "AU04_r": "0.3",
            "AU05_r": "0.6", "AU06_r": "6", "AU07_r": "0.9", "AU12_r": "1.5", "AU15_r": "0.75",
            "AU23_r": "-1", "AU26_r": "3", "x_36": "12.5", "y_54": "7", "AU12_c": "bad",
        }
        seen = {
            "time": START + 250_000_000, "event": "observation", "person": 3,
            "faceDetected": {"value": True}, "distance": {"value": 1},
            "headPosture": {"yaw": 15, "pitch": 75, "roll": 15}, "gaze": {"yaw": -90, "pitch": 40},
            "smile": {"value": 0.5, "confidence": 1},
            "expressions": emotions(1, 0.25, 0.15, 0.75, 0.25, 0.4),
        }
        behind = {"distance": None, "headPosture": {"yaw": 60, "pitch": 30, "roll": 15},
                  "gaze": {"yaw": -45, "pitch": -5}}
        for options, changed, expected in (
            ([], {}, {}),
            (["--mirrored"], {}, {"headPosture": {"yaw": -15, "pitch": 75, "roll": -15},
                                  "gaze": {"yaw": 90, "pitch": 40}}),
            (["--full-intensity", "6"], {"AU06_r": "3"}, {
                "smile": {"value": 0.25, "confidence": 1},
                "expressions": emotions(1, 0.625, 0.075, 0.375, 0.125, 0.2)}),
            ([], {"pose_Tz": "0"}, behind),
            ([], {"pose_Tx": "nan"}, behind),
            ([], {"gaze_angle_x": "", "pose_Rz": "-nan(ind)", "AU05_r": "inf"},
             {"gaze": None, "headPosture": None, "expressions": None}),
            ([], {"confidence": ""}, {"smile": None, "expressions": None}),
        ):
            row = {**cells, **changed}
            quoted = " ,".join(f'"{cell}"' for cell in row.values())
            text = f"\ufeff{', '.join(row)}\r\n\r\n{quoted}"
            with self.subTest(options=options, changed=changed):
                event, = self.imported("openface", text, *options)
                wanted = {k: v for k, v in {**seen, **expected}.items() if v is not None}
                self.assertEqual(rounded(event), wanted)
                if row["confidence"]:
                    self.assertEqual(points(event), {
                        k: (12.5 * (k == 0), 7 * (k == 11)) for k in range(12)})

    def test_frames_cover_each_known_person(self):
        text = "success,frame,face_id,confidence,timestamp\n" + "\n".join((
            "1,1,7,1,0", "1,1,2,1,0", "1,2,7,1,1", "0,2,2,?,1", "1,3,7,1,3", "1,4,7,1,3.001",
            "1,5,2,1,3.5", "1,6,7,1,9", "0,7,-,-,10"))
        for gap, expected in (
            ("3", "0 o2 0 o7 1000 n2 1000 o7 3000 n2 3000 o7 3001 r2 3001 o7 3500 o2 3500 n7 "
                  "9000 r2 9000 r7 9000 o7 10000 n7"),
            ("5.5", "0 o2 0 o7 1000 n2 1000 o7 3000 n2 3000 o7 3001 n2 3001 o7 3500 o2 3500 n7 "
                    "9000 n2 9000 r7 9000 o7 10000 r2 10000 n7"),
        ):
            told = [f"{(e['time'] - START) / 1e6:g} {e['event'][0]}{e['person']}"
                    for e in self.imported("openface", text, "--gap", gap)]
            self.assertEqual(" ".join(told), expected)

    def test_times(self):
        sequence = ["--fps", "30"]
        for rows, options, expected in (
            ([(1, "0.000"), (2, "0.0333")], sequence, [START, START + 33_300_000]),
            ([(7, 0), (8, 0.25)], [], [START, START + 250_000_000]),
            ([(3, 0), (4, 0)], sequence, [START + 66_666_667, START + 100_000_000]),
            ([(4, 0)], sequence, [START + 100_000_000]),
            ([(1, 0)], ["--start=-7"], [-7]),
            ([(1, 0), (2, 1)], ["--start", "2024-02-29T23:59:59.5Z"],
             [1_709_251_199_500_000_000, 1_709_251_200_500_000_000]),
        ):
            text = "\n".join([OPENFACE] + [f"{frame},{time},1,1" for frame, time in rows])
            with self.subTest(rows=rows, options=options):
                told = [event["time"] for event in self.imported("openface", text, *options)]
                self.assertEqual(told, expected)

    def test_pyfeat_values(self):
        landmarks = [f"{axis}_{k}" for k in USED for axis in "xy"]
        places = ["7.0385306918512091e-26"] + [str(k) for k in range(1, 24)]
        for names, identity, row, person, posture in (
            ("neutral,anger,happiness,sadness,surprise", "Identity", "10,-30,20,A Person_12", 12,
             {"yaw": -30, "pitch": 10, "roll": 20}),
            ("Neutral,Anger,Happy,Sad,Surprise", "Identity_1",
             "0.5235987756,0.7853981634,-0.2617993878,5", 0,
             {"yaw": 45, "pitch": -30, "roll": -15}),
        ):
            text = (f"frame,FaceRectX,FaceScore,AU12,gaze_yaw,{names},{','.join(landmarks)},Pitch,"
                    f"Yaw,Roll,{identity}\n50,1,0.5,1.25,9,0.1,0.2,0.3,0.04,0.05,"
                    f"{','.join(places)},{row}\n75,,,,,,,,,,{',' * 23},,,,\n")
            mirrored = {**posture, "yaw": -posture["yaw"], "roll": -posture["roll"]}
            for options, expected in (([], posture), (["--mirrored"], mirrored)):
                event, lost = self.imported("pyfeat", text, "--fps", "25", *options)
                self.assertEqual(rounded(event), {
                    "time": START + 2 * 10**9, "event": "observation", "person": person,
                    "faceDetected": {"value": True}, "headPosture": expected,
                    "smile": {"value": 1, "confidence": 0.5},
                    "expressions": emotions(0.5, 0.1, 0.2, 0.3, 0.04, 0.05)})
                self.assertEqual(lost, {"time": START + 3 * 10**9, "event": "not_seen",
                                        "person": person})
                x = points(event).pop(0)[0]  # its shortest digits, read as a double, round to another float
                self.assertEqual(struct.pack("f", x), struct.pack("f", float(places[0])))
                self.assertEqual([points(event)[k] for k in range(1, 12)],
                                 [(2 * k, 2 * k + 1) for k in range(1, 12)])

    def test_errors_and_what_comes_before_them(self):
        openface, pyfeat = ("openface",), ("pyfeat", "--fps", "25")
        face_ids = OPENFACE + ",face_id\n1,0,1,1,4\n"
        for (kind, *options), text, status, message, lines in (
            (openface, OPENFACE + "\n", 1, "-: gives no observation: it has no rows", 1),
            (openface, OPENFACE + "\n1,0,1,NA\n2,1", 1,
             'rows has a face: "success" is not 1\n-:3: has', 1),
            (openface, OPENFACE.replace("success", "Success,SUCCESS"), 1, "-:1: lacks the col", 0),
            (openface, OPENFACE + "\n1,0,1,1\n2,1,1,1\n3,2,1\n\n", 0, "-:4: has 3 cells", 3),
            (openface, OPENFACE + "\n1,0,1,1\n2,1,1\n3,2,1,1\n", 1, "-:3: has 3 cells", 2),
            (openface, OPENFACE + "\n1,0,1,1\n2,1,1,1,1\n", 1, "-:3: has 5 cells", 2),
            (openface, OPENFACE + "\n1,0,1,1\n2,1,1,x\n", 1, '-:3: column "success": "x"', 2),
            (openface, OPENFACE + "\n1,0,1,1\n2,,1,1\n", 1, '-:3: column "timestamp": must', 2),
            (openface, OPENFACE + "\n1,0,1e39,1\n", 1, '-:2: column "confidence": 1e39', 1),
            (openface, OPENFACE + '\n1,0,"1"1,1\n', 1, "-:2: text after the closing quote", 1),
            (openface, OPENFACE + "\n1,5,1,1\n2,4,1,1\n", 1, '-:3: column "timestamp": the ti', 2),
            (openface, OPENFACE + "\n1,0,1,1\n2,0,1,1\n", 1, '-:3: column "timestamp": every', 2),
            (("openface", "--fps", "9"), OPENFACE + "\n1,0,1,1\n2,0,1,1\n3,1,1,1\n", 1,
             '-:4: column "timestamp": is not 0', 3),
            (openface, OPENFACE + "\n1,5e9,1,1\n", 1, '-:2: column "timestamp": 5e+09 s is', 1),
            (openface, face_ids + "1,0,1,1,4\n", 1, '-:3: column "face_id": a second', 2),
            (openface, face_ids + "2,1,1,1,2147483648\n", 1, '-:3: column "face_id": 2147', 2),
            # Person 4 may have come after the bad row, so is not said to be not seen.
            (openface, face_ids + "2,1,1,1,3\n2,1,?,1,5\n", 1, '-:4: column "confidence": "?"', 3),
            (openface, OPENFACE + ",success", 1, '-:1: column "success": occurs twice', 0),
            (openface, "frame,confidence,success", 1, '-:1: lacks the column "timestamp"', 0),
            (openface, "", 1, "-: has no line with the names", 0),
            (pyfeat, PYFEAT, 1, "-:1: must have either", 0),
            (pyfeat, FIRST + "\n1,1,1,2,,a1\n1,1,1,2,,b1", 1, "with identities", 2),
            (pyfeat, FIRST + "\n1,1,1,2,,99999999999", 1, '-:2: column "Identity": 999', 1),
            (("pyfeat",), FIRST, 2, "--fps is required", 0),
            (("pyfeat", "--fps", "nan"), FIRST, 2, '--fps: "nan" is not', 0),
            (("openface", "--gap", "-1"), OPENFACE, 2, '--gap: "-1" is no', 0),
            (("openface", "--start", "2023-02-29T00:00:00Z"), OPENFACE, 2, "--start: 2023", 0),
            # In nanoseconds modulo 2^64, it would be in 2026.
            (("openface", "--start", "2610-07-21T00:00:00Z"), OPENFACE, 2, "--start: 2610", 0),
        ):
            with self.subTest(text=text, options=options):
                folder = new_folder(self.addCleanup)
                result = run(kind, text, *options)
                self.assertEqual(result.returncode, status)
                self.assertIn(message, result.stderr.decode())
                self.assertEqual(result.stdout.count(b"\n"), lines)
                file = folder / "scene.jsonl"
                self.assertEqual(run(kind, text, *options, "-o", file).returncode, status)
                self.assertEqual(os.listdir(folder), [] if status else ["scene.jsonl"])
                self.assertTrue(status or file.read_bytes() == result.stdout)

    def test_what_it_says(self):
        rows = "\n1,0,0.5,1,1.5,0.1,NA,0.3,4\n2,1,0.5,0,,,,,4\n3,2.5,0.5,1,,0.1,0.2,0.3,5\n4,2"
        head = OPENFACE + ",AU12_r,pose_Rx,pose_Ry,pose_Rz,face_id"
        points = [f"{axis}_{point}" for point in USED for axis in "xy"]
        said = run("openface", head + rows).stderr.decode().splitlines()
        self.assertEqual(said, [
            "3 rows, 3 frames, 2 people, 2 observations, 2.500 s",
            '1 row without a face: "success" is not 1',
            "-:5: has 2 cells instead of 9: the last row is cut off and left out",
            "no distance: columns pose_Tx, pose_Ty, pose_Tz are missing",
            "no headPosture in 1 of 2 observations: cells are empty or not usable",
            "no gaze: columns gaze_angle_x, gaze_angle_y are missing",
            "no smile in 1 of 2 observations: cells are empty or not usable",
            "no expressions: columns AU01_r, AU02_r, AU04_r, AU05_r, AU06_r, AU07_r, AU15_r, "
            "AU23_r, AU26_r are missing",
            f"zeros in facialPoints: columns {', '.join(points[:10])} and 14 more are missing"])
        said = run("pyfeat", f"{FIRST},{','.join(points[1:])}\n1,1,1,0,,{',1' * 23}\n",
                   "--fps", "25").stderr.decode().splitlines()
        self.assertEqual(said[0], "1 row, 1 frame, 1 person, 1 observation, 0.000 s")
        self.assertIn("no smile: column AU12 is missing", said)
        self.assertEqual(said[-1], "zeros in facialPoints: column x_36 is missing")

    def test_doubtful_times(self):
        year = 31_557_600  # 365.25 days
        for options, times, expected in (
            ([], [0, 33, 67], ["no two frames are less than 33 s apart: are the timestamps "
                               "milliseconds, where seconds belong?"]),
            ([], [0, 1, 3 * year + 1, 9 * year], ["-:4: the time jumps by 3.0 years"]),
            ([], [54 * year, 54 * year + 1], ["-:2: the first frame is 54.0 years from the start; "
                                              "for timestamps since 1970, say --start 0"]),
            (["--start", "0"], [54 * year, 54 * year + 1], []),
            (["--start", "1700000000"], [0, 1], ["--start is 1.7 s after 1970: is it in seconds, "
                                                 "where nanoseconds belong?"]),
            (["--start", "1700000000000000000"], [0, 3, 6], []),
            (["--fps", "0.25"], [0, 0], ["no two frames are less than 4 s apart: is --fps right?"]),
        ):
            text = "\n".join([OPENFACE] + [f"{n},{time},1,1" for n, time in enumerate(times, 1)])
            with self.subTest(times=times, options=options):
                said = run("openface", text, *options).stderr.decode().splitlines()
                fields = [index for index, line in enumerate(said) if "facialPoints" in line]
                self.assertEqual(said[fields[0] + 1:], expected)

    def test_spellings_of_a_file(self):
        names = "frame, timestamp ,confidence,success,AU12_r,Y_39,x_36,y_36,face_id"
        rows = ["1,0.25,0.5,1,1.5,9,7.5,3,4", "2,0.5,0.5,1,,9,7.5,3,4", "", "3,1,1,1,0.5,9,7,3,4",
                "4"]  # cut off, and reported with its line
        plain = "\n".join([names, *rows])
        expected = run("openface", plain)
        self.assertEqual([(points(event)[0], points(event)[1]) for event in events(expected)],
                         [((7.5, 3), (0, 0)), ((7.5, 3), (0, 0)), ((7, 3), (0, 0))])
        with_commas = "\n".join([names.replace(",", ";")] +
                                [row.replace(",", ";").replace(".", ",") for row in rows])
        for spelled in (
            with_commas, with_commas.replace(";", "\t"), plain.replace(",", ";"),
            plain.replace(",", "\t").replace("\t9", '\t"9"'),
            plain.replace("\n", "\r"), plain.replace("\n", "\r\n"),
            "\ufeff" + plain, plain.replace(",,", ",NA,"), plain.replace(",,", ",NaN,"),
            plain.replace("success", "Success").replace("AU12_r", "au12_R"),
            plain.replace("Y_39", "Y_39,SUCCESS").replace(",9,", ",9,0,"),
        ):
            with self.subTest(spelled=spelled):
                result = run("openface", spelled)
                self.assertEqual(result.stdout, expected.stdout)
                self.assertEqual(result.stderr.replace(b"of 10", b"of 9"), expected.stderr)

        def replayed(recording):
            return tool.run("replay", "-", "--timeline", "-", input=recording, text=False)

        timelines = [replayed(mark + expected.stdout).stdout for mark in (b"", b"\xef\xbb\xbf")]
        self.assertEqual(timelines[1].count(b"\n"), 4)
        self.assertEqual(timelines[0], timelines[1])
        for encoding in ("utf-16", "utf-16-le", "utf-16-be"):
            for result in (run("openface", plain.encode(encoding)),
                           replayed(expected.stdout.decode().encode(encoding))):
                self.assertEqual((result.returncode, result.stderr),
                                 (1, b"-: is UTF-16; it must be UTF-8\n"))

    def test_a_pipe_is_followed_and_may_be_closed(self):
        with subprocess.Popen([TOOL, "import", "openface", "-"], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as importing:
            importing.stdin.write(OPENFACE.encode() + b"\n1,0,1,1\n2,1,1,1\n")
            importing.stdin.flush()
            self.assertIn(b"header", importing.stdout.readline())
            self.assertIn(b"observation", importing.stdout.readline())
            importing.stdout.close()
            importing.stdin.write(b"3,2,1,1\n4,3,1,1\n")
            importing.stdin.flush()
            self.assertEqual(importing.stderr.read(), b"")
            importing.stdin.close()
