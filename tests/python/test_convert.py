"""Conversions from Python against the command line's, failures and argument checking."""

import json
import logging
import pickle

import numpy as np
import pytest

import tesu
from conftest import example, run_cli, run_cli_out, sample


@pytest.mark.parametrize("model", [sample("mobile.pb"), sample("mobile.json"),
                                   example("tiny.json")])
def test_conversion_matches_the_cli_byte_for_byte(model, workdir):
    status, err = run_cli("--model", model, "--output", "cli.pb", "--json", "cli.json",
                          "--dot", "cli.dot")
    assert status == 0, err
    with open(model, "rb") as f:
        from_bytes = tesu.convert(f.read())
    for graph in (tesu.convert(model), from_bytes):
        graph.save(workdir / "py.pb")
        assert (workdir / "py.pb").read_bytes() == (workdir / "cli.pb").read_bytes()
        assert graph.to_json() == json.loads((workdir / "cli.json").read_text())
        assert graph.to_dot() == (workdir / "cli.dot").read_text()


def test_keyword_values_reach_the_parser_as_the_cli_flags_do(workdir):
    model = sample("mobile.pb")
    status, err = run_cli("--model", model, "--output", "cli.pb", "--input_shape",
                          "image:2,3,-1,32", "--input_type", "image:FLOAT16", "--input_format",
                          "image:NHWC", "--out_nodes", "squeeze:0", "--output_format", "3")
    assert status == 0, err
    graph = tesu.convert(model, input_shape={"image": np.array([2, 3, -1, 32])},
                         input_type={"image": "float16"}, input_format={"image": 1},
                         out_nodes=[("squeeze", 0)], output_format=["NC1HWC0"])
    graph.save(workdir / "py.pb")
    assert (workdir / "py.pb").read_bytes() == (workdir / "cli.pb").read_bytes()
    assert graph.outputs == [("squeeze", 0)]
    assert graph.inputs[0].output_descs[0] == tesu.load(workdir / "cli.pb")["image"].output_descs[0]
    assert repr(graph.inputs[0].output_descs[0]) == \
        "TensorDesc(shape=[2, 3, -1, 32], dtype='FLOAT16', format='NHWC')"


def test_unsupported_operator_raises_with_status_report_and_writes_nothing(workdir):
    status, _ = run_cli("--model", sample("unsupported.pb"), "--output", "cli.pb",
                        "--check_report", "cli_report.json")
    with pytest.raises(tesu.ConversionError) as caught:
        tesu.convert(sample("unsupported.pb"))
    error = caught.value
    assert isinstance(error, RuntimeError)
    assert pickle.loads(pickle.dumps(error)).report == error.report
    assert error.status == status == 1
    assert "unsupported operator types: Gelu (2), LayerNorm (1), Softmax (1)" in str(error)
    assert error.report == json.loads((workdir / "cli_report.json").read_text())
    assert sorted(p.name for p in workdir.iterdir()) == ["cli_report.json"]

    # A report directory of the caller's gets the report, and nothing else is written.
    (workdir / "reports").mkdir()
    with pytest.raises(tesu.ConversionError) as caught:
        tesu.convert(sample("unsupported.json"), check_report=workdir / "reports")
    assert [p.name for p in (workdir / "reports").iterdir()] == ["check_result.json"]
    assert json.loads((workdir / "reports" / "check_result.json").read_text()) == \
        caught.value.report


def test_json_dump_matches_the_cli(workdir):
    status, err = run_cli("--to-json", "--model", sample("mobile.pb"), "--json", "cli.json")
    assert status == 0, err
    expected = json.loads((workdir / "cli.json").read_text())
    with open(sample("mobile.pb"), "rb") as f:
        assert tesu.to_json(f.read()) == expected
    assert tesu.to_json(sample("mobile.pb")) == expected
    assert list(workdir.iterdir()) == [workdir / "cli.json"]


def test_malformed_model_status_and_log_lines_match_the_cli(workdir, caplog):
    model = json.loads(open(example("tiny.json")).read())
    model["graph"][0]["op"][1]["input"] = ["ghost:0"]
    (workdir / "bad.json").write_text(json.dumps(model))
    status, err = run_cli("--model", "bad.json", "--output", "out.pb")
    with caplog.at_level(logging.INFO, logger="tesu"):
        with pytest.raises(tesu.ConversionError) as caught:
            tesu.convert("bad.json")
    assert caught.value.status == status == 13 == tesu.ExitStatus.NOT_A_MODEL
    assert caught.value.log == [line for line in err.splitlines() if line.startswith("[")]
    assert str(caught.value).endswith(caught.value.log[-1])
    assert 'input "ghost:0" names no node' in caught.value.log[0]
    assert [r.name for r in caplog.records] == ["tesu"]
    assert caplog.records[0].levelno == logging.ERROR
    assert sorted(p.name for p in workdir.iterdir()) == ["bad.json"]


@pytest.mark.parametrize("kwargs, error, quoted", [
    (dict(input_shape={"image": [1, -2]}), ValueError, '"-2"'),
    (dict(input_shape={"image": "1,3"}), TypeError, "'1,3'"),
    (dict(input_shape=[1, 3]), TypeError, "[1, 3]"),
    (dict(input_shape={"image": [1.5]}), TypeError, "1.5"),
    (dict(input_shape={"a;b": [1]}), ValueError, "'a;b'"),
    (dict(input_type={"image": "FLOAT17"}), ValueError, '"FLOAT17"'),
    (dict(input_type={"image": "FLOAT:16"}), ValueError, "'FLOAT:16'"),
    (dict(input_format={"image": 99}), ValueError, '"99"'),
    (dict(out_nodes=[("squeeze", -1)]), ValueError, '"-1"'),
    (dict(out_nodes=["squeeze"]), TypeError, "'squeeze'"),
    (dict(output_format=["NCDHW"]), ValueError, '"NCDHW"'),
    (dict(output_format="NCHW"), TypeError, "'NCHW'"),
    (dict(framework=True), TypeError, "True"),
    (dict(framework=9), ValueError, "framework 9"),
    (dict(check_report=3), TypeError, "3"),
])
def test_bad_keyword_values_are_refused_quoting_them_before_anything_is_written(
        kwargs, error, quoted, workdir):
    with pytest.raises(error) as caught:
        tesu.convert(sample("mobile.pb"), **kwargs)
    assert quoted in str(caught.value)
    assert list(workdir.iterdir()) == []


def test_model_argument_is_a_path_or_bytes(workdir):
    with pytest.raises(TypeError, match="42"):
        tesu.convert(42)
    with pytest.raises(tesu.ConversionError, match="missing.pb") as caught:
        tesu.convert(workdir / "missing.pb")
    assert caught.value.status == run_cli("--model", "missing.pb", "--output", "o.pb")[0]


def test_names_that_match_nothing_warn_and_change_nothing(workdir):
    expected = tesu.convert(sample("mobile.pb")).to_json()
    with pytest.warns(UserWarning) as caught:
        graph = tesu.convert(sample("mobile.pb"), input_shape={"ghost": [1]},
                             out_nodes=[("squeeze", 0), ("squeeze", 4), ("gone", 0)])
    assert [str(w.message) for w in caught] == [
        'input shape given for "ghost", which is not in the graph: it is not used',
        'output node "gone" is not in the graph: it is not an output',
        'output 4 of node "squeeze" is beyond its 1 output: it is not an output']
    assert graph.outputs == [("squeeze", 0)]
    assert tesu.convert(sample("mobile.pb"), input_shape={"ghost": [1]},
                        out_nodes=[("squeeze", 0)]).to_json() == expected


def test_check_report_of_a_success_version_and_one_error_type(workdir):
    assert tesu.convert(sample("mobile.pb")).check_report is None
    report = tesu.convert(sample("mobile.pb"), save_check_report=True).check_report
    assert report["summary"]["failed"] == 0
    assert list(workdir.iterdir()) == []
    assert tesu.__version__ == run_cli_out("--version").split()[1]
    with pytest.raises(tesu.ConversionError) as caught:
        tesu.frameworks(plugin_dir=workdir / "absent")
    assert caught.value.status == tesu.ExitStatus.FAILURE
