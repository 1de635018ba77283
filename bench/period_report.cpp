// The figures of all sizes in a table, set against the limits.
#include "period_report.h"

#include "probes/clients.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::pair<int64_t, int64_t> LIMITED_SIZE = {256, 5000};
constexpr int PACKAGED_PERIOD = 5;       // seconds
constexpr double OWN_WORK_LIMIT = 0.002; // seconds of processor time
constexpr double SPEED_UP_LIMIT = 20;

constexpr const char *PART_NAMES[PERIOD_PARTS] = {
    "client list from FDB and HD table", "ranking of streams",      "statistics and placement of clients",
    "ports, paths, quotas, parsing",     "tables from the library", "other calls of the library",
    "driver's and kernel's pipes",       "runtime files",           "notifications to the parent"};

using table_value = double (*)(const findings_of_size &);

void print_table(const period_findings &found, const char *title, table_value value) {
    (void)fprintf(stderr, "\n%s\n%12s", title, "clients");
    for (const int64_t streams : PERIOD_STREAMS)
        (void)fprintf(stderr, "%7d streams", static_cast<int>(streams));
    for (const int64_t clients : PERIOD_CLIENTS) {
        (void)fprintf(stderr, "\n%12d", static_cast<int>(clients));
        for (const int64_t streams : PERIOD_STREAMS)
            (void)fprintf(stderr, "%15.1f", value(found.at({clients, streams})));
    }
    (void)fprintf(stderr, "\n");
}

// Solves a small system of equations in place; the solution takes the place of the right side.
template <size_t N> void solve(double (&matrix)[N][N + 1]) {
    for (size_t pivot = 0; pivot < N; pivot++) {
        for (size_t row = 0; row < N; row++) {
            const double factor = row == pivot ? 0 : matrix[row][pivot] / matrix[pivot][pivot];
            for (size_t column = pivot; factor != 0 && column <= N; column++)
                matrix[row][column] -= factor * matrix[pivot][column];
        }
    }
    for (size_t row = 0; row < N; row++)
        matrix[row][N] /= matrix[row][row];
}

// Fits fixed + a * streams + b * clients + c * streams * clients, by relative errors, and prints what each term gives
// at the largest size.
void print_fit(const period_findings &found, const char *title, table_value value) {
    constexpr size_t TERMS = 4;
    double matrix[TERMS][TERMS + 1] = {};
    for (const auto &[size, here] : found) {
        const double clients = static_cast<double>(std::min<int64_t>(size.first, KOLT_MAX_LISTED_CLIENTS));
        const auto streams = static_cast<double>(size.second);
        const double measured = value(here);
        const double variables[TERMS] = {1 / measured, streams / measured, clients / measured,
                                         streams * clients / measured};
        for (size_t row = 0; row < TERMS; row++) {
            for (size_t column = 0; column < TERMS; column++)
                matrix[row][column] += variables[row] * variables[column];
            matrix[row][TERMS] += variables[row];
        }
    }
    solve(matrix);
    (void)fprintf(stderr,
                  "%-18s %8.1f us + %7.2f ns a stream + %8.1f ns a client + %8.4f ns a stream and client\n"
                  "%18s at 255 x 20,000: %10.1f + %12.1f + %14.1f + %10.1f us\n",
                  title, matrix[0][TERMS], matrix[1][TERMS] * 1e3, matrix[2][TERMS] * 1e3, matrix[3][TERMS] * 1e3, "",
                  matrix[0][TERMS], matrix[1][TERMS] * 20000, matrix[2][TERMS] * 255, matrix[3][TERMS] * 20000 * 255);
}

// What a node pays for path selection, in a sentence: the child processes cost more than all the rest.
void print_whole(const findings_of_size &here) {
    const double busy = here.parts.whole() + here.children;
    (void)fprintf(stderr,
                  "A whole period with 255 clients and 5,000 streams takes %.1f ms, and %.1f ms of processor time:\n",
                  here.parts.whole_wall() * 1e3, busy * 1e3);
    (void)fprintf(stderr, "%.1f in the daemon (its own work %.1f, the rest in libraries, files and pipes), ",
                  here.parts.whole() * 1e3, here.own * 1e3);
    (void)fprintf(stderr,
                  "%.1f in child processes\nthat read the driver's files. Every %d s, that is %.2f %% of a core.\n",
                  here.children * 1e3, PACKAGED_PERIOD, 100 * busy / PACKAGED_PERIOD);
}

void print_parts(const findings_of_size &here) {
    (void)fprintf(stderr, "\nIts parts (medians)%42s %12s %9s\n", "cpu us", "wall us", "calls");
    for (size_t part = 0; part < PERIOD_PARTS; part++) {
        (void)fprintf(stderr, "  %-45s %14.1f %12.1f", PART_NAMES[part], here.parts.cpu[part] * 1e6,
                      here.parts.wall[part] * 1e6);
        if (part >= OWN_PARTS)
            (void)fprintf(stderr, " %9zu", here.parts.calls[part]);
        (void)fprintf(stderr, "\n");
        if (part + 1 == OWN_PARTS)
            (void)fprintf(stderr, "  %-45s %14.1f %12.1f\n", "= the daemon's own work", here.own * 1e6,
                          here.parts.own_wall() * 1e6);
    }
    (void)fprintf(stderr, "  %-45s %14.1f %12.1f\n  %-45s %14.1f\n", "= the whole period", here.parts.whole() * 1e6,
                  here.parts.whole_wall() * 1e6, "child processes of the pipes", here.children * 1e6);
}

bool print_limit(const char *name, double value, const char *relation, double limit, const char *unit, bool kept) {
    (void)fprintf(stderr, "%-64s %9.2f %-5s %s %4.0f  %s\n", name, value, unit, relation, limit,
                  kept ? "kept" : "BROKEN");
    return kept;
}

} // namespace

bool report_period(const period_findings &found) {
    print_whole(found.at(LIMITED_SIZE));
    print_parts(found.at(LIMITED_SIZE));
    (void)fprintf(
        stderr,
        "\nThe daemon's own work is the processor time of one whole timer callback less what is spent "
        "inside calls of\nthe platform libraries, pipes, runtime files and notifications; messages are "
        "off (log level 0), errors are not.\n256 clients are seen, 255 are listed. The ranking and its plain form "
        "give the same records and tables at every size.\n");
    print_table(found, "Own work of one period, microseconds of processor time",
                [](const findings_of_size &here) { return here.own * 1e6; });
    print_table(found, "Ranking of streams, microseconds",
                [](const findings_of_size &here) { return here.indexed * 1e6; });
    print_table(found, "The same as a plain scan per client, microseconds",
                [](const findings_of_size &here) { return here.plain * 1e6; });
    print_table(found, "Plain ranking as a multiple of the ranking",
                [](const findings_of_size &here) { return here.plain / here.indexed; });
    (void)fprintf(stderr, "\nGrowth (least squares of relative errors over all sizes)\n");
    print_fit(found, "own work", [](const findings_of_size &here) { return here.own * 1e6; });
    print_fit(found, "ranking", [](const findings_of_size &here) { return here.indexed * 1e6; });
    print_fit(found, "plain scan", [](const findings_of_size &here) { return here.plain * 1e6; });

    const findings_of_size &here = found.at(LIMITED_SIZE);
    (void)fprintf(stderr, "\nLimits at 255 clients and 5,000 streams\n");
    const bool own =
        print_limit("own work of a period", here.own * 1e3, "<", OWN_WORK_LIMIT * 1e3, "ms", here.own < OWN_WORK_LIMIT);
    const double speed_up = here.plain / here.indexed;
    const bool faster = print_limit("ranking, times faster than the plain scan per client", speed_up,
                                    ">=", SPEED_UP_LIMIT, "times", speed_up >= SPEED_UP_LIMIT);
    (void)fprintf(stderr, "For comparison: the plain scan alone takes %.1f times all of the period's own work.\n",
                  here.plain / here.own);
    return own && faster;
}
