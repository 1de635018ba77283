// The daemon's log: every line goes to syslog as "function:line: Level: text".
//
// The plain macros name the function that they stand in. The _AS variants name the public operation that a file-local
// helper works for, so that a reader of the log finds the name that the operation is known by.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <syslog.h>

enum kolt_log_level : int32_t { KOLT_LOG_QUIET = 0, KOLT_LOG_INFO = 1, KOLT_LOG_DEBUG = 2, KOLT_LOG_DUMP = 3 };

// Verbosity threshold, KOLT_LOG_INFO at start; errors are written whatever it says.
extern int32_t log_level;

#define KOLT_SYSLOG(priority, function, text, ...)                                                                     \
    syslog(priority, "%s:%d: " text, function, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#define KOLT_SYSLOG_AT(threshold, priority, function, text, ...)                                                       \
    do {                                                                                                               \
        if (log_level >= (threshold))                                                                                  \
            KOLT_SYSLOG(priority, function, text __VA_OPT__(, ) __VA_ARGS__);                                          \
    } while (0)

// Both fatal forms end the process with status 1; the second adds the text of errno.
#define KOLT_FATAL_AS(function, text, ...)                                                                             \
    do {                                                                                                               \
        KOLT_SYSLOG(LOG_EMERG, function, "Fatal: " text __VA_OPT__(, ) __VA_ARGS__);                                   \
        exit(EXIT_FAILURE);                                                                                            \
    } while (0)
#define KOLT_FATAL_ERRNO_AS(function, text, ...)                                                                       \
    do {                                                                                                               \
        KOLT_SYSLOG(LOG_EMERG, function, "Fatal(%s): " text, strerror(errno) __VA_OPT__(, ) __VA_ARGS__);              \
        exit(EXIT_FAILURE);                                                                                            \
    } while (0)

#define KOLT_ERROR_AS(function, text, ...) KOLT_SYSLOG(LOG_ERR, function, "Error: " text __VA_OPT__(, ) __VA_ARGS__)

// Any level but 0 shows Info, a negative one included: the level that a program sets is signed.
#define KOLT_INFO_AS(function, text, ...)                                                                              \
    do {                                                                                                               \
        if (log_level != KOLT_LOG_QUIET)                                                                               \
            KOLT_SYSLOG(LOG_INFO, function, "Info: " text __VA_OPT__(, ) __VA_ARGS__);                                 \
    } while (0)
#define KOLT_DEBUG_AS(function, text, ...)                                                                             \
    KOLT_SYSLOG_AT(KOLT_LOG_DEBUG, LOG_DEBUG, function, "Debug: " text __VA_OPT__(, ) __VA_ARGS__)
#define KOLT_DUMP_AS(function, text, ...)                                                                              \
    KOLT_SYSLOG_AT(KOLT_LOG_DUMP, LOG_DEBUG, function, "Dump: " text __VA_OPT__(, ) __VA_ARGS__)

#define KOLT_FATAL(text, ...) KOLT_FATAL_AS(__func__, text __VA_OPT__(, ) __VA_ARGS__)
#define KOLT_ERROR(text, ...) KOLT_ERROR_AS(__func__, text __VA_OPT__(, ) __VA_ARGS__)
#define KOLT_INFO(text, ...) KOLT_INFO_AS(__func__, text __VA_OPT__(, ) __VA_ARGS__)
#define KOLT_DEBUG(text, ...) KOLT_DEBUG_AS(__func__, text __VA_OPT__(, ) __VA_ARGS__)
#define KOLT_DUMP(text, ...) KOLT_DUMP_AS(__func__, text __VA_OPT__(, ) __VA_ARGS__)
