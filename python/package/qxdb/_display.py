"""How models and tables show themselves in a notebook."""

from __future__ import annotations

import base64
import os
import struct
import subprocess
import tempfile
import zlib
from html import escape
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import NDArray

from ._errors import FileError

if TYPE_CHECKING:
    from ._model import Model
    from ._table import Table


def png(rgb: NDArray[np.uint8]) -> bytes:
    """A PNG file of a picture, (height, width, 3)."""
    height, width, _ = rgb.shape

    def chunk(name: bytes, data: bytes) -> bytes:
        body = name + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    lines = np.zeros((height, 1 + 3 * width), np.uint8)  # each with its filter, none
    lines[:, 1:] = rgb.reshape(height, -1)
    head = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    body = zlib.compress(lines.tobytes(), 6)
    parts = chunk(b"IHDR", head) + chunk(b"IDAT", body) + chunk(b"IEND", b"")
    return b"\x89PNG\r\n\x1a\n" + parts


def _rows(rows: list[tuple[Any, ...]], head: bool = False) -> str:
    tag = "th" if head else "td"
    return "".join(
        "<tr>" + "".join(f"<{tag}>{escape(str(cell))}</{tag}>" for cell in row) + "</tr>"
        for row in rows
    )


def model_html(model: Model) -> str:
    """Summary table and picture."""
    if model.closed:
        return "<p>a closed model</p>"
    rows: list[tuple[Any, ...]] = [("file", model.path or "not saved")]
    rows.append(("nodes", f"{len(model.nodes):,}"))
    rows += [(kind, f"{count:,}") for kind, count in model.elements.counts().items()]
    rows.append(("mesh sets", ", ".join(model.sets.names[:8])))
    shown = {"node", "elem", "mset"}
    others = [
        f"{name} {len(table)}"
        for name, table in model.pools.items()
        if name not in shown and len(table)
    ]
    rows.append(("other records", ", ".join(others)))
    rows.append(("length unit", model.units["length"]))
    history = model.history
    if history:
        rows.append(("last step", history[-1].name))
    html = f"<table>{_rows(rows)}</table>"
    if len(model.nodes):
        data = base64.b64encode(png(model.picture())).decode()
        html += f'<img alt="the mesh" src="data:image/png;base64,{data}">'
    return html


def table_html(table: Table) -> str:
    """The first records."""
    most = 10
    some = table[:most]
    names = [n for n, c in table.info.columns.items() if not c.array][:12]
    columns = [some._column(n)[:] for n in names]
    rows = [tuple(str(c[i]) for c in columns) for i in range(len(some))]
    more = f"<p>{len(table):,} records</p>"
    return f"<table>{_rows([tuple(names)], head=True)}{_rows(rows)}</table>{more}"


class Page:
    """A page of the viewer; a notebook shows it in a frame of its own."""

    def __init__(self, page: str, height: int) -> None:
        self.page = page
        self.height = height

    def _repr_html_(self) -> str:
        frame = f'width="100%" height="{self.height}" style="border:0"'
        return f'<iframe sandbox="allow-scripts" {frame} srcdoc="{escape(self.page)}"></iframe>'


def viewer_page(model: Model, command: str, height: int) -> Page:
    """See Model.view."""
    with tempfile.TemporaryDirectory() as folder:
        file, target = os.path.join(folder, "model.qxm"), os.path.join(folder, "model.html")
        with model.snapshot() as now:
            now.save(file)
        remedy = "install qxdb with its viewer, or name it: view(command=...)"
        try:
            done = subprocess.run(
                [command, "view", file, "--html", target],
                capture_output=True,
                text=True,
                check=False,
            )
        except OSError as error:
            raise FileError(
                f"cannot be run: {error.strerror}", file=command, remedy=remedy
            ) from None
        if done.returncode != 0:
            told = done.stderr.strip().splitlines()
            raise FileError(
                told[-1] if told else "made no page", file=command, remedy=remedy
            )
        with open(target, encoding="utf-8") as page:
            return Page(page.read(), height)
