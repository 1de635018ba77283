// The library's side of the conversation with kolt-bridged. One thread uses it, as one thread uses the libraries; it
// starts none of its own. The connection is made at the first call, kept, and made anew when it was lost or a fork has
// come in between.
#pragma once

#include "core/handle.h"
#include "lib/deadline.h"
#include "lib/requests.h"

struct call_answer {
    call_reply reply{};
    unique_fd table{-1};
};

enum class call_outcome {
    ANSWERED,
    UNSENT, // the connection was gone before
    LOST,   // it was sent, and may have been done
};

// A request with its code and the names that it is about. Null names are empty.
struct named_request {
    call_request request{};
    bool valid = true; // no name was too long, and the bridge has one

    named_request(call_code call, const char *bridge, const char *ifname = nullptr, const char *other_name = nullptr);
};

// Makes a call, with a descriptor to hand over where `passed` is one. False when kolt-bridged is not there, is silent
// or talks rubbish: at once, but for a silent one, which is waited for up to two seconds the first time and a tenth of
// a second from then on.
bool bridged_call(call_request request, int passed, call_answer *answer);

// Makes a call that has a result and nothing else: 0, or -1 for every failure.
int bridged_result(const named_request &request);

// Finds out whether the connection was lost meanwhile, and then makes it anew.
void bridged_refresh();

// A new connection that has said which kind it is; none on failure. It is blocking and close-on-exec.
unique_fd bridged_connect(connection_kind kind);

// Exchanges one request and its answer over the connection as it is.
call_outcome bridged_exchange(const deadline &until, call_request request, int passed, call_answer *answer);

// Each library has its own: tells a new connection what the one before it had been told. False when that failed.
bool bridged_greet(const deadline &until);
