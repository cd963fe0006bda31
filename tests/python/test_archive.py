"""An archive, replayed by workers of which one dies, is in the table once."""

from __future__ import annotations

import contextlib
import csv
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
from collections.abc import Iterator
from typing import Any

import pytest

import zorvel

pytest.importorskip("distributed")
if "asan" in os.environ.get("LD_PRELOAD", ""):
    pytest.skip("Dask's workers do not start under the address sanitizer", allow_module_level=True)
TOOL = os.environ["ZORVEL"]
ARCHIVE = pathlib.Path(__file__).parents[2] / "examples/archive/replay_archive.py"
COUNT = 40


@pytest.fixture
def recordings(tmp_path: pathlib.Path) -> list[str]:
    names = [f"{number}.jsonl" for number in range(COUNT)]
    for seed in range(3):
        subprocess.run([TOOL, "simulate", "--seconds", "60", "--seed", str(seed), "-o",
                        tmp_path / names[seed]], check=True, timeout=60)
    for number in range(3, COUNT):
        os.link(tmp_path / names[number % 3], tmp_path / names[number])
    return names


@contextlib.contextmanager
def running(arguments: list[str | pathlib.Path],
            folder: pathlib.Path) -> Iterator[subprocess.Popen[str]]:
    with subprocess.Popen([sys.executable, *arguments], text=True, cwd=folder,
                          stderr=subprocess.PIPE) as process:
        try:
            yield process
        finally:
            process.kill()


def replay(folder: pathlib.Path, *arguments: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, ARCHIVE, *arguments], cwd=folder, text=True, timeout=120,
                          stderr=subprocess.PIPE)


def rows(table: pathlib.Path) -> list[dict[str, Any]]:
    return list(csv.DictReader(table.open(newline="")))


def test_every_recording_is_in_the_table_once(tmp_path: pathlib.Path, recordings: list[str]) -> None:
    (tmp_path / "nobody.jsonl").write_text('{"time":0,"event":"movement"}\n')
    (tmp_path / "bad.jsonl").write_text("{")
    every = [*recordings, "nobody.jsonl"]
    with running(["-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port", "0",
                  "--no-dashboard"], tmp_path) as scheduler:
        assert scheduler.stderr is not None
        address = next(found[0] for line in scheduler.stderr
                       if (found := re.search(r"tcp://\S+", line)))
        worker: list[str | pathlib.Path] = [
            "-m", "distributed.cli.dask_worker", address, "--nthreads", "1", "--no-dashboard",
            "--no-nanny", "--local-directory", tmp_path]
        with running(worker, tmp_path) as one, running(worker, tmp_path):
            with running([ARCHIVE, *every, "bad.jsonl", every[0], "--scheduler", address],
                         tmp_path) as archive:
                part = tmp_path / "persons.csv.part"
                end = time.monotonic() + 60
                while not part.exists() or part.read_bytes().count(b"\n") < COUNT // 6:
                    assert time.monotonic() < end and archive.poll() is None
                    time.sleep(0.01)
                one.send_signal(signal.SIGKILL)
                _, errors = archive.communicate(timeout=90)
    assert archive.returncode == 1
    assert re.search(r"^failed: bad\.jsonl: .*bad\.jsonl:1: not JSON", errors, re.M)
    assert f"1 of {COUNT + 2} recordings failed" in errors

    table = rows(tmp_path / "persons.csv")
    assert list(dict.fromkeys(row["recording"] for row in table)) == every
    expected = {name: zorvel.summarize(tmp_path / name) for name in recordings[:3]}
    for number, name in enumerate(recordings):
        of = [row for row in table if row["recording"] == name]
        assert [float(row["valence_mean"]) for row in of] == [
            row["valence_mean"] for row in expected[recordings[number % 3]]]
    assert table[-1]["recording"] == "nobody.jsonl" and not any(list(table[-1].values())[1:])

    # It goes on with what failed, and with what an interruption cut off, on workers of its own.
    (tmp_path / "bad.jsonl").write_text('{"time":0,"event":"not_seen","person":1}\n')
    with (tmp_path / "persons.csv.part").open("a") as file:
        file.write('["cut')
    result = replay(tmp_path, *every, "bad.jsonl", "--workers", "1")
    assert (result.returncode, result.stderr) == (0, "")
    assert [row for row in rows(tmp_path / "persons.csv") if row["recording"] != "bad.jsonl"] == table
    assert rows(tmp_path / "persons.csv")[-1]["person"] == "1"
    assert not (tmp_path / "persons.csv.part").exists()

    # Where nothing but failures is left, the table stays as it is.
    before = (tmp_path / "persons.csv").read_bytes()
    (tmp_path / "bad.jsonl").write_text("{")
    assert replay(tmp_path, "bad.jsonl", "--workers", "1").returncode == 1
    assert (tmp_path / "persons.csv").read_bytes() == before
    assert "bad.jsonl: is an input" in replay(
        tmp_path, "bad.jsonl", "--output", "bad.jsonl").stderr
