// The responder process: start-up, shut-down, the accept loop and the routing
// of each request to its dialect.
#pragma once

// Entry point of the process: 0 after the accept loop ends, -1 when start-up
// failed.
int web_main();

int system_init();    // 0 or -1; tears down what it opened on failure
int system_deinit();  // always 0

// Reads the CGI environment of the current request (QUERY_STRING,
// REQUEST_METHOD, CONTENT_LENGTH), routes it and writes the whole reply
// through cgi/output.h. A print-level reload asked for by SIGUSR1 is done
// first.
void web_handle_request();

// Looks a POST name up in the post route table (exact, case-sensitive).
// Stores the entry's index and returns 0, or returns -ENOENT.
int post_route_find(const char* name);
int post_route_selected();

// The firmware upload gate lives in cgi/upload.h, below the dialects that set it.
