"""Reading a graph: nodes, edges, attributes, tensor descriptions and weights."""

import base64
import json

import numpy as np
import pytest

import tesu


def tensor(dtype, shape, values, numpy_type):
    data = np.asarray(values, dtype=numpy_type).tobytes()
    return {"t": {"desc": {"dtype": dtype, "shape": shape},
                  "data": base64.b64encode(data).decode()}}


# x -> MatMul(x, w) -> BiasAdd(., b) ; w FLOAT [2, 3], b INT64 [3] (shape kept flat), and a
# FLOAT16 constant of a single value, small enough to live inside its tensor object.
MODEL = {"name": "weights", "graph": [{"name": "weights", "op": [
    {"name": "x", "type": "Data", "input_desc": [{"shape": [1, 2]}],
     "output_desc": [{"shape": [1, 2]}]},
    {"name": "w", "type": "Const",
     "attr": {"value": tensor(0, [2, 3], [[1.5, -2, 3], [4, 5e-3, -6e7]], np.float32)},
     "output_desc": [{"shape": [2, 3]}]},
    {"name": "b", "type": "Const", "attr": {"value": tensor(9, [3], [7, -1, 2**40], np.int64)},
     "output_desc": [{"dtype": 9, "shape": [3]}]},
    {"name": "h", "type": "Const", "attr": {"value": tensor(1, [], [0.5], np.float16)},
     "output_desc": [{"dtype": 1}]},
    {"name": "mm", "type": "MatMul", "input": ["x:0", "w:0"],
     "attr": {"transpose_a": {"b": False}, "names": {"list": {"s": ["p", "q"]}}},
     "input_desc": [{"shape": [1, 2]}, {"shape": [2, 3], "format": 2}],
     "output_desc": [{"shape": [1, 3]}]},
    {"name": "add", "type": "BiasAdd", "input": ["mm:0", "b:0", "h:0"],
     "input_desc": [{}, {"dtype": 9}, {"dtype": 1}], "output_desc": [{"shape": [1, 3]}]},
]}]}


@pytest.fixture(scope="module", params=["load", "convert"])
def graph(request):
    model = json.dumps(MODEL).encode()
    return tesu.load(model) if request.param == "load" else tesu.convert(model)


def test_weights_keep_values_dtype_and_shape_without_copies(graph):
    w, = graph["mm"].weights
    b, h = graph["add"].weights
    np.testing.assert_array_equal(w, np.array([[1.5, -2, 3], [4, 5e-3, -6e7]], np.float32))
    assert (w.dtype, b.dtype, h.dtype) == (np.float32, np.int64, np.float16)
    assert b.tolist() == [7, -1, 2**40] and h.shape == () and h == 0.5
    # The graph's own bytes, read-only, and the same bytes on every access.
    assert not w.flags.owndata and not w.flags.writeable
    assert np.shares_memory(w, graph["w"].attrs["value"])
    with pytest.raises(ValueError):
        w[0, 0] = 1


def test_weights_outlive_the_graph_objects():
    w, = tesu.load(json.dumps(MODEL).encode())["mm"].weights
    import gc
    gc.collect()
    assert w[1, 2] == np.float32(-6e7)


def test_nodes_edges_and_descriptions(graph):
    assert [n.name for n in graph] == [n.name for n in graph.nodes] == \
        ["x", "w", "b", "h", "mm", "add"]
    assert len(graph) == len(graph.nodes) == 6 and "mm" in graph and "zz" not in graph
    with pytest.raises(KeyError, match="zz"):
        graph["zz"]
    add = graph["add"]
    assert add.inputs == [("mm", 0), ("b", 0), ("h", 0)]
    assert graph["mm"].outputs == [[("add", 0)]]
    assert [(d.dtype, d.shape) for d in add.input_descs] == \
        [("FLOAT", []), ("INT64", []), ("FLOAT16", [])]
    assert graph["mm"].input_descs[1].format == "ND"
    assert [n.name for n in graph.inputs] == ["x"] and graph.outputs == [("add", 0)]
    assert graph.op_histogram()["Const"] == 3


def test_attrs_are_a_read_only_mapping_of_python_values(graph):
    attrs = graph["mm"].attrs
    assert attrs["names"] == ("p", "q")
    with pytest.raises(TypeError):
        attrs["names"] = ()
    loaded = tesu.load(json.dumps(MODEL).encode())
    assert dict(loaded["mm"].attrs) == {"transpose_a": False, "names": ("p", "q")}
    if graph is not loaded and "version" in attrs:
        # Converted: renamed attribute, and the version every converted node gets.
        assert attrs["transpose_x1"] is False and attrs["version"] == 5
