// Every status of a conversion and every exit status of its front ends, with what each means.
// Parsers and host operations return a Status; tesu-convert exits with an exit status, which is
// also ConversionError.status in Python, so a script sees the same number whichever it used.
#ifndef TESU_STATUS_H
#define TESU_STATUS_H

#include <cstdint>

namespace tesu {

// A parser's or a host operation's result. 0 is success; any other value is handed upwards
// unchanged by the parser and the host.
using Status = uint32_t;

// Success.
constexpr Status SUCCESS = 0;
// A fault a parser found itself: the model is refused (for example an unsupported operator).
constexpr Status FAILED = 1;
// A converter refused a node's weights or inputs.
constexpr Status CONVERTER_INPUT_FAULT = 3;
// 10 to 13 are the graph library's (graph/types.h): an operation failed (10), a null or
// out-of-range argument (11), a node, edge or attribute not found (12), a serialised model that
// the graph library refuses (13).
constexpr Status GRAPH_STATUS_FIRST = 10;
constexpr Status GRAPH_STATUS_LAST = 13;
// A file could not be written: the directory is missing or not writable, the path is a
// directory, or the disk is full.
constexpr Status FILE_WRITE_FAILED = 20;

// Exit statuses. A parser's status becomes the exit status when it fits (ExitCodeFor).
// Any failure that has no status of its own: a file that cannot be read, no parser for the
// framework, an output that cannot be written.
constexpr int kFailure = 1;
// A command line or an argument refused before anything was read.
constexpr int kUsageError = 2;
// Memory ran out during the conversion; what was under way is named, and no output is left.
constexpr int kOutOfMemory = 21;
// A file that holds no model, found before the parser sees it: the status the graph library
// gives a malformed model, so the exit status does not depend on who noticed.
constexpr int kNotAModel = 13;

// A status as an exit status: the status itself when it fits (1-255), else kFailure.
inline int ExitCodeFor(Status status) {
  return status >= 1 && status <= 255 ? static_cast<int>(status) : kFailure;
}

// What a status means, in a few words; empty for a status of no known meaning.
inline const char* StatusMeaning(Status status) {
  if (status == SUCCESS) return "converted";
  if (status == FAILED) return "the parser refused the model";
  if (status == CONVERTER_INPUT_FAULT) return "a converter refused a node's weights or inputs";
  if (status >= GRAPH_STATUS_FIRST && status <= GRAPH_STATUS_LAST) {
    return "the graph library refused the model";
  }
  if (status == FILE_WRITE_FAILED) return "a file could not be written";
  return "";
}

// The exit statuses with a name, for front ends that list them (Python's tesu.ExitStatus).
struct ExitStatusName {
  int code;
  const char* name;
  const char* meaning;
};
inline constexpr ExitStatusName kExitStatusNames[] = {
    {0, "SUCCESS", "converted"},
    {kFailure, "FAILURE",
     "the parser refused the model (an unsupported operator), or a file could not be read, no "
     "parser serves the framework or an output could not be written"},
    {kUsageError, "USAGE", "the command line or an argument was refused"},
    {kOutOfMemory, "OUT_OF_MEMORY", "memory ran out during the conversion"},
    {CONVERTER_INPUT_FAULT, "CONVERTER_INPUT_FAULT",
     "a converter refused a node's weights or inputs"},
    {10, "GRAPH_FAILED", "the graph library could not carry out an operation"},
    {11, "GRAPH_PARAM_INVALID", "the graph library got a null or out-of-range argument"},
    {12, "GRAPH_NOT_FOUND", "a node, edge or attribute does not exist"},
    {kNotAModel, "NOT_A_MODEL", "the file or bytes hold no model the graph library accepts"},
    {FILE_WRITE_FAILED, "FILE_WRITE_FAILED", "the check report could not be written"},
};

}  // namespace tesu

#endif
