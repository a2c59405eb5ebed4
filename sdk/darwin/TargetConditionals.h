// The part of macOS's <TargetConditionals.h> that the real programs need.
#pragma once
#define TARGET_OS_MAC 1
#define TARGET_OS_IPHONE 0
