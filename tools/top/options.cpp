// What is refused is refused whole, before anything is read.
#include "options.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

namespace {

constexpr uint32_t SHORTEST_INTERVAL_MS = 100;
constexpr uint32_t LONGEST_INTERVAL_MS = 24U * 3600U * 1000U;
constexpr uint32_t HIGHEST_COUNT = 1000000000;

enum long_option : int { PLAIN = 256, JSON, PROMETHEUS, LIVE, ONCE, CLIENT, NO_STREAMS, VERSION };

constexpr option LONG_OPTIONS[] = {
    {"plain", no_argument, nullptr, PLAIN},
    {"json", no_argument, nullptr, JSON},
    {"prometheus", no_argument, nullptr, PROMETHEUS},
    {"live", no_argument, nullptr, LIVE},
    {"once", no_argument, nullptr, ONCE},
    {"count", required_argument, nullptr, 'n'},
    {"interval", required_argument, nullptr, 'i'},
    {"config", required_argument, nullptr, 'c'},
    {"client", required_argument, nullptr, CLIENT},
    {"no-streams", no_argument, nullptr, NO_STREAMS},
    {"version", no_argument, nullptr, VERSION},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

void refuse(top_options *options, const char *problem) {
    options->request = top_request::REFUSED;
    (void)snprintf(options->problem, sizeof options->problem, "%s", problem); // a cut reason is a reason still
}

void refuse_value(top_options *options, const char *what, const char *value) {
    char problem[sizeof options->problem];
    (void)snprintf(problem, sizeof problem, "%s: %.40s", what, value);
    refuse(options, problem);
}

void set_mode(top_options *options, top_mode mode) {
    if (options->mode != top_mode::AUTOMATIC && options->mode != mode)
        return refuse(options, "more than one of --live, --plain, --json and --prometheus");
    options->mode = mode;
}

void set_count(top_options *options, const char *text) {
    char *end = nullptr;
    errno = 0;
    const unsigned long count = strtoul(text, &end, 10);
    if (isdigit(static_cast<unsigned char>(text[0])) == 0 || *end != '\0' || errno != 0 || count == 0 ||
        count > HIGHEST_COUNT)
        return refuse_value(options, "not a number of readings", text);
    options->count = static_cast<uint32_t>(count);
}

void set_client(top_options *options, const char *text) {
    options->has_client = true;
    if (!top_parse_mac(text, options->client))
        refuse_value(options, "not a MAC address", text);
}

void take_value(top_options *options, int option, const char *value) {
    switch (option) {
    case 'c':
        options->config = value;
        return;
    case 'n':
        return set_count(options, value);
    case 'i':
        if (!top_parse_interval(value, &options->interval_ms))
            refuse_value(options, "not an interval of 0.1 to 86400 seconds", value);
        return;
    default:
        return set_client(options, value);
    }
}

void take(top_options *options, int option, const char *value, const char *word) {
    switch (option) {
    case PLAIN:
        return set_mode(options, top_mode::PLAIN);
    case JSON:
        return set_mode(options, top_mode::JSON);
    case PROMETHEUS:
        return set_mode(options, top_mode::PROMETHEUS);
    case LIVE:
        return set_mode(options, top_mode::LIVE);
    case ONCE:
        options->count = 1;
        return;
    case NO_STREAMS:
        options->streams = false;
        return;
    case VERSION:
        options->request = top_request::VERSION;
        return;
    case 'h':
        options->request = top_request::HELP;
        return;
    case '?':
        return refuse_value(options, "no such option", word);
    case ':':
        return refuse_value(options, "a value is missing behind", word);
    default:
        return take_value(options, option, value);
    }
}

} // namespace

const char TOP_USAGE[] = "usage: kolt-top [--live | --plain | --json | --prometheus] [--once | -n count] [-i seconds]\n"
                         "                [-c config] [--client MAC] [--no-streams]\n"
                         "       kolt-top --help | --version\n";

const char TOP_HELP[] = "\n"
                        "Watches the paths, clients and streams of a mesh node, and changes nothing.\n"
                        "\n"
                        "      --live              a live table, the default on a terminal\n"
                        "      --plain             lines of text, the default elsewhere\n"
                        "      --json              an object a line and reading\n"
                        "      --prometheus        a text exposition\n"
                        "      --once              read the node once\n"
                        "  -n, --count COUNT       read it so many times\n"
                        "  -i, --interval SECONDS  wait so long between two readings (2)\n"
                        "  -c, --config FILE       the daemon's configuration (/etc/kolt.json)\n"
                        "      --client MAC        explain where this client is\n"
                        "      --no-streams        leave the table of streams alone\n"
                        "  -h, --help              this text\n"
                        "      --version           the version\n";

bool top_parse_mac(const char *text, uint8_t *mac) {
    constexpr size_t LENGTH = KOLT_MAC_SIZE * 3 - 1;
    if (strnlen(text, LENGTH + 1) != LENGTH || (text[2] != ':' && text[2] != '-'))
        return false;
    for (size_t i = 0; i < LENGTH; i++) {
        const bool separator = i % 3 == 2;
        if (separator ? text[i] != text[2] : isxdigit(static_cast<unsigned char>(text[i])) == 0)
            return false;
    }
    for (size_t i = 0; i < KOLT_MAC_SIZE; i++)
        mac[i] = static_cast<uint8_t>(strtoul(text + 3 * i, nullptr, 16));
    return true;
}

bool top_parse_interval(const char *text, uint32_t *milliseconds) {
    const size_t whole = strspn(text, "0123456789");
    const size_t decimals = text[whole] == '.' ? strspn(text + whole + 1, "0123456789") : 0;
    const char *end = text + whole + (text[whole] == '.' ? decimals + 1 : 0);
    if (whole == 0 || whole > 5 || decimals > 3 || *end != '\0' || (text[whole] == '.' && decimals == 0))
        return false;
    uint64_t value = strtoull(text, nullptr, 10) * 1000;
    uint64_t weight = 100;
    for (size_t i = 0; i < decimals; i++, weight /= 10)
        value += static_cast<uint64_t>(text[whole + 1 + i] - '0') * weight;
    if (value < SHORTEST_INTERVAL_MS || value > LONGEST_INTERVAL_MS)
        return false;
    *milliseconds = static_cast<uint32_t>(value);
    return true;
}

top_options top_parse_options(int argc, char *const *argv) {
    top_options options;
    optind = 0; // so that a line can be read more than once
    opterr = 0;
    while (options.request == top_request::RUN) {
        const int option = getopt_long(argc, argv, ":c:i:n:h", LONG_OPTIONS, nullptr);
        if (option == -1)
            break;
        take(&options, option, optarg, argv[optind - 1]);
    }
    if (options.request != top_request::RUN)
        return options;
    if (optind < argc)
        refuse_value(&options, "no such argument", argv[optind]);
    else if (options.has_client && options.mode == top_mode::PROMETHEUS)
        refuse(&options, "--client has nothing to say in --prometheus");
    else if (options.mode == top_mode::PROMETHEUS && options.count == 0)
        options.count = 1; // an exposition is a page, not a stream
    return options;
}
