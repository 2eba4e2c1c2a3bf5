"""Convert models with the tesu parser plug-ins and inspect the graphs they produce.

    >>> import tesu
    >>> graph = tesu.convert("net.pb", input_shape={"data": [1, 3, 224, 224]})
    >>> graph.op_histogram()
    {'Activation': 12, 'Convolution': 10, ...}
    >>> graph.save("net.host.pb")

The plug-ins are the ones the ``tesu-convert`` command line loads, found in the same places:
the ``plugin_dir`` argument, else ``$TESU_PLUGIN_DIR``, else ``bin/plugins`` of the build tree
this package was built in. A failed conversion raises ConversionError, whose
``status`` is the command line's exit status. Log lines go to the ``logging`` logger "tesu".
Conversions release the GIL, so threads convert models in parallel.
"""

import logging
import operator
import os

from . import _tesu
from ._tesu import Graph, Node, TensorDesc

__all__ = ["convert", "load", "to_json", "frameworks", "ConversionError", "Graph", "Node",
           "TensorDesc"]

for _type in (Graph, Node, TensorDesc):
    _type.__module__ = __name__

logger = logging.getLogger("tesu")
# As for any library: the application decides where log lines go (ConversionError carries the
# lines of a failure either way).
logger.addHandler(logging.NullHandler())

# The converter's log levels (debug, info, warning, error) as logging levels.
_LEVELS = (logging.DEBUG, logging.INFO, logging.WARNING, logging.ERROR)


class ConversionError(RuntimeError):
    """A model could not be converted, loaded or dumped.

    Attributes:
        status: the exit status ``tesu-convert`` gives the same failure (1 for a refused
            model or an unsupported operator, 3 for a converter's refusal, 10-13 for the
            graph library's, 20 when the check report cannot be written).
        log: the log lines of that call, as ``tesu-convert`` prints them on stderr.
        report: the operator support report as a dict when one was written (an unsupported
            operator), else None.
    """

    def __init__(self, message, status, log=(), report=None):
        super().__init__(message)
        self.status = status
        self.log = list(log)
        self.report = report

    def __reduce__(self):
        # Rebuilt whole when it crosses a process boundary (a process pool, multiprocessing).
        return type(self), (str(self), self.status, self.log, self.report)


def _path_or_bytes(model):
    if isinstance(model, (bytes, bytearray, memoryview)):
        return bytes(model)
    if isinstance(model, (str, os.PathLike)):
        path = os.fspath(model)
        if isinstance(path, bytes):
            path = os.fsdecode(path)
        if not path:
            raise ValueError("model: empty path ''")
        return path
    raise TypeError(f"model must be a path or bytes, not {type(model).__name__}: {model!r}")


def _optional_path(keyword, value):
    if value is None:
        return None
    if not isinstance(value, (str, os.PathLike)):
        raise TypeError(f"{keyword} must be a path, not {type(value).__name__}: {value!r}")
    return os.fsdecode(value)


def _name(keyword, name):
    if not isinstance(name, str):
        raise TypeError(f"{keyword}: names must be str, not {type(name).__name__}: {name!r}")
    if not name or ";" in name or name != name.strip():
        raise ValueError(f"{keyword}: invalid name {name!r}")
    return name


def _integer(keyword, value):
    """An int, or anything that stands for one exactly (numpy integers), as text."""
    try:
        if isinstance(value, bool):
            raise TypeError
        return str(operator.index(value))
    except TypeError:
        raise TypeError(f"{keyword}: {value!r} is not an int") from None


def _named_value(keyword, value):
    """A data type or format: its name or its number."""
    if isinstance(value, str):
        if not value.strip() or any(c in value for c in ",;:"):
            raise ValueError(f"{keyword}: invalid value {value!r}")
        return value
    return _integer(keyword, value)


def _mapping(keyword, value):
    if not hasattr(value, "items"):
        raise TypeError(f"{keyword} must be a dict keyed by input name, not "
                        f"{type(value).__name__}: {value!r}")
    if not value:
        raise ValueError(f"{keyword}: empty {value!r}")
    return value.items()


def _shapes(value):
    items = []
    for name, dims in _mapping("input_shape", value):
        if isinstance(dims, (str, bytes)) or not hasattr(dims, "__iter__"):
            raise TypeError(f"input_shape[{name!r}] must be a list of ints, not {dims!r}")
        dims = ",".join(_integer(f"input_shape[{name!r}]", dim) for dim in dims)
        items.append(f"{_name('input_shape', name)}:{dims}")
    return ";".join(items)


def _per_input(keyword, value):
    return ";".join(f"{_name(keyword, name)}:{_named_value(f'{keyword}[{name!r}]', v)}"
                    for name, v in _mapping(keyword, value))


def _out_nodes(value):
    if isinstance(value, (str, bytes)) or not hasattr(value, "__iter__"):
        raise TypeError(f"out_nodes must be a list of (node name, output index) pairs, "
                        f"not {value!r}")
    indices = {}
    for pair in value:
        if not isinstance(pair, (tuple, list)) or len(pair) != 2:
            raise TypeError(f"out_nodes: {pair!r} is not a (node name, output index) pair")
        name, index = pair
        indices.setdefault(_name("out_nodes", name), []).append(_integer("out_nodes", index))
    if not indices:
        raise ValueError(f"out_nodes: empty {value!r}")
    return ";".join(f"{name}:{','.join(found)}" for name, found in indices.items())


def _output_formats(value):
    if isinstance(value, (str, bytes)) or not hasattr(value, "__iter__"):
        raise TypeError(f"output_format must be a list of formats, not {value!r}")
    return ",".join(_named_value("output_format", f) for f in value)


def _framework(value):
    value = int(_integer("framework", value))
    if not -2**31 <= value < 2**31:
        raise ValueError(f"framework {value!r}: no parser (out of range)")
    return value


def _threshold():
    return 0 if logger.isEnabledFor(logging.DEBUG) else 1


def _finish(outcome):
    """Passes the call's log lines to logging, then returns its outcome or raises."""
    for level, module, text, _ in outcome.log:
        logger.log(_LEVELS[level] if 0 <= level < len(_LEVELS) else logging.ERROR,
                   "[%s] %s", module, text)
    if outcome.status != 0:
        import json
        report = json.loads(outcome.report) if outcome.report else None
        raise ConversionError(outcome.message, outcome.status,
                              [line for *_, line in outcome.log], report)
    return outcome


def convert(model, *, input_shape=None, input_type=None, input_format=None, out_nodes=None,
            output_format=None, framework=6, check_report=None, plugin_dir=None):
    """Converts a model with the parser plug-in of ``framework`` and returns the Graph.

    Args:
        model: a path to a model file (binary, or its JSON form), or the model's bytes.
        input_shape: dimensions per input, e.g. ``{"data": [1, 3, 224, 224]}``; -1 is
            unknown, an empty list means no dimensions.
        input_type: data type per input, by name or number, e.g. ``{"data": "FLOAT16"}``.
        input_format: format per input, by name or number, e.g. ``{"data": "NHWC"}``.
        out_nodes: the (node name, output index) pairs that become the graph outputs, e.g.
            ``[("conv1", 0), ("split", 2)]``.
        output_format: format per graph output, by ordinal, e.g. ``["NC1HWC0", "NCHW"]``.
        framework: the framework type whose parser converts the model (6 by default).
        check_report: where the operator support report is written (a file, or a directory
            that gets check_result.json); by default it is written nowhere and only returned
            with the error.
        plugin_dir: the directory to load parser plug-ins from (see the module's help).

    Raises:
        TypeError, ValueError: an argument was refused; nothing was loaded or written.
        ConversionError: the conversion failed; see its status, log and report.
    """
    outcome = _tesu._convert(
        _path_or_bytes(model),
        None if input_shape is None else _shapes(input_shape),
        None if input_type is None else _per_input("input_type", input_type),
        None if input_format is None else _per_input("input_format", input_format),
        None if out_nodes is None else _out_nodes(out_nodes),
        None if output_format is None else _output_formats(output_format),
        _framework(framework), _optional_path("check_report", check_report),
        _optional_path("plugin_dir", plugin_dir) or "", _threshold())
    return _finish(outcome).graph


def load(model):
    """Loads a model (path or bytes, binary or JSON form) as it is, unconverted, as a Graph.

    Raises ConversionError, with the graph library's status, when the model is malformed.
    """
    return _finish(_tesu._load(_path_or_bytes(model), _threshold())).graph


def to_json(model, *, framework=6, plugin_dir=None):
    """The plug-in's JSON dump of a binary model (path or bytes), as a dict.

    This is what ``tesu-convert --to-json`` writes: the whole model, tensor bytes left out.
    """
    import json
    outcome = _tesu._to_json(_path_or_bytes(model), _framework(framework),
                             _optional_path("plugin_dir", plugin_dir) or "", _threshold())
    return json.loads(_finish(outcome).json)


def frameworks(*, plugin_dir=None):
    """The framework types the loaded parser plug-ins serve, ascending."""
    return _tesu._frameworks(_optional_path("plugin_dir", plugin_dir) or "")
