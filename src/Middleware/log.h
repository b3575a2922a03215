// Logging module: a level filter in front of a replaceable sink. Every other module of the
// client logs through the four level functions; nothing in the library prints elsewhere
// except where a message is defined to go to a standard stream.
#pragma once

#include <cstdarg>

#include "zk_log.h"

void default_log(const char* message, va_list args);
void custom_api_log(const char* message, va_list args);

// True when a line of this level would pass the filter; lets callers skip building
// expensive arguments for debug lines nobody will see.
bool zk_log_enabled(LogLevel level);
