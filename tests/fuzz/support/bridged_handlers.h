// What kolt-bridged does for its clients, but nothing: the handlers use all that they are given.
#pragma once

#include "bridged/requests/handlers.h"

constexpr int HANDLED_RECORDS = 3; // of each table

request_handlers thorough_handlers();
