#pragma once
// The error type between modules. Engine libraries throw and catch it, too: it is part of their boundary.

#include <brumecpd/exception.h>
