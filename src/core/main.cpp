// The daemon's life: options, configuration, hub, modules, loop, and the same way back.
#include "core/config_load.h"
#include "core/hub/hub.h"
#include "core/hub/stop_signals.h"
#include "core/log.h"
#include "core/module.h"
#include "loop_avoidance/module.h"
#include "path_selection/module.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

// The order in which the modules are built. Each is put at the front of the lists, so events and teardown reach the
// last one first.
constexpr kolt_module_constructor CONSTRUCTORS[] = {loop_avoidance_init, path_selection_init};

int usage(const char *program, int status) {
    (void)fprintf(stderr, "%s [-c config] [-h]\n", program);
    return status;
}

// Builds the modules and puts each into the module list; one that fails has logged it and is left out.
void add_modules(config *config) {
    for (kolt_module_constructor construct : CONSTRUCTORS) {
        kolt_module *module = construct(config);
        if (module == nullptr)
            continue;
        KOLT_INFO_AS("main", "%s initialized", module->name);
        kolt_list_add(&config->modules, &module->list);
    }
}

void free_modules(kolt_list *modules) {
    for (kolt_list *link = modules->next; link != modules;) {
        kolt_module *module = kolt_module_of_list(link);
        link = link->next;
        kolt_list_delete(&module->list);
        module->free(module);
    }
}

} // namespace

int main(int argc, char **argv) {
    const char *path = "/etc/kolt.json";
    openlog(argv[0], LOG_CONS | LOG_PERROR, LOG_DAEMON);
    opterr = 0; // the usage line says it all
    for (int option; (option = getopt(argc, argv, "c:h")) != -1;) {
        if (option != 'c')
            return usage(argv[0], option == 'h' ? EXIT_SUCCESS : EXIT_FAILURE);
        path = optarg;
    }

    event_admit_stop_signals(); // the configuration may be a pipe that nobody writes to
    config config{};
    kolt_list_init(&config.modules);
    config_load(&config, path);
    if (config.enable != 1) {
        KOLT_ERROR("kolt disabled");
        exit(EXIT_SUCCESS);
    }

    event_init(&config.ev);
    l_ev = &config.ev;
    add_modules(&config);
    (void)event_loop(&config.ev); // a signal's number is no failure: the signal is how the daemon is ended
    free_modules(&config.modules);
    event_free(&config.ev);
    config_free(&config);
    return EXIT_SUCCESS;
}
