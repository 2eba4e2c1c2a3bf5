"""Conversions in a thread pool give what the same conversions give one after another, each
with its own log lines."""

import json
from concurrent.futures import ThreadPoolExecutor

import tesu
from conftest import example, sample


def broken(name):
    """A model that fails to load with a log line naming `name`."""
    model = json.loads(open(example("tiny.json")).read())
    model["graph"][0]["op"][1]["input"] = [name + ":0"]
    return json.dumps(model).encode()


def outcome(model):
    try:
        graph = tesu.convert(model, input_shape={"input": [2, 3, 4, 4]})
        return graph.to_json(), [w.tolist() for n in graph for w in n.weights]
    except tesu.ConversionError as error:
        return error.status, error.log, error.report


def test_thread_pool_matches_serial_results(workdir):
    models = [sample("mobile.pb"), sample("unsupported.pb"), example("tiny.json"),
              sample("mobile.json")] + [broken(f"ghost{i}") for i in range(8)]
    models = models * 3
    serial = [outcome(m) for m in models]
    with ThreadPoolExecutor(max_workers=4) as pool:
        parallel = list(pool.map(outcome, models))
    assert parallel == serial
    for i, result in enumerate(serial[4:12]):
        assert len(result[1]) == 1 and f'"ghost{i}:0"' in result[1][0]
    assert list(workdir.iterdir()) == []
