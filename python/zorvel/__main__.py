"""python3 -m zorvel plot: figures for papers."""

from __future__ import annotations

import argparse
import os
import sys
import tempfile
import warnings
from decimal import Decimal

import matplotlib
import matplotlib.figure

from . import DataError, Results, _zorvel, replay
from .figure import QUANTITIES, draw


def _seconds(text: str) -> float:
    """Seconds, or minutes and seconds, or hours, minutes and seconds."""
    seconds = Decimal(0)  # a sum of floats would miss the cycle at that very time
    try:
        for part in text.split(":"):
            seconds = 60 * seconds + Decimal(part)
        if not seconds.is_finite():
            raise ValueError
    except (ValueError, ArithmeticError):
        raise argparse.ArgumentTypeError(f"{text!r} is neither seconds nor like 1:23.5") from None
    return float(seconds)


def _save(figure: matplotlib.figure.Figure, output: str) -> None:
    """Nobody sees half of the file."""
    ending = os.path.splitext(output)[1]
    if ending not in (".svg", ".pdf", ".png"):
        raise ValueError(f"{output}: a figure is .svg, .pdf or .png")
    with tempfile.TemporaryDirectory(dir=os.path.dirname(output) or ".") as folder:
        whole = os.path.join(folder, "figure" + ending)
        figure.savefig(whole, dpi=300)
        os.replace(whole, output)


def main() -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m zorvel", description="Figures of recordings, drawn by matplotlib.")
    commands = parser.add_subparsers(dest="command", required=True)
    plot = commands.add_parser(
        "plot", help="draw recordings, over each other", epilog="example: python3 -m zorvel plot meeting.jsonl "
        "--from 1:00 --to 2:00 --quantity valence --width 86 --grey -o meeting.pdf")
    plot.add_argument("recordings", nargs="+", metavar="RECORDING")
    plot.add_argument("-o", "--output", required=True, metavar="FILE",
                      help="the figure; its ending tells the kind: .svg, .pdf or .png")
    plot.add_argument("--person", type=int, action="append", metavar="N",
                      help="this person alone, or several; all without it")
    plot.add_argument("--from", type=_seconds, dest="begin", metavar="TIME",
                      help="since second 0: seconds, or like 1:23.5")
    plot.add_argument("--to", type=_seconds, dest="end", metavar="TIME")
    plot.add_argument("--quantity", action="append", choices=list(QUANTITIES),
                      help="this alone, or several; all without it")
    plot.add_argument("--width", type=float, default=178.0, metavar="MM",
                      help="of the figure, in millimetres (default: %(default)s)")
    plot.add_argument("--grey", action="store_true", help="greys and line styles for colours")
    options = parser.parse_args()

    warnings.showwarning = lambda message, *_: print(message, file=sys.stderr)
    try:
        _zorvel.require_distinct(options.recordings, options.output)
    except DataError as error:
        print(error, file=sys.stderr)
        return 1
    status = 0
    recordings: dict[str, Results] = {}
    for path in options.recordings:
        try:
            recordings[path] = replay(path)
        except DataError as error:
            print(error, file=sys.stderr)
            status = 1
            if error.results.timeline.rows > 0:
                recordings[path] = error.results
        except OSError as error:
            print(f"{error.filename}: {error.strerror}", file=sys.stderr)
            status = 1
    if not recordings:
        return 1
    matplotlib.rcParams["pdf.fonttype"] = 42  # whole fonts, which publishers ask for
    try:
        figure = draw(recordings, persons=options.person, begin=options.begin, end=options.end,
                      quantities=options.quantity, width=options.width, grey=options.grey)
        _save(figure, options.output)
    except (OSError, ValueError) as error:
        print(error, file=sys.stderr)
        return 1
    return status


if __name__ == "__main__":
    sys.exit(main())
