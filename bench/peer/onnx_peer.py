#!/usr/bin/env python3
"""Times a well-known Python tool for protobuf model graphs on the benchmark's block structure.

Builds, in ONNX, the blocks the graph-heavy benchmark model is made of (convolution, depthwise
convolution, batch normalisation with four weights, ReLU, max pooling, concatenation, a pooled
and reshaped head, matrix multiplication with a bias, and a space-to-depth style rearrangement),
with the same small weights, then times loading the file and checking the model (onnx.load,
then onnx.checker.check_model, plain and with full_check, which adds shape inference). Each
figure is the best of three runs.

    python3 bench/peer/onnx_peer.py [NODES ...]       default: 100000

Needs Debian's python3-onnx; exits 0 with a note when it is missing, so it never fails a build.
"""
import os
import sys
import tempfile
import time

try:
    import numpy as np
    import onnx
    from onnx import TensorProto, helper, numpy_helper
except ImportError as missing:  # the peer is optional
    print(f"onnx_peer: skipped ({missing.name} is not installed; apt-get install python3-onnx)")
    sys.exit(0)

NODES_PER_BLOCK = 25  # as in bench/bench_models.cpp


def weight(name, shape, rng):
    return numpy_helper.from_array(rng.uniform(-0.1, 0.1, shape).astype(np.float32), name)


def block(b, x, nodes, inits, rng):
    p = f"b{b}_"

    def conv(name, src, group, kernel):
        inits.append(weight(p + name + "_w", (4, 4 // group, kernel, kernel), rng))
        nodes.append(helper.make_node("Conv", [src, p + name + "_w"], [p + name], name=p + name,
                                      group=group, kernel_shape=[kernel, kernel],
                                      pads=[kernel // 2] * 4, strides=[1, 1], dilations=[1, 1]))
        return p + name

    y = conv("conv", x, 1, 1)
    y = conv("dw", y, 4, 3)
    for part in ("scale", "bias", "mean", "var"):
        inits.append(weight(p + "bn_" + part, (4,), rng))
    nodes.append(helper.make_node("BatchNormalization",
                                  [y] + [p + "bn_" + q for q in ("scale", "bias", "mean", "var")],
                                  [p + "bn"], name=p + "bn", epsilon=1e-5))
    nodes.append(helper.make_node("Relu", [p + "bn"], [p + "relu"], name=p + "relu"))
    nodes.append(helper.make_node("MaxPool", [p + "relu"], [p + "pool"], name=p + "pool",
                                  kernel_shape=[1, 1], strides=[1, 1]))
    nodes.append(helper.make_node("Concat", [p + "pool", p + "relu"], [p + "cat"], name=p + "cat",
                                  axis=1))
    inits.append(weight(p + "mix_w", (4, 8, 1, 1), rng))
    nodes.append(helper.make_node("Conv", [p + "cat", p + "mix_w"], [p + "mix"], name=p + "mix",
                                  kernel_shape=[1, 1], strides=[1, 1]))
    nodes.append(helper.make_node("ReduceMean", [p + "mix"], [p + "gap"], name=p + "gap",
                                  axes=[2, 3], keepdims=1))
    inits.append(numpy_helper.from_array(np.array([1, 4], dtype=np.int64), p + "flat_shape"))
    nodes.append(helper.make_node("Reshape", [p + "gap", p + "flat_shape"], [p + "flat"],
                                  name=p + "flat"))
    inits.append(weight(p + "head_w", (4, 4), rng))
    inits.append(weight(p + "head_b", (4,), rng))
    nodes.append(helper.make_node("MatMul", [p + "flat", p + "head_w"], [p + "mm"], name=p + "mm"))
    nodes.append(helper.make_node("Add", [p + "mm", p + "head_b"], [p + "head"], name=p + "head"))
    nodes.append(helper.make_node("DepthToSpace", [p + "mix"], [p + "d2s"], name=p + "d2s",
                                  blocksize=1))
    return p + "d2s"


def build(node_count, path):
    rng = np.random.default_rng(1)
    nodes, inits, outputs = [], [], []
    x = "input"
    for b in range(node_count // NODES_PER_BLOCK + 1):
        x = block(b, x, nodes, inits, rng)
        outputs.append(helper.make_tensor_value_info(f"b{b}_head", TensorProto.FLOAT, [1, 4]))
    outputs.append(helper.make_tensor_value_info(x, TensorProto.FLOAT, [1, 4, 8, 8]))
    graph = helper.make_graph(nodes, "graph_heavy",
                              [helper.make_tensor_value_info("input", TensorProto.FLOAT,
                                                             [1, 4, 8, 8])],
                              outputs, inits)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)])
    onnx.save(model, path)
    return len(nodes) + len(inits)


def best_of(runs, action):
    best = float("inf")
    for _ in range(runs):
        start = time.perf_counter()
        action()
        best = min(best, time.perf_counter() - start)
    return best


def main(sizes):
    for size in sizes:
        with tempfile.TemporaryDirectory() as scratch:
            path = os.path.join(scratch, "peer.onnx")
            count = build(size, path)
            load = best_of(3, lambda: onnx.load(path))
            model = onnx.load(path)
            check = best_of(3, lambda: onnx.checker.check_model(model))
            full = best_of(3, lambda: onnx.checker.check_model(model, full_check=True))
            print(f"onnx {onnx.__version__}: {count} nodes and initialisers, "
                  f"{os.path.getsize(path) / 1e6:.1f} MB: load {load * 1e3:.0f} ms, "
                  f"check {check * 1e3:.0f} ms, full check (with shape inference) "
                  f"{full * 1e3:.0f} ms; load + check {(load + check) * 1e3:.0f} ms, "
                  f"load + full check {(load + full) * 1e3:.0f} ms")


if __name__ == "__main__":
    main([int(arg) for arg in sys.argv[1:]] or [100000])
