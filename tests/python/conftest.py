"""What several files of tests use."""

from __future__ import annotations

import os
import pathlib
import subprocess

import pytest


@pytest.fixture(scope="session")
def scene(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    path = tmp_path_factory.mktemp("scene") / "scene.jsonl"
    subprocess.run([os.environ["ZORVEL"], "simulate", "--seconds", "40", "-o", path], check=True, timeout=60)
    return path
