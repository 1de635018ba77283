// Where a period's time goes. The linker sends the daemon's calls of libraries, pipes and files through this file,
// which takes the clocks before and after each; what lies between two such calls is the daemon's own work.
#pragma once

#include <array>
#include <cstddef>

enum period_part : size_t {
    OWN_CLIENTS,   // the client list from the forwarding and the HD table
    OWN_RANKING,   // the clients' busiest streams from the HA table
    OWN_PLACEMENT, // best path, HD path and stream moves, client by client
    OWN_OTHER,     // ports, path measurement, quotas, what parses files and pipes
    LIBRARY_TABLES,
    LIBRARY_CALLS, // bridge queries, and entries that are set
    DRIVER_PIPES,  // the driver's and the kernel's tables through child processes
    RUNTIME_FILES,
    NOTIFICATIONS, // what the parent node is told of moved streams
    PERIOD_PARTS,
};
constexpr size_t OWN_PARTS = LIBRARY_TABLES; // those before it

struct period_times {
    std::array<double, PERIOD_PARTS> cpu{};  // seconds of this process
    std::array<double, PERIOD_PARTS> wall{}; // seconds
    std::array<size_t, PERIOD_PARTS> calls{};

    [[nodiscard]] double own() const; // processor time of the daemon's own work
    [[nodiscard]] double own_wall() const;
    [[nodiscard]] double whole() const; // processor time of all
    [[nodiscard]] double whole_wall() const;
};

// What `function(argument)` costs.
period_times measure_parts(void (*function)(void *), void *argument);

// The processor time of this thread, in seconds.
double thread_seconds();
