"""Node identity, graph membership, method signatures and the model-building helper."""

import inspect
import os
import subprocess
import sys

import numpy as np
import pytest

import tesu
from tesu import helper
from conftest import example

HERE = os.path.dirname(os.path.abspath(__file__))


def tiny_model(*extra, **attrs):
    """Data -> Relu, plus the given nodes; the Relu carries `attrs`."""
    return helper.make_model(helper.make_graph("tiny", [
        helper.make_data("input", [1, 3, 4, 4]),
        helper.make_node("Relu", "relu", ["input"], [helper.make_tensor_desc([1, 3, 4, 4])],
                         **attrs),
        *extra,
    ]))


def test_nodes_compare_and_hash_by_the_node_they_stand_for():
    graph = tesu.load(example("tiny.json"))
    other = tesu.load(example("tiny.json"))
    assert graph["relu"] == graph["relu"] and hash(graph["relu"]) == hash(graph["relu"])
    assert graph["relu"] != graph["abs"]
    assert graph["relu"] != other["relu"]  # same name, another graph
    assert len({*graph, *graph}) == len(graph)
    assert graph["relu"] in graph and "relu" in graph
    assert other["relu"] not in graph and "missing" not in graph


def test_graph_methods_have_signatures():
    assert list(inspect.signature(tesu.Graph.save).parameters)[-2:] == ["path", "weights"]
    for method in ("to_json", "to_dot", "op_histogram"):
        assert "path" not in inspect.signature(getattr(tesu.Graph, method)).parameters


@pytest.mark.parametrize("value, expected", [
    (3, 3), (-2**40, -2**40), (0.5, 0.5), (True, True), ("SAME", "SAME"),
    ([1, 2, 3], (1, 2, 3)), ((0.25, 1.5), (0.25, 1.5)), (["a", "b"], ("a", "b")),
    ([True, False], (True, False)), (np.int32(7), 7), ([], ()),
])
def test_attributes_round_trip(value, expected):
    node = tesu.load(helper.to_bytes(tiny_model(value=value)))["relu"]
    assert node.attrs["value"] == expected


def test_non_finite_floats_are_spelled_as_protobuf_json_spells_them():
    attrs = tesu.load(helper.to_bytes(tiny_model(nan=float("nan"), inf=float("-inf"))))["relu"].attrs
    assert np.isnan(attrs["nan"]) and attrs["inf"] == float("-inf")


@pytest.mark.parametrize("dtype, name", [
    (np.float32, "FLOAT"), (np.float16, "FLOAT16"), (np.int64, "INT64"), (np.uint8, "UINT8"),
    (np.int32, "INT32"), (np.float64, "DOUBLE"), (np.dtype(">i4"), "INT32"),
])
def test_const_from_array_keeps_values_type_and_shape(dtype, name):
    values = np.arange(6).reshape(2, 3).astype(dtype)
    model = tiny_model(helper.from_array(values, "w"),
                       helper.make_node("Add", "add", ["relu", ("w", 0)],
                                        [helper.make_tensor_desc([2, 3])]))
    add = tesu.load(helper.to_bytes(model))["add"]
    assert add.inputs == [("relu", 0), ("w", 0)]
    assert add.input_descs[1].dtype == name and add.input_descs[1].shape == [2, 3]
    np.testing.assert_array_equal(add.weights[0], values)


def test_a_built_model_converts_and_saves(tmp_path):
    model = tiny_model()
    assert tesu.convert(helper.to_bytes(model)).op_histogram() == {"Activation": 1, "Data": 1}
    helper.save_model(model, tmp_path / "tiny.json")
    assert [node.name for node in tesu.load(tmp_path / "tiny.json")] == ["input", "relu"]


@pytest.mark.parametrize("build, error, text", [
    (lambda: helper.make_graph("g", [helper.make_node("Relu", "r", ["nowhere"])]),
     ValueError, "'nowhere'"),
    (lambda: helper.make_graph("g", [helper.make_data("x", [1]), helper.make_data("x", [1])]),
     ValueError, "two nodes named 'x'"),
    (lambda: helper.make_graph("g", [helper.make_data("x", [1]),
                                     helper.make_node("Relu", "r", [("x", 1)])]),
     ValueError, "output 1 of x"),
    (lambda: helper.from_array(np.zeros(2, np.complex64), "c"), TypeError, "complex64"),
    (lambda: helper.make_node("Relu", "r", mixed=[1, "a"]), TypeError, "mixes"),
    (lambda: helper.make_node("Relu", "r", bad=object()), TypeError, "attribute bad"),
    (lambda: helper.make_data("x", [1], dtype="FLOAT128"), ValueError, "unknown dtype"),
])
def test_helper_refuses_what_the_model_cannot_hold(build, error, text):
    with pytest.raises(error, match=text):
        build()


def test_types_check_with_mypy(tmp_path):
    pytest.importorskip("mypy")
    def mypy(path):
        env = dict(os.environ, MYPYPATH=os.environ.get("PYTHONPATH", ""))
        return subprocess.run([sys.executable, "-m", "mypy", "--strict", "--no-incremental",
                               "--cache-dir", str(tmp_path / "cache"), str(path)],
                              capture_output=True, text=True, env=env, check=False)
    done = mypy(os.path.join(HERE, "typed_usage.py"))
    assert done.returncode == 0, done.stdout + done.stderr
    wrong = tmp_path / "wrong.py"
    wrong.write_text("import tesu\ntesu.load('m.pb').save(3)\nn: str = tesu.frameworks()\n")
    done = mypy(wrong)
    assert done.returncode == 1 and done.stdout.count("error:") == 2, done.stdout
