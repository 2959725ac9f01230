// The client of the applet-control service, whose applet changes end this service.
#pragma once

#include "com.morvane.scctrl/com.morvane.scctrl.h"

// Creates the proxy of com.morvane.scctrl and passes its applet changes to the transfer manager
// from then on. Returns the proxy, owned by the caller, or null with *error set; *error must be
// null on entry. Blocks until the owner of the name, if there is one, has answered, or the bus's
// time limit is over. Main-loop thread.
MorvaneScctrl* connectAppletClient(GError** error);
