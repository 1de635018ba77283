/*
 * The scripted side of the node: small files under NODE_DIR that a test replaces at any time and that are read afresh
 * at each call. Nothing is cached, so several processes may come and go within one node.
 */
#ifndef SIM_SCRIPT_H
#define SIM_SCRIPT_H

#include <cstddef>
#include <cstdint>

#define NODE_DIR "/run/kolt-node"

/* Whether the process runs inside a simulated node at all. */
bool node_exists();

constexpr size_t PATH_SIZE = 160;

/*
 * The path of a file of one bridge, NODE_DIR/bridges/BRIDGE/FILE. False when the name cannot be a bridge's (null,
 * empty, too long, or a path of its own).
 */
bool bridge_path(char (&path)[PATH_SIZE], const char *bridge, const char *file);

/*
 * Reads up to `capacity` bytes from `offset` of a file. Returns the bytes read, or -1 without the file.
 */
long read_file(const char *path, void *buffer, size_t capacity);

/* The size of a file, or -1 without it. */
long file_size(const char *path);

/*
 * A rule file's first line holds triples of decimal numbers, FIRST LAST VALUE: calls FIRST to LAST (both counted from
 * 1; LAST 0 means no end) get VALUE. Each call that consults the file appends one dot behind that line, and the number
 * of dots is the number of the call: the count lives and dies with the file, survives the daemon, and replacing the
 * file starts it again. True when a triple covers this call.
 */
bool consult_rule(const char *path, long long *value);

/*
 * Scripted failure of a call: rules of NODE_DIR/fail/FUNCTION@BRIDGE (when a bridge is given), then of
 * NODE_DIR/fail/FUNCTION. True when the call is to fail, with the result to give.
 */
bool scripted_failure(const char *function, const char *bridge, int *result);

#endif
