"""Dumps that the command makes, small enough to try every byte of them."""

import os
import subprocess

import pytest

COMMAND = os.environ["CALCUT_COMMAND"]


def calcut_command(*words):
    return subprocess.run([COMMAND, *map(str, words)], capture_output=True, text=True, stdin=subprocess.DEVNULL)


def make(path, *words):
    done = calcut_command("make", "-q", "-o", path, *words)
    assert done.returncode == 0, done.stderr
    return path


@pytest.fixture
def small(tmp_path):
    return make(tmp_path / "small.eeprom", "--size", "16x12", "--seed", "7")
