"""Model paths of every kind through the package's file-based entry points: each refused with
the exit status tesu-convert gives it and a message naming the path, none hanging on a FIFO."""

import os

import pytest

import tesu
from conftest import run_cli


def _make(kind, workdir):
    path = workdir / kind
    if kind == "dir":
        path.mkdir()
    elif kind == "empty":
        path.write_bytes(b"")
    elif kind == "fifo":
        os.mkfifo(path)
    elif kind == "dangling":
        path.symlink_to(workdir / "missing")
    elif kind == "garbage":
        path.write_bytes(b"\xff" * 4096)
    return str(path)


@pytest.mark.parametrize("entry", [tesu.convert, tesu.load, tesu.to_json])
@pytest.mark.parametrize("kind, reason", [
    ("dir", "it is a directory"),
    ("empty", "the file is empty"),
    ("fifo", "it is a FIFO"),
    ("dangling", "a symbolic link to a file that does not exist"),
    ("garbage", "not a model"),
])
def test_every_kind_of_path_is_refused_as_the_cli_refuses_it(entry, kind, reason, workdir):
    path = _make(kind, workdir)
    with pytest.raises(tesu.ConversionError) as caught:
        entry(path)
    assert f"cannot read {path}: {reason}" in str(caught.value)
    assert caught.value.status == run_cli("--model", path, "--output", "o.pb")[0]
    assert "o.pb" not in os.listdir(workdir)
