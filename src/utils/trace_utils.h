#pragma once
// Whether a debugger or tracer looks on. It protects nothing: a halted process only must not be taken for a
// hanging one.

class TraceUtils {
 public:
    static bool i_am_traced();
};
