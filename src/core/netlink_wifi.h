#pragma once

struct config;

// Sets the record that link notifications are looked up in; netlink messages carry no pointer to it.
void nl_wifi_set_config(config *config);
