#include "model_mesh/plan.h"

#include <algorithm>

namespace {

constexpr uint64_t LONG_SILENCE_MS = 24000; // a silent neighbour is remembered for 20 s
constexpr uint64_t MISSED_MS = 500;         // until a kolt-bridged that has died is missed
constexpr uint64_t NOT_MISSED_MS = 100;

// What a random schedule does to frames: nearly in order, out of order between links, and lost as well.
schedule random_schedule(uint64_t seed) {
    constexpr struct {
        uint32_t loss_permille;
        uint32_t jitter_ms;
    } KINDS[] = {{0, 20}, {0, 120}, {0, 450}, {60, 60}, {250, 150}};
    schedule made;
    made.seed = seed;
    made.loss_permille = KINDS[seed % 5].loss_permille;
    made.jitter_ms = KINDS[seed % 5].jitter_ms;
    made.notice_ms = {static_cast<uint16_t>(seed * 7 % 3 * 30), static_cast<uint16_t>(seed * 11 % 4 * 25)};
    return made;
}

// Links that are slow in one direction or both; pattern 0 has none.
schedule latency_schedule(uint64_t pattern, size_t directions) {
    constexpr uint16_t LATENCIES[] = {1, 75, 240};
    schedule made;
    for (size_t i = 0; i < directions; i++) {
        made.latency_ms.push_back(LATENCIES[pattern % 3]);
        pattern /= 3;
    }
    return made;
}

uint64_t power_of_three(size_t exponent) {
    uint64_t power = 1;
    for (size_t i = 0; i < exponent && power < UINT32_MAX; i++)
        power *= 3;
    return power;
}

class planner {
public:
    planner(const topology &where, bool reversed, const effort &how, const std::function<void(mesh_case)> &each)
        : where_(where), reversed_(reversed), how_(how), each_(each) {}

    void starts() {
        for (uint32_t seed = 1; seed <= how_.starts; seed++) {
            mesh_case one = begin({{0, {happening::HEAL, 0}}}, random_schedule(seed));
            one.from_start = true;
            each_(one);
            one.events = {{static_cast<uint64_t>(seed * 37 % 900), event_number(seed)}};
            each_(one);
        }
    }

    void singles(const event &first) {
        each_(begin({{0, first}}, {}));
        for (uint32_t seed = 1; seed <= how_.seeds_single; seed++)
            each_(begin({{0, first}}, random_schedule(seed)));
        for (uint32_t frame = 0; frame < how_.late_frames; frame++) {
            for (const uint16_t delay : {uint16_t{0}, uint16_t{40}, uint16_t{170}, uint16_t{700}}) {
                schedule frames;
                frames.exceptions = {{.frame = frame, .delay_ms = delay, .lost = delay == 0}};
                each_(begin({{0, first}}, frames));
            }
        }
        const size_t directions = 2 * where_.links.size();
        const uint64_t all = power_of_three(directions);
        for (uint32_t i = 1; i < std::min<uint64_t>(all, how_.latency_patterns); i++) {
            const uint64_t pattern = all <= how_.latency_patterns ? i : i * 0x9e3779b97f4a7c15 >> 20;
            each_(begin({{0, first}}, latency_schedule(pattern, directions)));
        }
    }

    void pairs(const event &first) {
        for (const event &second : later_events(where_, first)) {
            const uint32_t every = is_of_full_queue(first, second) ? how_.every_queue : how_.every;
            if (second.kind == happening::CRASH || count_++ % every != 0)
                continue;
            for (const uint64_t gap : how_.gaps_ms) {
                each_(begin({{0, first}, {gap, second}}, {}));
                for (uint32_t seed = 1; seed <= how_.seeds_pair; seed++)
                    each_(begin({{0, first}, {gap, second}}, random_schedule(seed + count_ * 31 + gap)));
            }
        }
    }

    // A link that returns when its ends have had the time to forget each other, whether their kolt-bridged lived until
    // then or not. If one died unnoticed, and what it leaves open can be heard without hearing this end, none can tell.
    void long_silences(const event &first) {
        if (first.kind < happening::SILENCE || first.kind > happening::SILENCE_SECOND)
            return;
        const topology_link &link = where_.links[static_cast<size_t>(first.subject)];
        const uint64_t gap_ms = first.kind == happening::SILENCE ? NOT_MISSED_MS : MISSED_MS;
        const timed_event heal = {LONG_SILENCE_MS, {happening::HEAL, first.subject}};
        for (const int dead : {-1, link.node[0], link.node[1]}) {
            if (dead < 0)
                each_(begin({{0, first}, heal}, {}));
            else
                each_(begin({{0, {happening::KILL, dead}}, {gap_ms, first}, heal}, {}));
        }
    }

    // Two losses with little time between them, while the words of the first are still on their way over slow links.
    void races(const event &first) {
        for (const event &second : first_events(where_)) {
            if (!is_loss(first) || !is_loss(second) || first == second)
                continue;
            for (uint32_t i = 0; i < how_.races; i++) {
                const uint64_t dice = (count_++ + 1) * 0x9e3779b97f4a7c15;
                constexpr uint64_t GAPS_MS[] = {1, 4, 20, 80, 160, 250, 500};
                each_(begin({{0, first}, {GAPS_MS[(dice >> 50) % 7], second}},
                            latency_schedule(dice >> 16, 2 * where_.links.size())));
            }
        }
    }

    // The crash is in what another event leads to; some time later the next life begins.
    void crashes(const event &crash) {
        for (const event &first : first_events(where_)) {
            if (first.kind == happening::CRASH || count_++ % how_.every != 0)
                continue;
            each_(begin({{0, crash}, {0, first}}, {}));
            for (const uint64_t later : how_.later_ms) {
                each_(begin({{0, crash}, {0, first}, {later, {happening::START, crash.subject}}}, {}));
                for (uint32_t seed = 1; seed <= how_.seeds_pair; seed++) {
                    each_(begin({{0, crash}, {0, first}, {later, {happening::START, crash.subject}}},
                                random_schedule(seed + count_ * 17 + later)));
                }
            }
        }
    }

private:
    static bool is_loss(const event &what) {
        return what.kind == happening::DOWN || what.kind == happening::POWER_OFF || what.kind == happening::START;
    }

    static bool is_of_full_queue(const event &first, const event &second) {
        return first.kind >= happening::LATE && first.kind <= happening::NO_ECHO_SECOND &&
               second.kind <= happening::HEAL && second.subject == first.subject;
    }

    mesh_case begin(std::vector<timed_event> events, schedule frames) {
        return {.where = &where_, .reversed = reversed_, .events = std::move(events), .frames = std::move(frames)};
    }

    event event_number(uint32_t number) {
        const std::vector<event> events = first_events(where_);
        return events[number * 7919 % events.size()];
    }

    const topology &where_;
    bool reversed_;
    const effort &how_;
    const std::function<void(mesh_case)> &each_;
    uint64_t count_ = 0;
};

} // namespace

effort short_effort() {
    return {.gaps_ms = {330},
            .later_ms = {200},
            .seeds_single = 1,
            .seeds_pair = 0,
            .late_frames = 0,
            .latency_patterns = 2,
            .races = 0,
            .starts = 2,
            .every = 149,
            .every_queue = 7};
}

effort long_effort() {
    return {.gaps_ms = {0, 2, 60, 250, 330, 450, 1300, 3200},
            .later_ms = {5, 200, 3500},
            .seeds_single = 200,
            .seeds_pair = 1,
            .late_frames = 90,
            .latency_patterns = 800,
            .races = 400,
            .starts = 2000,
            .every = 1,
            .every_queue = 1};
}

void plan_cases(const topology &where, bool reversed, const effort &how, const std::function<void(mesh_case)> &each) {
    planner plan(where, reversed, how, each);
    plan.starts();
    for (const event &first : first_events(where)) {
        if (first.kind == happening::CRASH) {
            plan.crashes(first);
            continue;
        }
        plan.singles(first);
        plan.pairs(first);
        plan.races(first);
        plan.long_silences(first);
    }
}
