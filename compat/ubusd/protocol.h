// What the broker answers to messages.
#pragma once

#include "bus.h"

// Tells a new client its id.
void protocol_greet(bus_client &client);

// Handles one message of a client: does what it asks for and answers it.
void protocol_handle(bus_client &client, const ubus_msghdr &header, const blob_attr *body);
