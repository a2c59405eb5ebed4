// doctest, for a program of one file with a main of its own.
#pragma once

#define DOCTEST_CONFIG_NO_MULTITHREADING
#define DOCTEST_CONFIG_IMPLEMENT
#include <doctest/doctest.h>
