#ifndef TESU_LOG_LOG_H
#define TESU_LOG_LOG_H

#include <functional>
#include <string>

// Log levels; a message is printed when its level is at or above the threshold.
#define AI_LOG_DEBUG 0
#define AI_LOG_INFO 1
#define AI_LOG_WARNING 2
#define AI_LOG_ERROR 3

// Prints one line on stderr: a prefix naming the level and the module, then the message
// formatted printf-style, exactly as formatted.
extern "C" void AI_Log_Print(int level, const char* module, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

namespace tesu {
namespace log {

void SetLevel(int threshold);
int GetLevel();

// Receives every line at or above the threshold instead of stderr while installed; tests use
// it to capture lines. An empty function restores stderr.
using Sink = std::function<void(int level, const std::string& module, const std::string& text)>;
void SetSink(Sink sink);

}  // namespace log
}  // namespace tesu

#endif
