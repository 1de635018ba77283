// Runs the model's cases and says what it found.
//   mesh_model [--long] [--jobs N] [--show N] [--break RULE] TOPOLOGY.json...
// With a rule that is broken it ends at the first case that shows it.
#include "model_mesh/check.h"
#include "model_mesh/plan.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

constexpr struct {
    const char *name;
    mutation broken;
} RULES[] = {{"grant-while-waiting", mutation::GRANT_WHILE_WAITING},
             {"join-without-grant", mutation::JOIN_WITHOUT_GRANT},
             {"old-grants", mutation::OLD_GRANTS},
             {"open-before-closing", mutation::OPEN_BEFORE_CLOSING},
             {"no-split-horizon", mutation::NO_SPLIT_HORIZON},
             {"old-record", mutation::OLD_RECORD},
             {"take-everywhere", mutation::TAKE_EVERYWHERE},
             {"heard-alone", mutation::HEARD_ALONE},
             {"old-frames", mutation::OLD_FRAMES}};

struct options {
    bool long_form = false;
    unsigned jobs = 1;
    unsigned show = 10;
    mutation broken = mutation::NONE;
    std::vector<topology> places;
};

struct tally {
    std::atomic<uint64_t> cases = 0;
    std::atomic<uint64_t> moments = 0;
    std::atomic<uint64_t> loops = 0;
    std::atomic<uint64_t> lost = 0;
    std::mutex mutex;
    unsigned shown = 0;
};

void judge(const mesh_case &one, const mesh &begin, const options &chosen, tally *all) {
    const verdict found = run_case(one, begin, chosen.broken);
    all->cases++;
    all->moments += found.checks;
    if (found.violation.empty())
        return;
    (found.loop ? all->loops : all->lost)++;
    const std::lock_guard lock(all->mutex);
    if (all->shown++ < chosen.show)
        printf("%s\n    %s\n", describe(one).c_str(), found.violation.c_str());
}

// Several threads go through the same plan, and each takes every so manieth case. One that looks for a broken rule
// stops at the first loop.
void explore(const topology &where, bool reversed, const options &chosen, tally *all) {
    const mesh begin = settled(where, reversed, chosen.broken);
    const std::string lost = begin.violation.empty() ? who_is_lost(begin, false) : begin.violation;
    if (!lost.empty()) {
        all->loops += begin.violation.empty() ? 0 : 1;
        all->lost += begin.violation.empty() ? 1 : 0;
        if (all->shown++ < chosen.show)
            printf("%s%s before anything happens\n    %s\n", where.name.c_str(), reversed ? " reversed" : "",
                   lost.c_str());
        return;
    }
    const effort how = chosen.long_form ? long_effort() : short_effort();
    std::vector<std::thread> threads;
    for (unsigned job = 0; job < chosen.jobs; job++) {
        threads.emplace_back([&, job] {
            uint64_t number = 0;
            plan_cases(where, reversed, how, [&](const mesh_case &one) {
                const bool done = chosen.broken != mutation::NONE && all->loops + all->lost > 0;
                if (number++ % chosen.jobs == job && !done)
                    judge(one, begin, chosen, all);
            });
        });
    }
    for (std::thread &one : threads)
        one.join();
}

// 0 when nothing was found.
uint64_t explore_all(const options &chosen) {
    uint64_t found = 0;
    uint64_t cases = 0;
    uint64_t moments = 0;
    for (const topology &where : chosen.places) {
        tally all;
        for (const bool reversed : {false, true}) {
            if (chosen.broken == mutation::NONE || found == 0)
                explore(where, reversed, chosen, &all);
        }
        found += all.loops + all.lost;
        cases += all.cases;
        moments += all.moments;
        printf("%-12s %9" PRIu64 " cases %10" PRIu64 " moments %6" PRIu64 " loops %6" PRIu64 " not at rest\n",
               where.name.c_str(), all.cases.load(), all.moments.load(), all.loops.load(), all.lost.load());
        fflush(stdout);
        if (chosen.broken != mutation::NONE && found > 0)
            break;
    }
    printf("%-12s %9" PRIu64 " cases %10" PRIu64 " moments: %s\n", "in all", cases, moments,
           found == 0 ? "none fails" : "some FAIL");
    return found;
}

mutation rule_called(const char *name) {
    for (const auto &rule : RULES) {
        if (strcmp(rule.name, name) == 0)
            return rule.broken;
    }
    fprintf(stderr, "no such rule: %s\n", name);
    exit(2);
}

options parse(int argc, char **argv) {
    options chosen;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        const bool more = i + 1 < argc;
        if (word == "--long")
            chosen.long_form = true;
        else if (word == "--jobs" && more)
            chosen.jobs = static_cast<unsigned>(std::max(1, atoi(argv[++i])));
        else if (word == "--show" && more)
            chosen.show = static_cast<unsigned>(atoi(argv[++i]));
        else if (word == "--break" && more)
            chosen.broken = rule_called(argv[++i]);
        else
            chosen.places.push_back(load_topology(word));
    }
    return chosen;
}

} // namespace

int main(int argc, char **argv) {
    const options chosen = parse(argc, argv);
    if (chosen.places.empty()) {
        fprintf(stderr, "usage: mesh_model [--long] [--jobs N] [--show N] [--break RULE] TOPOLOGY...\n");
        return 2;
    }
    return explore_all(chosen) == 0 ? 0 : 1;
}
