"""docs/fleet.md as it stands, with fewer and smaller modules."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pandas as pd
import pytest

DOCUMENT = Path(__file__).parents[2] / "docs" / "fleet.md"


def test_one_night(tmp_path):
    for name in ("matplotlib", "xarray", "zarr", "dask"):
        pytest.importorskip(name)
    tools = tmp_path / "tools"
    tools.mkdir()
    (tools / "calcut").symlink_to(os.environ["CALCUT_COMMAND"])
    (tools / "python3").write_text(f'#!/bin/sh\nexec "{sys.executable}" "$@"\n')
    (tools / "python3").chmod(0o755)
    environment = {**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"}
    night = DOCUMENT.read_text().split("## The table")[0]
    pieces = re.findall(r"```(sh|python)\n(.*?)```", night, re.DOTALL)
    assert [kind for kind, _ in pieces] == ["sh"] * 4 + ["python"] * 2
    python = "".join(code for kind, code in pieces if kind == "python")
    for kind, code in [*pieces[:4], ("python", python)]:
        small = code.replace("seq 2000", "seq 24").replace("--seed", "--size 48x36 --seed")
        words = ["bash", "-euc", small] if kind == "sh" else [sys.executable, "-c", small]
        done = subprocess.run(words, cwd=tmp_path, env=environment, capture_output=True, text=True)
        assert done.returncode == 0, code + done.stdout + done.stderr
    table = pd.read_csv(tmp_path / "fleet.csv").set_index("path")
    assert list(table["result"].value_counts().items()) == [("ok", 23), ("refused", 2)]
    verdicts = pd.read_csv(tmp_path / "verdicts.csv").set_index("path")["verdict"]
    # The two that do not read, and the two of one serial.
    assert {f"night/{name}.eeprom" for name in ("7", "8", "9", "9-again")} <= set(verdicts[verdicts == "fail"].index)
    for name in ("night.pdf", "report.xml", "fx.png", "population.png", "line7.zarr/.zmetadata"):
        assert (tmp_path / name).stat().st_size > 100
