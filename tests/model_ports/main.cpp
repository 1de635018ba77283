// Runs the loop avoidance module on every combination of ports and says what it found.
//   port_model [--jobs N] [PORTS]
// Up to PORTS ports, 3 by default and 6 at most. Up to two are taken in both orders on the bridge, more in one.
#include "model_ports/explore.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned ORDERED_PORTS = 2;
constexpr unsigned USUAL_PORTS = 3;

struct tally {
    uint64_t combinations = 0;
    uint64_t states = 0;
    uint64_t events = 0;
    uint64_t calls = 0;
    uint64_t wrong = 0;
};

// The next combination of as many kinds; false after the last one.
bool advance(std::vector<uint32_t> *kinds) {
    const bool ordered = kinds->size() <= ORDERED_PORTS;
    for (size_t i = kinds->size(); i-- > 0;) {
        if (++(*kinds)[i] < PORT_KINDS) {
            std::fill(kinds->begin() + static_cast<ptrdiff_t>(i) + 1, kinds->end(), ordered ? 0 : (*kinds)[i]);
            return true;
        }
    }
    return false;
}

// Every `jobs`th combination of so many ports. The first that is wrong is printed.
tally explore_share(unsigned count, unsigned job, unsigned jobs) {
    tally all;
    std::vector<uint32_t> kinds(count);
    uint64_t number = 0;
    do {
        if (number++ % jobs != job)
            continue;
        std::array<port_kind, NODE_MAX_PORTS> ports{};
        std::transform(kinds.begin(), kinds.end(), ports.begin(), kind_of);
        const explored found = explore_ports(std::span(ports).first(count));
        all.combinations++;
        all.states += found.states;
        all.events += found.events;
        if (!found.wrong.empty() && all.wrong++ == 0)
            printf("%s\n", found.wrong.c_str());
    } while (advance(&kinds));
    all.calls = node.calls;
    node.calls = 0;
    return all;
}

// The module and what answers it are one of a kind in a process: each share has one of its own.
int begin_share(unsigned count, unsigned job, unsigned jobs) {
    int ends[2];
    if (pipe(ends) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        const tally all = explore_share(count, job, jobs);
        fflush(stdout);
        _exit(write(ends[1], &all, sizeof all) == sizeof all ? 0 : 1);
    }
    close(ends[1]);
    return child < 0 ? -1 : ends[0];
}

bool add_share(int from, tally *all) {
    tally share;
    const bool whole = from >= 0 && read(from, &share, sizeof share) == sizeof share;
    close(from);
    if (!whole)
        return false;
    all->combinations += share.combinations;
    all->states += share.states;
    all->events += share.events;
    all->calls += share.calls;
    all->wrong += share.wrong;
    return true;
}

bool explore_count(unsigned count, unsigned jobs) {
    std::vector<int> shares;
    for (unsigned job = 0; job < jobs; job++)
        shares.push_back(begin_share(count, job, jobs));
    tally all;
    bool whole = true;
    for (const int share : shares)
        whole &= add_share(share, &all);
    while (wait(nullptr) > 0) {
    }
    printf("%u ports %9" PRIu64 " combinations %12" PRIu64 " states %13" PRIu64 " events %14" PRIu64 " calls %5" PRIu64
           " wrong\n",
           count, all.combinations, all.states, all.events, all.calls, all.wrong);
    fflush(stdout);
    return whole && all.wrong == 0;
}

} // namespace

int main(int argc, char **argv) {
    unsigned most = USUAL_PORTS;
    unsigned jobs = 1;
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--jobs") == 0 && i + 1 < argc)
            jobs = static_cast<unsigned>(std::clamp(atoi(argv[++i]), 1, 64));
        else
            most = static_cast<unsigned>(std::clamp(atoi(argv[i]), 1, int{NODE_MAX_PORTS}));
    }
    bool right = true;
    for (unsigned count = 1; count <= most; count++)
        right &= explore_count(count, jobs);
    puts(right ? "never more than one nonrelay port of a class carries broadcast, and never none" : "FAILED");
    return right ? 0 : 1;
}
