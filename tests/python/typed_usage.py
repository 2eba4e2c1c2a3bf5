"""Typed use of the package, checked by mypy (test_typing.py): editors see these types."""

import inspect
from typing import Dict, List, Set

import numpy as np

import tesu
from tesu import helper


def build_and_convert(path: str) -> Dict[str, int]:
    model = helper.make_model(helper.make_graph("typed", [
        helper.make_data("input", [1, 3, 4, 4], dtype="FLOAT"),
        helper.from_array(np.zeros((3,), np.float32), "bias"),
        helper.make_node("Relu", "relu", ["input"], [helper.make_tensor_desc([1, 3, 4, 4])]),
    ]))
    helper.save_model(model, path)
    graph: tesu.Graph = tesu.convert(helper.to_bytes(model), input_shape={"input": [1, 3, 4, 4]})
    graph.save(path + ".pb")
    seen: Set[tesu.Node] = {node for node in graph if node in graph}
    shapes: List[List[int]] = [desc.shape for node in seen for desc in node.output_descs]
    assert shapes and "path" in inspect.signature(tesu.Graph.save).parameters
    return graph.op_histogram()


def failure_status(path: str) -> int:
    try:
        tesu.load(path)
    except tesu.ConversionError as error:
        return error.status
    return 0
