"""Imports bags that are damaged on purpose: fuzz/bag_fuzzer.py [SECONDS [SEED]]

An import may refuse a bag, or parts of it, by a DataError. It must neither fail otherwise, nor take
more memory, nor write a recording that cannot be read. A bag that makes it do so becomes bag_finding.
"""

from __future__ import annotations

import pathlib
import random
import resource
import shutil
import signal
import sys
import tempfile
import time

import zorvel

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "bench"))
import make_bag as maker  # noqa: E402

_MEMORY = 1 << 30
_SECONDS = 60  # that one import may take
_EXTREMES = (0, 0x7F, 0xFF, 0x7FFFFFFF, 0xFFFFFFFF, 1 << 62, 1 << 63, (1 << 64) - 1, 0x7FF8 << 48)
_OF_FACES = {"expression": "Expression", "facs": "FacialActionUnits", "landmarks": "FacialLandmarks",
             "softbiometrics": "SoftBiometrics", "gaze": "Gaze"}


def _damaged(chance: random.Random, data: bytes, most: int) -> bytes:
    changed = bytearray(data)
    for _ in range(chance.randint(1, most)):
        at, size = chance.randrange(len(changed) + 1), chance.choice((1, 2, 4, 8))
        extreme = (chance.choice(_EXTREMES) % (1 << 8 * size)).to_bytes(size, "little")
        put = chance.choice((extreme, extreme[::-1], chance.randbytes(size), changed[at // 2:at // 2 + 50], b""))
        changed[at:at + chance.choice((0, len(put), 1, 64, 1 << 20))] = put
    return bytes(changed)


def _make(chance: random.Random, file: pathlib.Path) -> None:
    """A bag with damage in its messages, in its layouts, or in the file."""
    where = chance.choice(("messages", "layouts", "file"))
    messages = list(maker.scene(1.0, 2, 10.0))
    messages += [message._replace(topic=f"/humans/faces/f0000/{topic}", kind=f"hri_msgs/msg/{kind}",
                                  data=maker.Cdr().header(message.time).data + chance.randbytes(900))
                 for message in messages[:20] for topic, kind in chance.choices([*_OF_FACES.items()])]
    definitions = chance.choice((None, dict(maker.DEFINITIONS)))
    if where == "messages":
        messages = [message._replace(data=_damaged(chance, message.data, 3))
                    if chance.random() < 0.3 else message for message in messages]
    elif where == "layouts" and definitions:
        definitions = {kind: _damaged(chance, text.encode(), 3).decode("utf-8", "replace")
                       for kind, text in definitions.items()}
    if chance.random() < 0.3:
        maker.write_sqlite(file, messages, definitions)
    else:
        maker.write_mcap(file, messages, definitions, chance.choice(("", "zstd", "lz4")),
                         chance.choice((10, 1000)), checksums=chance.random() < 0.3)
    if where == "file":
        file.write_bytes(_damaged(chance, file.read_bytes(), 8))


def fuzz(chance: random.Random, folder: pathlib.Path) -> None:
    """Damages one bag, and imports it."""
    file, output = folder / "bag", folder / "bag.jsonl"
    for old in (file, output):
        old.unlink(missing_ok=True)
    _make(chance, file)
    try:
        zorvel.import_bag(file, output, robot_frame="camera_link" if chance.random() < 0.8 else None)
    except zorvel.DataError as error:
        assert str(error)
    if output.exists():
        assert sum(1 for _ in zorvel.read_recording(output)) > 0


def _stop(*_: object) -> None:
    raise TimeoutError(f"an import takes longer than {_SECONDS} s")


def main() -> None:
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 60.0
    chance = random.Random(int(sys.argv[2]) if len(sys.argv) > 2 else 1)
    resource.setrlimit(resource.RLIMIT_AS, (_MEMORY, _MEMORY))
    signal.signal(signal.SIGALRM, _stop)
    begin, count = time.monotonic(), 0
    with tempfile.TemporaryDirectory() as folder:
        try:
            while time.monotonic() < begin + seconds:
                signal.alarm(_SECONDS)
                fuzz(chance, pathlib.Path(folder))
                count += 1
        except BaseException:
            shutil.copy(pathlib.Path(folder) / "bag", "bag_finding")
            raise
    print(f"{count} bags, most memory {resource.getrusage(resource.RUSAGE_SELF).ru_maxrss >> 10} MiB")


if __name__ == "__main__":
    main()
