"""Model paths that are no model file, through the package's file-based entry points: refused
with the exit status tesu-convert gives them and a message naming the path, without hanging."""

import os

import pytest

import tesu
from conftest import run_cli

MAKE = {"fifo": os.mkfifo, "garbage": lambda path: open(path, "wb").write(b"\xff" * 4096)}


@pytest.mark.parametrize("entry", [tesu.convert, tesu.load, tesu.to_json])
@pytest.mark.parametrize("kind, reason", [("fifo", "it is a FIFO"), ("garbage", "not a model")])
def test_a_path_that_is_no_model_file_is_refused_as_the_cli_refuses_it(entry, kind, reason, workdir):
    path = str(workdir / kind)
    MAKE[kind](path)
    with pytest.raises(tesu.ConversionError) as caught:
        entry(path)
    assert f"cannot read {path}: {reason}" in str(caught.value)
    assert caught.value.status == run_cli("--model", path, "--output", "o.pb")[0]
    assert "o.pb" not in os.listdir(workdir)
