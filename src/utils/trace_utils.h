#pragma once
// Whether a debugger or tracer is attached. This isn't protection: it only keeps a halted process from being
// mistaken for a hanging one.

class TraceUtils {
 public:
    static bool i_am_traced();
};
