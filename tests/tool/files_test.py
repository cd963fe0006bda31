"""What the tool does to files, standard streams and the terminal."""

import ctypes
import json
import os
import platform
import pty
import resource
import select
import signal
import struct
import subprocess

from tool import TOOL, FolderTest, rows

# A user who may read everything, wherever the tool was built, but has no special right to write.
NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
          "--inh-caps=-all,+dac_read_search", "--ambient-caps=-all,+dac_read_search"]


def fail_syncing():
    """From now on the system call fsync fails, as on a disk that breaks."""
    call = {"x86_64": 74, "aarch64": 82}[platform.machine()]
    rules = b"".join(struct.pack("HBBI", *rule) for rule in (
        (0x20, 0, 0, 0), (0x15, 0, 1, call), (0x06, 0, 0, 0x50000 | 5), (0x06, 0, 0, 0x7FFF0000)))
    buffer = ctypes.create_string_buffer(rules)
    program = struct.pack("HxxxxxxP", 4, ctypes.addressof(buffer))
    libc = ctypes.CDLL(None)
    libc.prctl(38, 1, 0, 0, 0)
    assert libc.prctl(22, 2, ctypes.c_char_p(program), 0, 0) == 0


class FilesTest(FolderTest):
    def setUp(self):
        super().setUp()
        self.folder.chmod(0o777)
        self.recording = self.folder / "scene.jsonl"
        self.run_tool("simulate", "--seconds", 3, "-o", "scene.jsonl", check=True)
        self.lines = self.recording.read_bytes()

    def run_tool(self, *arguments, before=(), **settings):
        settings = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "cwd": self.folder,
                    **settings}
        return subprocess.run([*before, TOOL, *map(str, arguments)], **settings)

    def test_a_message_that_cannot_be_written_changes_no_status(self):
        for arguments, status in ((["replay", "missing"], 1), (["replays"], 2)):
            with open("/dev/full", "w") as full:
                self.assertEqual(subprocess.run([TOOL, *arguments], stderr=full).returncode, status)

    def test_an_output_is_never_an_input(self):
        for folder in ("of-one", "of-several/scene"):
            (self.folder / folder).mkdir(parents=True)
        os.link(self.recording, self.folder / "hard")
        os.symlink(self.recording, self.folder / "soft")
        os.link(self.recording, self.folder / "of-one" / "timeline.csv")
        os.link(self.recording, self.folder / "of-several" / "scene" / "forces.csv")
        for arguments in (["report", "scene.jsonl", "-o", "hard"],
                          ["report", "-", "-o", "soft"],
                          ["replay", "-", "--timeline", "./scene.jsonl"],
                          ["replay", "scene.jsonl", "-o", "of-one"],
                          ["replay", "/dev/null", "scene.jsonl", "-o", "of-several"],
                          ["import", "openface", "soft", "-o", "hard"],
                          ["cut", "scene.jsonl", "-o", "soft"],
                          ["annotate", "/dev/null", "scene.jsonl", "-o", "hard"],
                          ["info", "scene.jsonl"], ["explain", "soft"], ["live"]):
            with self.subTest(arguments=arguments), open(self.recording) as lines, \
                    open(self.recording, "ab") as end:
                result = self.run_tool(*arguments, stdin=lines, stdout=end)
                self.assertEqual(result.returncode, 1)
                self.assertIn(b"is an input, which would be overwritten", result.stderr)
                self.assertEqual(self.recording.read_bytes(), self.lines)
        self.assertFalse((self.folder / "of-one" / "scopes.csv").exists())

    def test_what_is_not_a_plain_file_is_written_through(self):
        fifo, target, link = (self.folder / name for name in ("fifo", "target", "link"))
        os.mkfifo(fifo)
        with subprocess.Popen(["cat", fifo], stdout=subprocess.PIPE) as reader:
            self.run_tool("simulate", "--seconds", 3, "-o", "fifo", check=True)
            self.assertEqual(reader.stdout.read(), self.lines)
        self.assertTrue(fifo.is_fifo())
        target.write_text("of yesterday")
        link.symlink_to("target")
        self.run_tool("simulate", "--seconds", 3, "-o", "link", check=True)
        self.assertTrue(link.is_symlink())
        self.assertEqual(target.read_bytes(), self.lines)
        for name in ("/dev/stdout", "/dev/fd/1", "-"):
            with open(target, "wb") as file:
                file.write(b"before\n")
                file.flush()
                self.run_tool("simulate", "--seconds", 3, "-o", name, stdout=file, check=True)
            self.assertEqual(target.read_bytes(), b"before\n" + self.lines, name)

    def test_permissions_stay(self):
        present, protected = self.folder / "present", self.folder / "protected"
        present.write_text("")
        present.chmod(0o604)
        protected.write_text("precious")
        protected.chmod(0o444)
        is_root = os.geteuid() == 0
        if is_root:
            os.chown(present, 65534, 65533)
            os.chown(protected, 65534, 65534)
        for name in ("present", "new"):
            self.run_tool("simulate", "--seconds", 3, "-o", name, check=True,
                          preexec_fn=lambda: os.umask(0o027))
        status = present.stat()
        self.assertEqual(status.st_mode & 0o777, 0o604)
        if is_root:
            self.assertEqual((status.st_uid, status.st_gid), (65534, 65533))
        self.assertEqual((self.folder / "new").stat().st_mode & 0o777, 0o640)
        result = self.run_tool("simulate", "-o", "protected", before=NOBODY if is_root else ())
        self.assertEqual((result.returncode, result.stderr),
                         (1, b"protected: Permission denied\n"))
        self.assertEqual(protected.read_text(), "precious")

    def test_failures_leave_what_was_there(self):
        def small_files():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (1000, 1000))

        scope = {"time": 1, "event": "stop_recording", "person": 1, "scope": "s" * 2000}
        self.recording.write_text(json.dumps(scope))
        output = self.folder / "output"
        output.mkdir()
        (output / "timeline.csv").write_text("earlier")
        # The timeline is finished before the scopes are found to be too long.
        for fault in (small_files, fail_syncing):
            with self.subTest(fault.__name__):
                result = self.run_tool("replay", "scene.jsonl", "-o", "output", preexec_fn=fault)
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, rb"scopes.csv: File too|timeline.csv: Input/output")
                self.assertEqual([file.name for file in output.iterdir()], ["timeline.csv"])
                self.assertEqual((output / "timeline.csv").read_text(), "earlier")
        for arguments in (["simulate"], ["info", "scene.jsonl"], ["--help"]):
            closed = self.run_tool(*arguments, preexec_fn=lambda: os.close(1))
            self.assertEqual((closed.returncode, closed.stderr),
                             (1, b"standard output: Bad file descriptor\n"), arguments)

    def test_a_signal_that_was_ignored_stays_so(self):
        ignore = lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)  # as nohup does
        with subprocess.Popen([TOOL, "live"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              preexec_fn=ignore) as service:
            line = b'{"event":"not_seen","person":1}\n'
            for _ in range(2):
                service.stdin.write(line)
                service.stdin.flush()
                self.assertIn(b'"person":1', service.stdout.readline())
                service.send_signal(signal.SIGHUP)

    def test_names_and_values_as_they_may_be_shown(self):
        odd = self.folder / os.fsdecode(b"\x1b[31m\xff\n.jsonl")
        odd.write_bytes(self.lines + b'{"event":"' + b"\xc3\xa9" * 100 + b'","time":1}\n')
        shown = rb"\x1b[31m\xff\n.jsonl"
        for arguments in (["info", odd.name], ["replay", odd.name, "scene.jsonl", "-o", "output"],
                          ["explain", odd.name], ["report", odd.name], ["nothing\x1b", odd.name]):
            result = self.run_tool(*arguments)
            self.assertNotIn(b"\x1b", result.stdout + result.stderr, arguments)
            if arguments[0][:7] != "nothing":
                self.assertIn(shown + b":", result.stderr)
                self.assertIn(b'"' + b"\xc3\xa9" * 40 + '"…'.encode(), result.stderr)
        told = json.loads(self.run_tool("info", odd.name, "--json").stdout)
        self.assertEqual(told["recording"], shown.decode())
        (self.folder / "report.html").read_text(encoding="utf-8")

    def test_wrong_usage(self):
        digits = "9" * 500
        for arguments, message in (
                (["replya"], 'unknown subcommand "replya" of zorvel; did you mean replay?'),
                (["help", "import", "opnface"], 'unknown subcommand "opnface" of zorvel import; '
                                                "did you mean openface?"),
                (["replay", "--outptu=x"], 'unknown option "--outptu" of zorvel replay; '
                                           "did you mean --output?"),
                (["explain", "a", "b"], 'unexpected argument "b" of zorvel explain'),
                (["frobnicate"], 'unknown subcommand "frobnicate" of zorvel'),
                (["replay"], "RECORDING is required"),
                (["simulate", "--seed", str(2**63)],
                 f'--seed: "{2**63}" is not a whole number from 0 to {2**63 - 1}'),
                (["live", "--clock", digits], f'--clock: "{digits[:80]}"… not in '
                                              "{system,recording}")):
            result = self.run_tool(*arguments)
            self.assertEqual((result.returncode, result.stderr.decode().splitlines()[0]),
                             (2, "zorvel: " + message))
        self.assertEqual(self.run_tool("help", "import", "openface").stdout,
                         self.run_tool("import", "openface", "--help").stdout)

    def test_the_printed_summaries_are_those_of_the_table(self):
        self.run_tool("simulate", "--seconds", 60, "-o", "scene.jsonl", check=True)
        one = self.run_tool("replay", "scene.jsonl").stdout.decode().splitlines()
        many = self.run_tool("replay", "scene.jsonl", "--each", "-o", "each", "--summary",
                             "persons.csv").stdout.decode().splitlines()
        persons = [{name: float(value) for name, value in row.items() if name != "recording"}
                   for row in rows(self.folder / "persons.csv")]
        cycles = sum(row["cycles"] for row in persons)

        def words(count, seconds, value):
            return [f"{count:.0f}", f"{seconds:.3f}", f"{value('valence_mean'):.3f}",
                    f"({value('valence_confidence'):.3f})", f"{value('attention_mean'):.3f}",
                    f"({value('attention_confidence'):.3f})", *(word for mood in (
                        "positive", "neutral", "negative") for word in (f"{100 * value(mood):.1f}", "%"))]

        for row, line in zip(persons, one[1:]):
            self.assertEqual(line.split(), [f"{row['person']:.0f}", *words(
                row["cycles"], row["last"] - row["first"], row.get)])
        scopes = len(rows(self.folder / "scopes.csv"))
        times = [entry["time"] for entry in map(json.loads, self.recording.read_text().splitlines()[1:])]
        total = words(cycles, (times[-1] - times[0]) / 1e9, lambda name: sum(
            row["cycles"] * row[name] for row in persons) / cycles)
        self.assertEqual(many[1].split(), ["scene.jsonl", "3", total[0], str(scopes), *total[1:],
                                           "each/scene"])

    def test_progress_on_a_terminal(self):
        fifo = self.folder / "waiting.jsonl"
        os.mkfifo(fifo)
        kept_open = os.open(fifo, os.O_RDWR)
        for arguments, words in ((["simulate", "--seconds", "1000000000", "-o", "long.jsonl"],
                                  b"of 1000000000 s"),
                                 (["replay", "waiting.jsonl", "waiting.jsonl", "-o", "output"],
                                  b"0 of 2 recordings")):
            terminal, other = pty.openpty()
            tool = subprocess.Popen([TOOL, *arguments], stderr=other, cwd=self.folder)
            os.close(other)
            shown = b""
            while words not in shown and select.select([terminal], [], [], 60)[0]:
                shown += os.read(terminal, 10_000)
            tool.send_signal(signal.SIGINT)
            self.assertEqual(tool.wait(60), -signal.SIGINT)
            os.close(terminal)
            self.assertIn(words, shown)
        os.close(kept_open)
