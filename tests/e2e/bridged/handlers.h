// kolt-bridged's answers on a simulated node: what the node's files say, with each call noted in the node's journal.
#pragma once

#include "bridged/requests/handlers.h"

// Handlers without the three that are about sockets; `context` is handed to all.
request_handlers node_handlers(void *context);
