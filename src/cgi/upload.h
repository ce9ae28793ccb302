// The firmware upload's state between requests: armed by the system
// section's "post_update" "start", appended to by POSTs to "update", and
// known to be incomplete once a piece of it could not be written.
#pragma once

#include "platform/platform.h"

void upload_set_armed(bool armed);  // arming also starts a new, complete image
bool upload_is_armed();
void upload_mark_incomplete();  // a piece of the image was lost
bool upload_is_complete();      // false once a piece was lost since the arming
// The file an upload is appended to ("/tmp/update.bin").
PlatformPath upload_path();
