#pragma once
#include "mach.h"
