// The player's controllers, through the native plug-in that a Mac game brings for them.
#pragma once

/// Once per frame: tells in the log which controllers come and go and what is pressed on them.
void poll_controllers();
