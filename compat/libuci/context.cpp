// The context and its directories.

#include "uci_internal.h"

#include <cstdlib>

struct uci_context *uci_alloc_context(void) {
    auto *ctx = static_cast<uci_context *>(calloc(1, sizeof(uci_context)));
    if (!ctx)
        return nullptr;
    uci_list_init(&ctx->root);
    if (uci_set_confdir(ctx, "/etc/config") == UCI_OK && uci_set_savedir(ctx, "/tmp/.uci") == UCI_OK)
        return ctx;
    uci_free_context(ctx);
    return nullptr;
}

void uci_free_context(struct uci_context *ctx) {
    if (!ctx)
        return;
    while (!uci_list_empty(&ctx->root))
        uci_free_package(reinterpret_cast<uci_package *>(uci_list_to_element(ctx->root.next)));
    free(ctx->confdir);
    free(ctx->savedir);
    free(ctx);
}

int uci_set_confdir(struct uci_context *ctx, const char *dir) {
    return ctx && dir ? uci_replace_text(&ctx->confdir, dir) : UCI_ERR_INVAL;
}

int uci_set_savedir(struct uci_context *ctx, const char *dir) {
    return ctx && dir ? uci_replace_text(&ctx->savedir, dir) : UCI_ERR_INVAL;
}
