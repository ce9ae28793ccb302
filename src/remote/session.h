// Session, event and status-dump endpoints of the remote-control protocol.
// Their answers are fixed; none of them touches the camera.
#pragma once

int event(const char* argument);        // text after "event?"
int man_session(const char* argument);  // text after "man_session?"
int camdata();
