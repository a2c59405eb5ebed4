// The former name of error_numbers.h.
#pragma once

#include "posix/error_numbers.h"
