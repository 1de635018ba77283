// kolt-check: says what the daemon would make of a configuration file.
#include "check/inspect.h"
#include "check/print.h"
#include "check/text.h"

#include <getopt.h>

namespace {

enum status : int { NOTHING_TO_SAY = 0, FINDINGS = 1, CANNOT_READ = 2 };

constexpr char USAGE[] = "usage: kolt-check [--json] [--quiet] FILE\n"
                         "       kolt-check --settings | --version | --help\n";

constexpr char HELP_TEXT[] =
    "\nSays what kolt would run with, given the configuration FILE (\"-\" is standard input), and what in the file\n"
    "is not as it reads: unknown keys, values that are changed, entries that are left out.\n"
    "\n"
    "  -j, --json      findings and values as JSON\n"
    "  -q, --quiet     findings only\n"
    "      --settings  all settings as JSON: key, default, range, meaning\n"
    "      --version   the version\n"
    "  -h, --help      this text\n"
    "\n"
    "Status: 0 nothing to say, 1 findings, 2 the file could not be read or the command is wrong.\n";

constexpr option OPTIONS[] = {{"json", no_argument, nullptr, 'j'},     {"quiet", no_argument, nullptr, 'q'},
                              {"settings", no_argument, nullptr, 's'}, {"version", no_argument, nullptr, 'V'},
                              {"help", no_argument, nullptr, 'h'},     {nullptr, 0, nullptr, 0}};

// A full disk must not look like a clean bill.
int finished(int status) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return status;
    perror("kolt-check: standard output");
    return CANNOT_READ;
}

int check_file(const char *path, bool json, bool quiet) {
    std::string text;
    std::string error;
    if (!check_read_file(path, &text, &error)) {
        (void)fprintf(stderr, "kolt-check: %s: %s\n", path, error.c_str());
        return CANNOT_READ;
    }
    const std::unique_ptr<check_report> report = check_inspect(text);
    if (json) {
        check_print_json(stdout, path, *report);
    } else {
        check_print_findings(stdout, path, *report);
        if (!report->findings.empty() && !quiet)
            (void)fputs("\n", stdout);
    }
    if (!check_is_read(*report))
        return finished(CANNOT_READ);
    if (!json && !quiet)
        check_print_values(stdout, *report);
    return finished(report->findings.empty() ? NOTHING_TO_SAY : FINDINGS);
}

} // namespace

int main(int argc, char **argv) {
    bool json = false;
    bool quiet = false;
    for (int option; (option = getopt_long(argc, argv, "jqh", OPTIONS, nullptr)) != -1;) {
        switch (option) {
        case 'j':
            json = true;
            break;
        case 'q':
            quiet = true;
            break;
        case 's':
            check_print_settings(stdout);
            return finished(NOTHING_TO_SAY);
        case 'V':
            (void)puts("kolt-check " KOLT_VERSION);
            return finished(NOTHING_TO_SAY);
        case 'h':
            (void)printf("%s%s", USAGE, HELP_TEXT);
            return finished(NOTHING_TO_SAY);
        default:
            (void)fputs(USAGE, stderr);
            return CANNOT_READ;
        }
    }
    if (optind + 1 != argc) {
        (void)fputs(USAGE, stderr);
        return CANNOT_READ;
    }
    return check_file(argv[optind], json, quiet);
}
