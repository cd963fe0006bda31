#!/usr/bin/env python3
"""Replays an archive of recordings, on this machine or on many, into one table.

The table has a row for each recording and person; a recording in which nobody has a cycle has one
row. A recording that fails is named and left out. What is done is kept beside the table, in
FILE.part, until every recording is in the table: after an interruption or a failure, the same command
goes on where it stopped.
"""

from __future__ import annotations

import argparse
import hashlib
import json
import os
import sys
import time

import distributed

import zorvel


def summarize(path: str, name: str) -> str:
    """What a worker does: the recording's lines of the table."""
    return zorvel.summary_csv(path, name)


def printable(text: str) -> str:
    """The text, with what is not UTF-8 in it as escapes."""
    return text.encode(errors="backslashreplace").decode()


def identify(recording: str) -> str:
    """A text that is another one when the recording is another one, or has changed."""
    path = os.path.abspath(recording)
    try:
        status = os.stat(path)
    except OSError:
        return json.dumps([recording, path])
    return json.dumps([recording, path, status.st_size, status.st_mtime_ns])


class Done:
    """The recordings that are done, with their lines of the table, kept in a file."""

    def __init__(self, path: str) -> None:
        self._path = path
        self.lines: dict[str, str] = {}
        whole = 0  # what an interruption cut off is overwritten
        if os.path.exists(path):
            with open(path, "rb") as file:
                for line in file:
                    try:
                        self.lines.update([json.loads(line)])
                    except (TypeError, ValueError):
                        break
                    whole += len(line)
        self._file = open(path, "ab")
        self._file.truncate(whole)

    def add(self, identity: str, lines: str) -> None:
        self.lines[identity] = lines
        self._file.write(json.dumps([identity, lines]).encode() + b"\n")
        self._file.flush()
        os.fsync(self._file.fileno())

    def remove(self) -> None:
        self._file.close()
        os.unlink(self._path)


class Progress:
    """One line on a terminal: how many of the recordings are done, and how long the rest takes."""

    def __init__(self, done: int, count: int) -> None:
        self._begin = time.monotonic()
        self._before = self._done = done
        self._count = count

    def step(self) -> None:
        self._done += 1
        if not sys.stderr.isatty():
            return
        rate = (self._done - self._before) / (time.monotonic() - self._begin)
        width = 30 * self._done // self._count
        end = "\n" if self._done == self._count else ""
        print(f"\r[{'#' * width:<30}] {self._done} of {self._count}, {rate:.1f} a second, "
              f"{(self._count - self._done) / rate:.0f} s left ", end=end, file=sys.stderr)


def write_table(path: str, recordings: dict[str, str], done: Done) -> None:
    """In the order of the recordings; nobody sees half of it."""
    with open(path + ".new", "w", newline="", encoding="utf-8", errors="surrogateescape") as table:
        table.write(zorvel.SUMMARY_HEADER)
        table.writelines(done.lines[identity] for identity in recordings if identity in done.lines)
    os.replace(path + ".new", path)


def replay_archive(client: distributed.Client, recordings: dict[str, str], done: Done) -> list[str]:
    """Replays what is not done yet; returns the recordings that failed."""
    failed = []
    waiting = [identity for identity in recordings if identity not in done.lines]
    progress = Progress(len(recordings) - len(waiting), len(recordings))
    # Dask takes tasks of one key for one task, and its keys must be valid texts.
    futures = {client.submit(summarize, os.path.abspath(recordings[identity]), recordings[identity],
                             key="replay " + hashlib.sha256(identity.encode()).hexdigest()): identity
               for identity in waiting}
    for future in distributed.as_completed(list(futures)):
        identity = futures.pop(future)
        name = recordings[identity]
        progress.step()
        try:
            done.add(identity, future.result())
        except Exception as error:
            print(f"failed: {printable(name)}: {printable(str(error))}", file=sys.stderr)
            failed.append(name)
        future.release()
    return failed


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("recordings", nargs="+", metavar="RECORDING")
    parser.add_argument("--output", default="persons.csv", metavar="FILE", help="the table to write")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="a Dask scheduler, such as tcp://10.0.0.1:8786, whose workers have the "
                        "module zorvel and see the recordings by the same paths; without it, "
                        "workers are started on this machine")
    parser.add_argument("--workers", type=int, default=os.cpu_count(), metavar="N",
                        help="how many to start on this machine")
    options = parser.parse_args()

    if any(os.path.exists(name) and os.path.exists(options.output) and
           os.path.samefile(name, options.output) for name in options.recordings):
        print(f"{options.output}: is an input, which would be overwritten", file=sys.stderr)
        return 1
    recordings = {identify(name): name for name in options.recordings}
    done = Done(options.output + ".part")
    where = ({"address": options.scheduler} if options.scheduler else
             {"n_workers": options.workers, "threads_per_worker": 1, "dashboard_address": None})
    try:
        with distributed.Client(**where) as client:
            failed = replay_archive(client, recordings, done)
    except KeyboardInterrupt:
        print(f"interrupted: {len(done.lines)} of {len(recordings)} are done; the same command goes "
              "on from there", file=sys.stderr)
        return 130
    if any(identity in done.lines for identity in recordings):  # else there is nothing to report
        write_table(options.output, recordings, done)
    if failed:
        print(f"{len(failed)} of {len(recordings)} recordings failed; the same command tries them "
              "again", file=sys.stderr)
        return 1
    done.remove()
    return 0


if __name__ == "__main__":
    sys.exit(main())
