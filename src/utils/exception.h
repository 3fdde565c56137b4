#pragma once
// The error type used between modules. Engine libraries throw and catch it too, so it is part of
// their boundary.

#include <brumecpd/exception.h>
