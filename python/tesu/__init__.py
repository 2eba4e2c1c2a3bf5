"""Convert models with the tesu parser plug-ins and inspect the graphs they produce.

    >>> import tesu
    >>> graph = tesu.convert("net.pb", input_shape={"data": [1, 3, 224, 224]})
    >>> graph.op_histogram()
    {'Activation': 12, 'Convolution': 10, ...}
    >>> graph.save("net.host.pb")

The plug-ins are the ones the ``tesu-convert`` command line loads, found in the same places:
the ``plugin_dir`` argument, else ``$TESU_PLUGIN_DIR``, else the package's own ``plugins``
folder (the build tree's or the installed plug-ins). A failed conversion raises ConversionError, whose
``status`` is the command line's exit status (ExitStatus). Log lines go to the ``logging`` logger "tesu".
Conversions release the GIL, so threads convert models in parallel.
"""

import enum
import errno
import logging
import operator
import os
import warnings

from . import _tesu
from ._tesu import Graph, Node, TensorDesc

__all__ = ["convert", "load", "to_json", "frameworks", "ConversionError", "ExitStatus", "Graph",
           "Node", "TensorDesc", "__version__"]

for _type in (Graph, Node, TensorDesc):
    _type.__module__ = __name__

logger = logging.getLogger("tesu")
# As for any library: the application decides where log lines go (ConversionError carries the
# lines of a failure either way).
logger.addHandler(logging.NullHandler())

# The converter's log levels (debug, info, warning, error) as logging levels.
_LEVELS = (logging.DEBUG, logging.INFO, logging.WARNING, logging.ERROR)

# The exit statuses of tesu-convert, which ConversionError.status takes, named as the converter
# names them (tesu/status.h).
ExitStatus = enum.IntEnum(
    "ExitStatus", [(name, code) for code, name, _ in _tesu._exit_statuses()], module=__name__)
ExitStatus.__doc__ = "\n".join(
    ["The exit statuses of tesu-convert, also ConversionError.status:", ""] +
    [f"{name} ({code}): {meaning}" for code, name, meaning in _tesu._exit_statuses()])


def _status(code):
    try:
        return ExitStatus(code)
    except ValueError:
        return code


class ConversionError(RuntimeError):
    """A model could not be converted, loaded or dumped, or the plug-ins could not be loaded.

    Its message ends with the log line of the failure, when there is one.

    Attributes:
        status: the exit status ``tesu-convert`` gives the same failure, an ExitStatus when
            it has a name (FAILURE 1 for a refused model or an unsupported operator,
            CONVERTER_INPUT_FAULT 3, 10-13 for the graph library's refusal, FILE_WRITE_FAILED
            20 when the check report cannot be written).
        log: the log lines of that call, as ``tesu-convert`` prints them on stderr.
        report: the operator support report as a dict when one was written (an unsupported
            operator), else None.
    """

    def __init__(self, message, status, log=(), report=None):
        super().__init__(message)
        self.status = _status(status)
        self.log = list(log)
        self.report = report

    def __reduce__(self):
        # Rebuilt whole when it crosses a process boundary (a process pool, multiprocessing).
        return type(self), (str(self), self.status, self.log, self.report)


def _path_error(base, code):
    """A ConversionError that is also the OSError Python raises for the path's fault."""
    def __init__(self, message, status, log=(), report=None, filename=None):
        ConversionError.__init__(self, message, status, log, report)
        self.errno = code
        self.strerror = os.strerror(code)
        self.filename = filename

    def __str__(self):
        return self.args[0]

    return type(base.__name__, (ConversionError, base),
                {"__init__": __init__, "__str__": __str__, "__module__": __name__,
                 "__doc__": f"A model path that is refused as {base.__name__} is."})


_PATH_ERRORS = {code: _path_error(base, code) for code, base in (
    (errno.ENOENT, FileNotFoundError), (errno.EISDIR, IsADirectoryError),
    (errno.EACCES, PermissionError))}


def _fspath(keyword, value):
    """A path as bytes, as the file system names it (str, bytes or os.PathLike)."""
    if not isinstance(value, (str, bytes, os.PathLike)):
        raise TypeError(f"{keyword} must be a path, not {type(value).__name__}: {value!r}")
    return os.fsencode(value)


def _request(model, plugin_dir=None, framework=None):
    """A request for `model` (a path or bytes), and the model's bytes or None for a path."""
    request = _tesu._Request()
    request.log_level = 0 if logger.isEnabledFor(logging.DEBUG) else 1
    if plugin_dir is not None:
        request.plugin_dir = _fspath("plugin_dir", plugin_dir)
    if framework is not None:
        request.framework = _framework(framework)
    if isinstance(model, (bytes, bytearray, memoryview)):
        return request, bytes(model)
    if not isinstance(model, (str, os.PathLike)):
        raise TypeError(f"model must be a path or bytes, not {type(model).__name__}: {model!r}")
    path = _fspath("model", model)
    if not path:
        raise ValueError("model: empty path ''")
    request.model_path = path
    return request, None


def _name(keyword, name):
    if not isinstance(name, str):
        raise TypeError(f"{keyword}: names must be str, not {type(name).__name__}: {name!r}")
    if not name or ";" in name or name != name.strip():
        raise ValueError(f"{keyword}: invalid name {name!r}")
    return name


def _integer(keyword, value):
    """An int, or anything that stands for one exactly (numpy integers)."""
    try:
        if isinstance(value, bool):
            raise TypeError
        return operator.index(value)
    except TypeError:
        raise TypeError(f"{keyword}: {value!r} is not an int") from None


def _named_value(keyword, value):
    """A data type or format: its name or its number, as the converter reads it."""
    if isinstance(value, str):
        if not value.strip() or any(c in value for c in ",;:"):
            raise ValueError(f"{keyword}: invalid value {value!r}")
        return value
    return str(_integer(keyword, value))


def _mapping(keyword, value):
    if not hasattr(value, "items"):
        raise TypeError(f"{keyword} must be a dict keyed by input name, not "
                        f"{type(value).__name__}: {value!r}")
    if not value:
        raise ValueError(f"{keyword}: empty {value!r}")
    return value.items()


def _sequence(keyword, value, what):
    if isinstance(value, (str, bytes)) or not hasattr(value, "__iter__"):
        raise TypeError(f"{keyword} must be a list of {what}, not {value!r}")
    return value


def _set_shapes(request, value):
    for name, dims in _mapping("input_shape", value):
        dims = _sequence(f"input_shape[{name!r}]", dims, "ints")
        dims = [_integer(f"input_shape[{name!r}]", dim) for dim in dims]
        request.set_input_shape(_name("input_shape", name), dims)


def _set_per_input(keyword, value, setter):
    for name, v in _mapping(keyword, value):
        setter(_name(keyword, name), _named_value(f"{keyword}[{name!r}]", v))


def _set_out_nodes(request, value):
    pairs = list(_sequence("out_nodes", value, "(node name, output index) pairs"))
    for pair in pairs:
        if not isinstance(pair, (tuple, list)) or len(pair) != 2:
            raise TypeError(f"out_nodes: {pair!r} is not a (node name, output index) pair")
        name, index = pair
        request.add_out_node(_name("out_nodes", name), _integer("out_nodes", index))
    if not pairs:
        raise ValueError(f"out_nodes: empty {value!r}")


def _set_output_formats(request, value):
    for f in _sequence("output_format", value, "formats"):
        request.add_output_format(_named_value("output_format", f))


def _framework(value):
    value = _integer("framework", value)
    if not -2**31 <= value < 2**31:
        raise ValueError(f"framework {value!r}: no parser (out of range)")
    return value


def _failed_line(log):
    """The last log line of the failure: an error, else a warning."""
    for least in (logging.ERROR, logging.WARNING):
        for level, _, _, line in reversed(log):
            if _LEVELS[min(max(level, 0), len(_LEVELS) - 1)] >= least:
                return line
    return None


def _finish(result):
    """Passes the call's log lines to logging and its warnings to warnings, then returns its
    result or raises."""
    for level, module, text, _ in result.log:
        logger.log(_LEVELS[level] if 0 <= level < len(_LEVELS) else logging.ERROR,
                   "[%s] %s", module, text)
    for warning in result.warnings:
        warnings.warn(warning, stacklevel=3)
    if result.exit_code == 0:
        return result
    if result.failure == "no_parser":
        registered = ", ".join(map(str, result.registered)) or "none"
        raise ValueError(f"{result.error} (registered: {registered})")
    import json
    report = json.loads(result.check_report) if result.check_report else None
    message = result.error
    if report is not None and result.unsupported_types:
        message += "; unsupported operator types: " + result.unsupported_types
    line = _failed_line(result.log)
    if line is not None:
        message += "\n" + line
    lines = [line for *_, line in result.log]
    error = _PATH_ERRORS.get(result.file_error)
    if error is not None:
        raise error(message, result.exit_code, lines, report, result.model)
    raise ConversionError(message, result.exit_code, lines, report)


def convert(model, *, input_shape=None, input_type=None, input_format=None, out_nodes=None,
            output_format=None, framework=None, check_report=None, save_check_report=False,
            plugin_dir=None):
    """Converts a model with the parser plug-in of ``framework`` and returns the Graph.

    Args:
        model: a path to a model file (str, bytes or os.PathLike; binary, or its JSON form), or
            the model's bytes.
        input_shape: dimensions per input, e.g. ``{"data": [1, 3, 224, 224]}``; -1 is
            unknown, an empty list means no dimensions.
        input_type: data type per input, by name or number, e.g. ``{"data": "FLOAT16"}``.
        input_format: format per input, by name or number, e.g. ``{"data": "NHWC"}``.
        out_nodes: the (node name, output index) pairs that become the graph outputs, e.g.
            ``[("conv1", 0), ("split", 2)]``.
        output_format: format per graph output, by ordinal, e.g. ``["NC1HWC0", "NCHW"]``.
        framework: the framework type whose parser converts the model; by default the one
            whose plug-in reads this host's model format.
        check_report: where the operator support report is written (a file, or a directory
            that gets check_result.json); by default it is written nowhere and only returned
            with the error, or as ``graph.check_report``.
        save_check_report: write the report even when every operator is supported; the
            graph's ``check_report`` then holds it.
        plugin_dir: the directory to load parser plug-ins from (see the module's help).

    A designated input, output node or output index that matches nothing in the graph is
    reported with ``warnings.warn``; the conversion goes on without it.

    Raises:
        TypeError, ValueError: an argument was refused (ValueError also when no plug-in
            serves the framework); nothing was loaded or written.
        FileNotFoundError, IsADirectoryError, PermissionError: the model path; each is also a
            ConversionError.
        ConversionError: the conversion failed; see its status, log and report.
    """
    request, data = _request(model, plugin_dir, framework)
    if input_shape is not None:
        _set_shapes(request, input_shape)
    if input_type is not None:
        _set_per_input("input_type", input_type, request.set_input_type)
    if input_format is not None:
        _set_per_input("input_format", input_format, request.set_input_format)
    if out_nodes is not None:
        _set_out_nodes(request, out_nodes)
    if output_format is not None:
        _set_output_formats(request, output_format)
    if check_report is not None:
        request.check_report = _fspath("check_report", check_report)
        if not request.check_report:
            raise ValueError('check_report: empty path ""')
    request.save_check_report = bool(save_check_report)
    return _finish(_tesu._convert(request, data)).graph


def load(model):
    """Loads a model (path or bytes, binary or JSON form) as it is, unconverted, as a Graph.

    Raises ConversionError, with the graph library's status, when the model is malformed.
    """
    return _finish(_tesu._load(*_request(model))).graph


def to_json(model, *, framework=None, plugin_dir=None):
    """The plug-in's JSON dump of a model (path or bytes), as a dict.

    This is what ``tesu-convert --to-json`` writes: the whole model, tensor bytes left out. The
    plug-in reads the file as it is.
    """
    import json
    return json.loads(_finish(_tesu._to_json(*_request(model, plugin_dir, framework))).json)


def frameworks(*, plugin_dir=None):
    """The framework types the loaded parser plug-ins serve, ascending.

    Raises ConversionError when the plug-in directory cannot be read.
    """
    types, where = _tesu._frameworks(b"" if plugin_dir is None else
                                     _fspath("plugin_dir", plugin_dir))
    if types is None:
        raise ConversionError(where, ExitStatus.FAILURE)
    return types


# The version of the converter this module was built with, as tesu-convert --version prints it.
__version__ = _tesu.__version__
