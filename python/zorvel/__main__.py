"""python3 -m zorvel: figures for papers, and recordings of bags of ROS."""

from __future__ import annotations

import argparse
import os
import sys
import tempfile
import warnings
from decimal import Decimal
from typing import TYPE_CHECKING, Any

from . import BagFacts, DataError, Results, _zorvel, import_bag, replay
from .rep155 import FULL_INTENSITY, Gender
from .tables import QUANTITIES

if TYPE_CHECKING:
    import matplotlib.figure


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


def _plot(options: argparse.Namespace) -> int:
    import matplotlib

    from .figure import draw

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


def _told(facts: BagFacts) -> str:
    """What an import made, what it left out and what looks wrong."""
    people = f"{facts.people} {'person' if facts.people == 1 else 'people'}"
    with_posture = facts.fields.get("head_posture", 0)
    return "\n".join((
        f"{facts.seconds:.3f} s, {people}, {facts.observations} observations, "
        f"{with_posture} with a posture in {facts.robot_frame or 'no frame'}",
        *(f"person {number}: {', '.join(ids)}" for number, ids in facts.ids.items()),
        *(f"{topic.name}: {topic.messages} {'message' if topic.messages == 1 else 'messages'}, "
          f"{topic.rate:.3g} a second" for topic in facts.topics),
        *(["not read: " + ", ".join(facts.unread_topics)] if facts.unread_topics else []),
        *(f"left out: {count} {reason}" for reason, count in facts.left_out.items()),
        *facts.doubts))


def _import_bag(options: argparse.Namespace) -> int:
    settings: dict[str, Any] = {
        name: getattr(options, name) for name in
        ("robot_frame", "optical_frame", "cycle", "hold", "removal", "full_intensity", "gaze")}
    if options.gender_true is not None:
        settings["gender_true"] = Gender[options.gender_true.upper()]
    status = 0
    output = "/dev/stdout" if options.output == "-" else options.output
    try:
        facts = import_bag(options.bag, output, **settings)
    except DataError as error:
        print(error, file=sys.stderr)
        if error.results is None:
            return 1
        facts, status = error.results, 1
    except OSError as error:
        print(f"{error.filename or options.output}: {error.strerror}", file=sys.stderr)
        return 1
    except ValueError as error:
        print(error, file=sys.stderr)
        return 1
    if not options.quiet:
        print(_told(facts), file=sys.stderr)
    return status


def main() -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m zorvel",
        description="Figures of recordings, drawn by matplotlib; recordings of bags of ROS 2.")
    commands = parser.add_subparsers(dest="command", required=True)
    plot = commands.add_parser(
        "plot", help="draw recordings, over each other", epilog="example: python3 -m zorvel plot meeting.jsonl "
        "--from 1:00 --to 2:00 --quantity valence --width 86 --grey -o meeting.pdf")
    plot.add_argument("recordings", nargs="+", metavar="RECORDING")
    plot.add_argument("-o", "--output", required=True, metavar="FILE",
                      help="the figure, a file ending in .svg, .pdf or .png")
    plot.add_argument("--person", type=int, action="append", metavar="N",
                      help="only this person; may be given several times (default: everybody)")
    plot.add_argument("--from", type=_seconds, dest="begin", metavar="TIME",
                      help="since second 0: seconds, or like 1:23.5")
    plot.add_argument("--to", type=_seconds, dest="end", metavar="TIME")
    plot.add_argument("--quantity", action="append", choices=list(QUANTITIES),
                      help="only this; may be given several times (default: all but mood)")
    plot.add_argument("--width", type=float, default=178.0, metavar="MM",
                      help="of the figure, in millimetres (default: %(default)s)")
    plot.add_argument("--grey", action="store_true", help="greys and line styles in place of colours")
    plot.set_defaults(run=_plot)

    bag = commands.add_parser(
        "import-bag", help="turn a bag of ROS 2 into a recording",
        description="Turns the messages about people in a bag of ROS 2 (REP-155, in SQLite or MCAP) into a "
        "recording. Reports on standard error what it made and left out, and what looks wrong.",
        epilog="example: python3 -m zorvel import-bag session/ --robot-frame head_camera_link "
        "-o session.jsonl")
    bag.add_argument("bag", metavar="BAG", help="a folder of rosbag2, or a file .db3 or .mcap")
    bag.add_argument("-o", "--output", default="-", metavar="FILE",
                     help="the recording to write (default: standard output)")
    bag.add_argument("--robot-frame", metavar="FRAME",
                     help="the frame at the robot's eyes, with x forward (default: one of a usual name)")
    bag.add_argument("--optical-frame", metavar="FRAME",
                     help="the same, for a frame that has z forward, like that of a camera's picture")
    for name, seconds, text in (("cycle", 0.1, "from one observation of a person to the next"),
                                ("hold", 1.0, "for which a topic's last message is repeated"),
                                ("removal", 3.0, "after which a person who is not seen is removed")):
        bag.add_argument(f"--{name}", type=float, default=seconds, metavar="SECONDS",
                         help=f"the time {text} (default: %(default)s)")
    bag.add_argument("--full-intensity", type=float, default=FULL_INTENSITY, metavar="VALUE",
                     help="the intensity of an action unit that counts as full (default: %(default)s)")
    bag.add_argument("--gaze", choices=("auto", "always", "never"), default="auto",
                     help="whether frames gaze_<id> are gazes; auto: unless they copy the head's direction")
    bag.add_argument("--gender-true", choices=("female", "male"),
                     help="the gender that is true in the recording (default: none is given)")
    bag.add_argument("-q", "--quiet", action="store_true", help="do not report what was made")
    bag.set_defaults(run=_import_bag)

    options = parser.parse_args()
    status: int = options.run(options)
    return status


if __name__ == "__main__":
    sys.exit(main())
