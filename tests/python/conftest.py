"""Shared fixtures: the bundled samples, the CLI beside the module, a scratch working directory."""

import os
import subprocess

import pytest

SAMPLES = os.environ.get("TESU_SAMPLES_DIR", "")
EXAMPLES = os.environ.get("TESU_EXAMPLES_DIR", "")
CLI = os.environ.get("TESU_CONVERT", "")


def sample(name):
    return os.path.join(SAMPLES, name)


def example(name):
    return os.path.join(EXAMPLES, name)


def run_cli(*args):
    """Runs tesu-convert; returns (exit status, stderr)."""
    done = subprocess.run([CLI, *args], capture_output=True, text=True, check=False)
    return done.returncode, done.stderr


def run_cli_out(*args):
    """Runs tesu-convert; returns its standard output."""
    return subprocess.run([CLI, *args], capture_output=True, text=True, check=True).stdout


@pytest.fixture
def workdir(tmp_path, monkeypatch):
    """A fresh, empty working directory, so a test can tell exactly which files were written."""
    monkeypatch.chdir(tmp_path)
    return tmp_path
