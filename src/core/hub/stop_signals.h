// SIGINT and SIGTERM, which end the daemon, before the loop handles them.
#pragma once

// Holds the stop signals back: the loop forgets, when it starts to run, that a signal ended it before.
void event_hold_stop_signals();

// Has the running loop let them through, those included that came meanwhile.
void event_release_stop_signals();
