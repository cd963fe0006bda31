"""Imports bags that are damaged on purpose: fuzz/bag_fuzzer.py [SECONDS [SEED]]

An import may refuse a bag, or parts of it, by a DataError. It must neither fail otherwise, nor take
more memory or time, nor write a recording that cannot be read. The folder of a bag that makes it do
so is named and kept.
"""

from __future__ import annotations

import pathlib
import random
import resource
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


def _damaged(chance: random.Random, data: bytes, most: int) -> bytes:
    changed = bytearray(data)
    for _ in range(chance.randint(1, most)):
        at, size = chance.randrange(len(changed) + 1), chance.choice((1, 2, 4, 8))
        extreme = (chance.choice(_EXTREMES) % (1 << 8 * size)).to_bytes(size, "little")
        put = chance.choice((extreme, extreme[::-1], chance.randbytes(size),
                             changed[at // 2:at // 2 + 50], b""))
        changed[at:at + chance.choice((0, len(put), 1, 64, 1 << 20))] = put
    return bytes(changed)


def fuzz(chance: random.Random, folder: pathlib.Path) -> None:
    """Imports a bag with damage in its messages, in its layouts, or in the file."""
    file, output = folder / "bag", folder / "bag.jsonl"
    for old in (file, output):
        old.unlink(missing_ok=True)
    where = chance.choice(("messages", "layouts", "file"))
    messages = [message._replace(data=_damaged(chance, message.data, 3))
                if where == "messages" and chance.random() < 0.3 else message
                for message in maker.scene(1.0, 2, 10.0, every=2)]
    definitions = {kind: _damaged(chance, text.encode(), 3).decode("utf-8", "replace")
                   if where == "layouts" else text for kind, text in maker.DEFINITIONS.items()}
    some = chance.choice((None, definitions))
    if chance.random() < 0.3:
        maker.write_sqlite(file, messages, some)
    else:
        maker.write_mcap(file, messages, some, chance.choice(("", "zstd", "lz4")), chance.choice((10, 1000)),
                         checksums=chance.random() < 0.3)
    if where == "file":
        file.write_bytes(_damaged(chance, file.read_bytes(), 8))
    try:
        zorvel.import_bag(file, output, robot_frame="camera_link" if chance.random() < 0.8 else None)
    except zorvel.DataError as error:
        assert str(error)
    if output.exists():
        assert sum(1 for _ in zorvel.read_recording(output)) > 0


def main() -> None:
    seconds, seed = (float(given) for given in [*sys.argv[1:], *("60", "1")[len(sys.argv) - 1:]])
    chance, folder = random.Random(seed), pathlib.Path(tempfile.mkdtemp())
    print(f"in {folder}", flush=True)
    resource.setrlimit(resource.RLIMIT_AS, (_MEMORY, _MEMORY))
    begin, count = time.monotonic(), 0
    while time.monotonic() < begin + seconds:
        signal.alarm(_SECONDS)  # the end, unless it is set again
        fuzz(chance, folder)
        count += 1
    print(f"{count} bags, most memory {resource.getrusage(resource.RUSAGE_SELF).ru_maxrss >> 10} MiB")


if __name__ == "__main__":
    main()
