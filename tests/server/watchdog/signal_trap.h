#pragma once
// Proves what a signal handler may call: while a trap lives, the first use of the heap, of stdio or of a lock
// aborts the test program and names itself. Nothing is trapped under a sanitizer, which has its own heap.

namespace test {

class SignalTrap {
 public:
    SignalTrap();
    SignalTrap(const SignalTrap&) = delete;
    SignalTrap& operator=(const SignalTrap&) = delete;
    ~SignalTrap();
};

}  // namespace test
