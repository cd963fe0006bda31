"""What notebooks show."""

from __future__ import annotations

import html
from collections.abc import Iterable


def _cell(value: object) -> str:
    text = f"{value:.4g}" if isinstance(value, float) else str(value)
    return html.escape(text)


def table(names: Iterable[object], rows: Iterable[Iterable[object]]) -> str:
    """A table of HTML, with the names of its columns if there are any."""
    head = "".join(f"<th>{_cell(name)}</th>" for name in names)
    body = "".join("<tr>" + "".join(f"<td>{_cell(value)}</td>" for value in row) + "</tr>"
                   for row in rows)
    return f"<table>{f'<tr>{head}</tr>' if head else ''}{body}</table>"
