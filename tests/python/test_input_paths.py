"""Model paths as Python names them: the OSError of their fault, and names that are no UTF-8."""

import os
import pathlib

import pytest

import tesu
from conftest import run_cli, sample


def test_model_paths_raise_the_oserror_of_their_fault_carrying_the_status(workdir):
    (workdir / "dir").mkdir()
    for path, error in ((workdir / "missing.pb", FileNotFoundError),
                        (workdir / "dir", IsADirectoryError)):
        with pytest.raises(error) as caught:
            tesu.convert(path)
        assert isinstance(caught.value, tesu.ConversionError)
        assert caught.value.status == tesu.ExitStatus.FAILURE == run_cli("--model", str(path))[0]
        assert caught.value.filename == str(path)


def test_paths_that_are_no_utf8_work_as_path_objects_and_bytes(workdir):
    """A model given as bytes is the model itself; its path is a str or os.PathLike."""
    name = os.fsencode(workdir) + b"/m\xff.pb"
    with open(sample("mobile.pb"), "rb") as source, open(name, "wb") as target:
        target.write(source.read())
    path = pathlib.Path(os.fsdecode(name))
    graph = tesu.convert(path, check_report=os.fsencode(workdir) + b"/r\xff.json",
                         save_check_report=True)
    assert graph.to_json() == tesu.convert(sample("mobile.pb")).to_json()
    assert os.path.exists(os.fsencode(workdir) + b"/r\xff.json")
    assert tesu.load(path).name == "mobile"
    with pytest.raises(FileNotFoundError) as caught:
        tesu.convert(pathlib.Path(os.fsdecode(name + b".missing")))
    assert os.fsdecode(name) in str(caught.value)
