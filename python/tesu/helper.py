"""Build small models from Python values and numpy arrays, then convert or save them.

The helpers write the model's JSON form (the model message in protobuf's JSON mapping), which
``tesu.convert`` and ``tesu.load`` read like a model file::

    >>> import numpy as np, tesu
    >>> from tesu import helper
    >>> graph = helper.make_graph("tiny", [
    ...     helper.make_data("input", [1, 3, 4, 4]),
    ...     helper.from_array(np.ones((3, 3, 1, 1), np.float32), "weight"),
    ...     helper.make_node("Conv", "conv", ["input", "weight"],
    ...                      [helper.make_tensor_desc([1, 3, 4, 4])], pads=[0, 0, 0, 0]),
    ... ])
    >>> model = helper.make_model(graph)
    >>> converted = tesu.convert(helper.to_bytes(model))
    >>> helper.save_model(model, "tiny.json")

Nodes, graphs and models are plain dicts, free to edit before they are written.
"""

from __future__ import annotations

import base64
import json
import math
import os
from typing import Any, Dict, Iterable, List, Mapping, Optional, Sequence, Tuple, Union

import numpy as np

__all__ = ["make_tensor_desc", "make_data", "make_node", "from_array", "make_graph",
           "make_model", "to_bytes", "save_model"]

Json = Dict[str, Any]
Input = Union[str, Tuple[str, int]]

# Element types and layouts by their names, as the converter reports them, and their numbers.
DTYPES = {"FLOAT": 0, "FLOAT16": 1, "INT8": 2, "INT32": 3, "UINT8": 4, "BF16": 5, "INT16": 6,
          "UINT16": 7, "UINT32": 8, "INT64": 9, "UINT64": 10, "DOUBLE": 11, "BOOL": 12}
FORMATS = {"NCHW": 0, "NHWC": 1, "ND": 2, "NC1HWC0": 3, "FRACTAL_Z": 4, "HWCN": 5, "NDHWC": 6,
           "NCDHW": 7}
_NUMPY_DTYPES = {np.dtype(np.float32): "FLOAT", np.dtype(np.float16): "FLOAT16",
                 np.dtype(np.int8): "INT8", np.dtype(np.int32): "INT32",
                 np.dtype(np.uint8): "UINT8", np.dtype(np.int16): "INT16",
                 np.dtype(np.uint16): "UINT16", np.dtype(np.uint32): "UINT32",
                 np.dtype(np.int64): "INT64", np.dtype(np.uint64): "UINT64",
                 np.dtype(np.float64): "DOUBLE", np.dtype(np.bool_): "BOOL"}


def _number(table: Mapping[str, int], kind: str, value: Union[str, int]) -> int:
    if isinstance(value, str):
        try:
            return table[value]
        except KeyError:
            raise ValueError(f"unknown {kind} {value!r}; one of {', '.join(table)}") from None
    return int(value)


def make_tensor_desc(shape: Sequence[int], dtype: Union[str, int] = "FLOAT",
                     format: Union[str, int] = "NCHW") -> Json:
    """A tensor description: dimensions (-1 unknown), element type and layout, by name or
    number."""
    return {"dtype": _number(DTYPES, "dtype", dtype), "format": _number(FORMATS, "format", format),
            "shape": [int(dim) for dim in shape]}


def make_data(name: str, shape: Sequence[int], dtype: Union[str, int] = "FLOAT",
              format: Union[str, int] = "NCHW") -> Json:
    """A graph input (a Data node) of that shape, type and layout."""
    desc = make_tensor_desc(shape, dtype, format)
    return {"name": name, "type": "Data", "input_desc": [desc], "output_desc": [dict(desc)]}


def _attr(name: str, value: Any) -> Json:
    if isinstance(value, np.ndarray):
        return {"t": _tensor(value)}
    if isinstance(value, (str, bool, int, float, np.generic)):
        return _scalar(name, value)
    if isinstance(value, (list, tuple)):
        kinds = {next(iter(_scalar(name, item))) for item in value}
        if len(kinds) > 1:
            raise TypeError(f"attribute {name}: a list mixes {sorted(kinds)}")
        kind = kinds.pop() if kinds else "i"
        return {"list": {kind: [_scalar(name, item)[kind] for item in value]}}
    raise TypeError(f"attribute {name}: {type(value).__name__} is not str, int, float, bool, "
                    f"a list of those or a numpy array")


def _scalar(name: str, value: Any) -> Json:
    if isinstance(value, np.generic):
        value = value.item()
    if isinstance(value, str):
        return {"s": value}
    if isinstance(value, bool):
        return {"b": value}
    if isinstance(value, int):
        return {"i": str(value)}
    if isinstance(value, float):
        # JSON has no NaN or infinities; protobuf's mapping spells them as strings.
        if math.isnan(value):
            return {"f": "NaN"}
        if math.isinf(value):
            return {"f": "Infinity" if value > 0 else "-Infinity"}
        return {"f": value}
    raise TypeError(f"attribute {name}: {value!r} is not str, int, float or bool")


def _tensor(array: np.ndarray) -> Json:
    try:
        dtype = _NUMPY_DTYPES[array.dtype.newbyteorder("=")]
    except KeyError:
        raise TypeError(f"no tensor type for numpy dtype {array.dtype}") from None
    data = np.ascontiguousarray(array, dtype=array.dtype.newbyteorder("<")).tobytes()
    return {"desc": make_tensor_desc(array.shape, dtype),
            "data": base64.b64encode(data).decode("ascii")}


def make_node(op_type: str, name: str, inputs: Sequence[Input] = (),
              outputs: Sequence[Json] = (), **attrs: Any) -> Json:
    """An operator node.

    Args:
        op_type: the operator type, e.g. "Conv".
        name: the node's unique name.
        inputs: what feeds each data input: a node name (its output 0) or a
            (node name, output index) pair. Their descriptions are taken from the producers'
            outputs by make_graph.
        outputs: a tensor description (make_tensor_desc) per output.
        attrs: attributes: str, int, float, bool, lists of one of those, or numpy arrays.
    """
    node: Json = {"name": name, "type": op_type,
                  "input": [_edge(item) for item in inputs],
                  "output_desc": [dict(desc) for desc in outputs]}
    if attrs:
        node["attr"] = {key: _attr(key, value) for key, value in attrs.items()}
    return node


def _edge(item: Input) -> str:
    if isinstance(item, str):
        return item if ":" in item else f"{item}:0"
    producer, index = item
    return f"{producer}:{int(index)}"


def from_array(array: Any, name: str) -> Json:
    """A Const node holding the array's values (copied) as its "value" tensor."""
    array = np.asarray(array)
    tensor = _tensor(array)
    return {"name": name, "type": "Const", "attr": {"value": {"t": tensor}},
            "output_desc": [dict(tensor["desc"])]}


def make_graph(name: str, nodes: Iterable[Json]) -> Json:
    """A graph of the nodes, in order. Each op node's input descriptions default to its
    producers' output descriptions, and inputs fed by Const nodes are marked constant."""
    nodes = [dict(node) for node in nodes]
    by_name: Dict[str, Json] = {}
    for node in nodes:
        if node["name"] in by_name:
            raise ValueError(f"graph {name}: two nodes named {node['name']!r}")
        by_name[node["name"]] = node
    for node in nodes:
        if node.get("input") and "input_desc" not in node:
            producers = [_producer(name, node, edge, by_name) for edge in node["input"]]
            node["input_desc"] = [dict(desc) for _, desc in producers]
            node["is_input_const"] = [producer["type"] == "Const" for producer, _ in producers]
    return {"name": name, "op": nodes}


def _producer(graph: str, node: Json, edge: str, by_name: Mapping[str, Json]) -> Tuple[Json, Json]:
    producer_name, _, index = edge.rpartition(":")
    producer = by_name.get(producer_name)
    if producer is None:
        raise ValueError(f"graph {graph}: node {node['name']} reads {producer_name!r}, "
                         f"which is not in the graph")
    outputs: List[Json] = producer.get("output_desc", [])
    if not 0 <= int(index) < len(outputs):
        raise ValueError(f"graph {graph}: node {node['name']} reads output {index} of "
                         f"{producer_name}, which has {len(outputs)}")
    return producer, outputs[int(index)]


def make_model(graph: Json, name: Optional[str] = None) -> Json:
    """A model whose graph is `graph`, named after it unless `name` is given."""
    return {"name": graph["name"] if name is None else name, "graph": [graph]}


def to_bytes(model: Json) -> bytes:
    """The model's JSON form, as tesu.convert and tesu.load take it."""
    return json.dumps(model, allow_nan=False).encode()


def save_model(model: Json, path: Union[str, "os.PathLike[str]"]) -> None:
    """Writes the model's JSON form to a file, which tesu-convert --model reads."""
    with open(path, "wb") as file:
        file.write(to_bytes(model))
