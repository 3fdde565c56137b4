#pragma once
// Stack traces in two steps: capturing the addresses, which works inside a signal handler, and resolving them
// to names and lines, which reads debug information and allocates. Without libdw, names come only from the
// symbol tables.

#include <cstdint>
#include <memory>
#include <string>

#include "server/watchdog/corvo_stack.h"

namespace corvo::server {

/** The addresses of a stack, innermost first, in storage that is allocated once. */
class FixedTrace {
 public:
    static constexpr uint32_t CAPACITY = 1000;

    FixedTrace()
        : m_frames(std::make_unique<void*[]>(CAPACITY)), m_guesses(std::make_unique<bool[]>(CAPACITY)) {}

    /**
     * Captures up to `depth` frames, starting at its caller or where a signal interrupted the thread. Returns
     * their number. Signal-safe once the unwinder has been used before, which `BackwardSig` ensures. Errors
     * go to stderr; never throws.
     */
    [[gnu::noinline]] uint32_t load_here(uint32_t depth);

    uint32_t size() const { return m_size; }
    /** The address of the call, or of the interrupted instruction. */
    void* operator[](uint32_t index) const { return m_frames[index]; }
    /** Whether the frame was found only because the word looks like a return address. */
    bool is_guess(uint32_t index) const { return m_guesses[index]; }

 private:
    friend class TraceWalk;
    /** Returns element 0, and complains, if `index` doesn't exist. */
    uint32_t slot(uint32_t index);

    std::unique_ptr<void*[]> m_frames;
    std::unique_ptr<bool[]> m_guesses;
    uint32_t m_size = 0;
};

class Backward {
 public:
    enum style_e : int { STYLE_GDB = 1 };  ///< any other value yields an empty text

    /** The caller's stack, for normal context. */
    static std::string bt(int depth, style_e style);
    /** Prints 20 frames to stderr. Allocates: only for a dying process, or at a user's request. */
    static void sig_handler_bt() noexcept;
};

/** A trace captured in a signal handler and resolved later. */
class BackwardSig {
 public:
    /** Warms up the unwinder. */
    BackwardSig();
    /** Signal-safe. */
    void save_bt();
    std::string restore_bt(Backward::style_e style);

 private:
    FixedTrace m_trace;
};

/** Looks up addresses one at a time. */
class Resolver {
 public:
    struct Symbol {
        std::string function;
        std::string file;  ///< source file, or else the object file; may be empty
        unsigned line = 0;
    };

    Resolver();
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;
    ~Resolver();

    Symbol addr2symbol(const void* addr);

 private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace corvo::server
