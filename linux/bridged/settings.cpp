// The command line.
#include "bridged/settings.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

namespace {

constexpr int WRONG_USAGE = 2;
constexpr uint32_t SHORTEST_INTERVAL_MS = 10;
constexpr uint32_t LONGEST_INTERVAL_MS = 10000;

enum long_option : int { OPTION_RUN = 256, OPTION_PIN, OPTION_INTERVAL, OPTION_LISTEN, OPTION_CHECK, OPTION_RELEASE };

constexpr option OPTIONS[] = {
    {"config", required_argument, nullptr, 'c'},
    {"mode", required_argument, nullptr, 'm'},
    {"run", required_argument, nullptr, OPTION_RUN},
    {"pin", required_argument, nullptr, OPTION_PIN},
    {"interval", required_argument, nullptr, OPTION_INTERVAL},
    {"listen", required_argument, nullptr, OPTION_LISTEN},
    {"check", no_argument, nullptr, OPTION_CHECK},
    {"release", no_argument, nullptr, OPTION_RELEASE},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

void print_usage(FILE *out, const char *program) {
    (void)fprintf(out,
                  "Usage: %s [OPTION...]\n"
                  "Keeps the bridges of a mesh node free of loops and places streams, as kolt asks.\n"
                  "  -c, --config FILE   bridges and interfaces (/etc/kolt.json)\n"
                  "  -m, --mode MODE     RE, FAP or HAP: what the node is in the mesh (RE)\n"
                  "      --run FOLDER    where the socket is made (/run/kolt-bridged)\n"
                  "      --pin FOLDER    where the kernel keeps programs and tables (/sys/fs/bpf/kolt)\n"
                  "      --interval MS   between two frames to a neighbour, 10 to 10000 (100)\n"
                  "      --listen MS     before a port without a neighbour is opened, 10 to 10000 (400)\n"
                  "      --check         say what would keep this machine from it, and touch nothing\n"
                  "      --release       put every port back as it was found, and end\n"
                  "  -h, --help          this text\n"
                  "Exit status: 0 fine, 1 failed or refused, 2 wrong usage\n",
                  program);
}

bool read_number(const char *text, uint32_t *number) {
    char *end = nullptr;
    errno = 0;
    const unsigned long value = strtoul(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < SHORTEST_INTERVAL_MS || value > LONGEST_INTERVAL_MS)
        return false;
    *number = static_cast<uint32_t>(value);
    return true;
}

bool read_mode(const char *text, kolt_work_mode *mode) {
    if (strcmp(text, "RE") == 0)
        *mode = KOLT_MODE_RE;
    else if (strcmp(text, "FAP") == 0 || strcmp(text, "AP") == 0)
        *mode = KOLT_MODE_FAP;
    else if (strcmp(text, "HAP") == 0)
        *mode = KOLT_MODE_HAP;
    else
        return false;
    return true;
}

bool read_option(int letter, const char *value, bridged_settings *settings) {
    switch (letter) {
    case 'c':
        settings->config_file = value;
        return true;
    case 'm':
        return read_mode(value, &settings->mode);
    case OPTION_RUN:
        settings->run_folder = value;
        return true;
    case OPTION_PIN:
        settings->pin_folder = value;
        return true;
    case OPTION_INTERVAL:
        return read_number(value, &settings->interval_ms);
    case OPTION_LISTEN:
        return read_number(value, &settings->listen_ms);
    case OPTION_CHECK:
        settings->action = BRIDGED_CHECK;
        return true;
    case OPTION_RELEASE:
        settings->action = BRIDGED_RELEASE;
        return true;
    default:
        return false;
    }
}

} // namespace

bool settings_read(int argc, char **argv, bridged_settings *settings, int *status) {
    for (int letter; (letter = getopt_long(argc, argv, "c:m:h", OPTIONS, nullptr)) != -1;) {
        if (letter == 'h') {
            print_usage(stdout, argv[0]);
            *status = EXIT_SUCCESS;
            return false;
        }
        if (!read_option(letter, optarg, settings)) {
            if (letter != '?')
                (void)fprintf(stderr, "%s: not understood: %s\n", argv[0], optarg);
            print_usage(stderr, argv[0]);
            *status = WRONG_USAGE;
            return false;
        }
    }
    if (optind < argc) {
        (void)fprintf(stderr, "%s: not understood: %s\n", argv[0], argv[optind]);
        *status = WRONG_USAGE;
        return false;
    }
    if (strlen(settings->run_folder) > LONGEST_RUN_FOLDER) {
        (void)fprintf(stderr, "%s: the name of the folder is longer than %zu bytes: %s\n", argv[0], LONGEST_RUN_FOLDER,
                      settings->run_folder);
        *status = WRONG_USAGE;
        return false;
    }
    return true;
}
