// Nothing of it is needed here.
#pragma once
#define MAC_OS_X_VERSION_MAX_ALLOWED 101300
