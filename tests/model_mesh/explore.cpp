#include "model_mesh/explore.h"

#include "model_mesh/check.h"

#include <algorithm>

namespace {

constexpr uint64_t BEGIN_MS = 9000;
constexpr uint64_t REST_MS = 2700;     // without a change: longer than any patience of the protocol
constexpr uint64_t LONGEST_MS = 19000; // what takes the time of forgetting a neighbour has lost something till then
constexpr int CRASH_POINTS = 4;
constexpr uint32_t HARMLESS_JITTER_MS = 100; // an interval: two echoes are never further apart than makes a link dead

const char *name_of(happening kind) {
    constexpr const char *NAMES[] = {"down",           "up",         "silence",     "silence_first", "silence_second",
                                     "late",           "late_first", "late_second", "no_echo",       "no_echo_first",
                                     "no_echo_second", "heal",       "kill",        "start",         "sleep",
                                     "wake",           "power_off",  "power_on",    "rank",          "permit",
                                     "regroup",        "crash"};
    return NAMES[static_cast<size_t>(kind)];
}

bool spares_first(happening kind) {
    return kind == happening::SILENCE_SECOND || kind == happening::LATE_SECOND || kind == happening::NO_ECHO_SECOND;
}

bool spares_second(happening kind) {
    return kind == happening::SILENCE_FIRST || kind == happening::LATE_FIRST || kind == happening::NO_ECHO_FIRST;
}

void fill_queues(mesh *all, const event &what, full_queue how) {
    all->set_queues(what.subject, spares_first(what.kind) ? full_queue::NONE : how,
                    spares_second(what.kind) ? full_queue::NONE : how);
}

void happen_to_link(mesh *all, const event &what) {
    switch (what.kind) {
    case happening::DOWN:
    case happening::UP:
        all->set_carrier(what.subject, what.kind == happening::UP);
        break;
    case happening::SILENCE:
    case happening::SILENCE_FIRST:
    case happening::SILENCE_SECOND:
        all->set_silent(what.subject, !spares_first(what.kind), !spares_second(what.kind));
        break;
    case happening::LATE:
    case happening::LATE_FIRST:
    case happening::LATE_SECOND:
        fill_queues(all, what, full_queue::LATE);
        break;
    case happening::NO_ECHO:
    case happening::NO_ECHO_FIRST:
    case happening::NO_ECHO_SECOND:
        fill_queues(all, what, full_queue::WITHOUT_ECHOES);
        break;
    default:
        all->set_silent(what.subject, false, false);
        fill_queues(all, what, full_queue::NONE);
    }
}

void happen_to_node(mesh *all, const event &what) {
    const crash_point points[] = {crash_point::CLOSED, crash_point::SAVED, crash_point::SENT_ONE,
                                  crash_point::SENT_ALL};
    switch (what.kind) {
    case happening::KILL:
        all->kill_bridged(what.subject);
        break;
    case happening::START:
        all->start_bridged(what.subject);
        break;
    case happening::SLEEP:
        all->sleep_bridged(what.subject);
        break;
    case happening::WAKE:
        all->wake_bridged(what.subject);
        break;
    case happening::POWER_OFF:
    case happening::POWER_ON:
        all->power(what.subject, what.kind == happening::POWER_ON);
        break;
    case happening::RANK:
        all->flip_rank(what.subject);
        break;
    case happening::PERMIT:
        all->permit(what.subject, what.detail);
        break;
    case happening::REGROUP:
        all->regroup(what.subject, what.detail);
        break;
    case happening::CRASH:
        all->arm_crash(what.subject, static_cast<uint32_t>(1 + what.detail / CRASH_POINTS),
                       points[what.detail % CRASH_POINTS]);
        break;
    default:
        break;
    }
}

void happen(mesh *all, const event &what) {
    if (what.kind <= happening::HEAL)
        happen_to_link(all, what);
    else
        happen_to_node(all, what);
}

// A frozen node keeps what it has, and so everybody can be reached, until something else happens too. A link that dies
// of late or lost frames before is such a thing.
bool frozen_may_be_lost(const mesh &all, const mesh_case &one) {
    const bool frozen = std::any_of(all.nodes.begin(), all.nodes.end(),
                                    [](const model_node &node) { return node.on && !node.running; });
    const bool only_kills = std::all_of(one.events.begin(), one.events.end(), [](const timed_event &event) {
        return event.what.kind >= happening::KILL && event.what.kind <= happening::WAKE;
    });
    const bool links_live = one.frames.loss_permille == 0 && one.frames.jitter_ms < HARMLESS_JITTER_MS;
    return frozen && (!only_kills || !links_live || one.from_start);
}

void come_to_rest(mesh *all, const mesh_case &one, verdict *found) {
    const uint64_t end = all->now_ms + LONGEST_MS;
    std::string lost = "it never comes to rest";
    while (all->violation.empty() && all->now_ms < end) {
        all->run_to(all->now_ms + 100);
        if (all->now_ms - all->changed_ms < REST_MS)
            continue;
        lost = who_is_lost(*all, frozen_may_be_lost(*all, one));
        if (lost.empty())
            lost = who_is_deceived(*all);
        if (lost.empty())
            return;
        all->run_to(all->now_ms + 1000);
    }
    found->violation = all->violation.empty() ? lost : all->violation;
    found->loop = !all->violation.empty();
}

} // namespace

mesh settled(const topology &where, bool reversed, mutation broken) {
    mesh made(where, reversed, broken);
    made.run_to(BEGIN_MS);
    for (model_node &node : made.nodes)
        tree_save(node.state, &node.record);
    return made;
}

verdict run_case(const mesh_case &one, const mesh &begin, mutation broken) {
    mesh all = one.from_start ? mesh(*one.where, one.reversed, broken) : begin;
    const uint64_t checks = all.checks;
    schedule frames = one.frames;
    uint64_t end = all.now_ms;
    for (const timed_event &next : one.events)
        end += next.after_ms;
    const bool calm =
        frames.jitter_ms == 0 && frames.loss_permille == 0 && frames.exceptions.empty() && frames.latency_ms.empty();
    frames.calm_after_ms = end + (calm ? 0 : 1500);
    all.set_schedule(frames);
    all.changed_ms = all.now_ms;
    for (const timed_event &next : one.events) {
        all.run_to(all.now_ms + next.after_ms);
        if (all.violation.empty())
            happen(&all, next.what);
    }
    all.changed_ms = std::max(all.changed_ms, frames.calm_after_ms);
    verdict found;
    come_to_rest(&all, one, &found);
    found.checks = all.checks - checks;
    return found;
}

std::vector<event> first_events(const topology &where) {
    std::vector<event> events;
    for (int link = 0; link < static_cast<int>(where.links.size()); link++) {
        for (const happening kind :
             {happening::DOWN, happening::SILENCE, happening::SILENCE_FIRST, happening::SILENCE_SECOND, happening::LATE,
              happening::LATE_FIRST, happening::LATE_SECOND, happening::NO_ECHO, happening::NO_ECHO_FIRST,
              happening::NO_ECHO_SECOND})
            events.push_back({kind, link});
    }
    for (int node = 0; node < static_cast<int>(where.nodes.size()); node++) {
        int ports = 0;
        for (const topology_link &link : where.links)
            ports += link.node[0] == node || link.node[1] == node ? 1 : 0;
        for (const happening kind :
             {happening::KILL, happening::START, happening::SLEEP, happening::POWER_OFF, happening::RANK})
            events.push_back({kind, node});
        for (int port = 0; port <= ports; port++)
            events.push_back({happening::PERMIT, node, port});
        for (int port = 0; port < ports; port++)
            events.push_back({happening::REGROUP, node, port});
        for (int detail = 0; detail < 2 * CRASH_POINTS; detail++)
            events.push_back({happening::CRASH, node, detail});
    }
    return events;
}

std::vector<event> later_events(const topology &where, const event &first) {
    std::vector<event> events = first_events(where);
    std::erase(events, first);
    switch (first.kind) {
    case happening::DOWN:
        events.push_back({happening::UP, first.subject});
        break;
    case happening::SILENCE:
    case happening::SILENCE_FIRST:
    case happening::SILENCE_SECOND:
    case happening::LATE:
    case happening::LATE_FIRST:
    case happening::LATE_SECOND:
    case happening::NO_ECHO:
    case happening::NO_ECHO_FIRST:
    case happening::NO_ECHO_SECOND:
        events.push_back({happening::HEAL, first.subject});
        break;
    case happening::KILL:
        std::erase(events, event{happening::KILL, first.subject});
        break;
    case happening::SLEEP:
        events.push_back({happening::WAKE, first.subject});
        break;
    case happening::POWER_OFF:
        events.push_back({happening::POWER_ON, first.subject});
        break;
    case happening::RANK:
        events.push_back(first);
        break;
    default:
        break;
    }
    return events;
}

std::string describe(const mesh_case &one) {
    std::string text = one.where->name + (one.reversed ? " reversed" : "") + (one.from_start ? " from start" : "");
    for (const timed_event &next : one.events) {
        text += ", after " + std::to_string(next.after_ms) + " " + name_of(next.what.kind) + " " +
                std::to_string(next.what.subject) + "/" + std::to_string(next.what.detail);
    }
    text += "; seed " + std::to_string(one.frames.seed) + " loss " + std::to_string(one.frames.loss_permille) +
            " jitter " + std::to_string(one.frames.jitter_ms);
    for (const uint16_t latency : one.frames.latency_ms)
        text += " " + std::to_string(latency);
    for (const schedule::exception &late : one.frames.exceptions)
        text += " frame " + std::to_string(late.frame) + (late.lost ? " lost" : " +" + std::to_string(late.delay_ms));
    return text;
}
