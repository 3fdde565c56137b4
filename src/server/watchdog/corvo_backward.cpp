#include "server/watchdog/corvo_backward.h"

// The one file that includes this header: it is slow to compile.
#define BACKWARD_HAS_DW BRUMECPD_HAVE_DW
#include <unistd.h>
#include <unwind.h>

#include <backward.hpp>

#include "server/watchdog/corvo_sig_text.h"

namespace corvo::server {
namespace {

constexpr uint32_t SIGNAL_DEPTH = 20;

constexpr char ENLARGE_REFUSED[] = "voidp vector requested to be enlarged, can't do during signal, forbidden";
constexpr char NO_SUCH_ELEMENT[] = "voidp vector operator [] requested to access forbidden element";

/** The program counter of a frame, moved into the instruction that called. */
void* calling_instruction(_Unwind_Context* context) {
#ifdef __arm__
    uint32_t pc = 0;
    _Unwind_VRS_Get(context, _UVRSC_CORE, 15, _UVRSD_UINT32, &pc);
    pc &= ~1U;  // the Thumb mark
#else
    const uintptr_t pc = _Unwind_GetIP(context);
#endif
    return reinterpret_cast<void*>(static_cast<uintptr_t>(pc) - 1);
}

std::string format_as_gdb(FixedTrace& trace) {
    backward::TraceResolver resolver;
    resolver.load_stacktrace(trace);
    std::string text;
    for (uint32_t i = 0; i < trace.size(); ++i) {
        const backward::ResolvedTrace frame =
            resolver.resolve(backward::ResolvedTrace(backward::Trace(trace[i], i)));
        text += frame.object_function + " at " + frame.source.filename + ":" +
                std::to_string(frame.source.line) + "\n";
    }
    return text;
}

/** What backward's printer takes as a trace: its frames carry their number. */
class NumberedTrace {
 public:
    explicit NumberedTrace(const FixedTrace& trace) : m_trace(trace) {}
    size_t size() const { return m_trace.size(); }
    backward::Trace operator[](size_t i) const {
        return backward::Trace(m_trace[static_cast<uint32_t>(i)], i);
    }
    void* const* begin() const { return m_trace.begin(); }
    size_t thread_id() const { return 0; }

 private:
    const FixedTrace& m_trace;
};

}  // namespace

struct TraceWalk {
    FixedTrace& trace;
    int64_t depth;
    int64_t index = -1;  ///< the innermost frame is the capture itself

    static _Unwind_Reason_Code visit(_Unwind_Context* context, void* arg) {
        auto* walk = static_cast<TraceWalk*>(arg);
        if (walk->index >= walk->depth) return _URC_END_OF_STACK;
        void* address = calling_instruction(context);
        if (walk->index >= 0) walk->trace.slot(static_cast<uint32_t>(walk->index)) = address;
        ++walk->index;
        return _URC_NO_REASON;
    }
};

void*& FixedTrace::slot(uint32_t index) {
    if (index < m_size) return m_frames[index];
    write_all(STDERR_FILENO, NO_SUCH_ELEMENT);
    return m_frames[0];
}

uint32_t FixedTrace::load_here(uint32_t depth) {
    m_size = 0;
    if (depth == 0) return 0;
    m_size = depth;
    if (depth > CAPACITY) {
        write_all(STDERR_FILENO, ENLARGE_REFUSED);
        m_size = CAPACITY;
    }
    TraceWalk walk{*this, depth};
    _Unwind_Backtrace(TraceWalk::visit, &walk);
    if (walk.index > CAPACITY)
        write_all(STDERR_FILENO, ENLARGE_REFUSED);
    else
        m_size = walk.index > 0 ? static_cast<uint32_t>(walk.index) : 0;
    return m_size;
}

std::string Backward::bt(int depth, style_e style) {
    FixedTrace trace;
    trace.load_here(depth > 0 ? static_cast<uint32_t>(depth) : 0);
    return style == STYLE_GDB ? format_as_gdb(trace) : "";
}

void Backward::sig_handler_bt() noexcept {
    FixedTrace trace;
    trace.load_here(SIGNAL_DEPTH);
    NumberedTrace numbered(trace);
    backward::Printer().print(numbered, stderr);
}

BackwardSig::BackwardSig() {
    m_trace.load_here(1);
}

void BackwardSig::save_bt() {
    m_trace.load_here(SIGNAL_DEPTH);
}

std::string BackwardSig::restore_bt(Backward::style_e style) {
    return style == Backward::STYLE_GDB ? format_as_gdb(m_trace) : "";
}

struct Resolver::Impl {
    backward::TraceResolver resolver;
};

Resolver::Resolver() : m_impl(std::make_unique<Impl>()) {}
Resolver::~Resolver() = default;

Resolver::Symbol Resolver::addr2symbol(const void* addr) {
    void* address = const_cast<void*>(addr);
    m_impl->resolver.load_addresses(&address, 1);
    const backward::ResolvedTrace found =
        m_impl->resolver.resolve(backward::ResolvedTrace(backward::Trace(address, 0)));
    Symbol symbol;
    symbol.function = !found.source.function.empty() ? found.source.function : found.object_function;
    if (symbol.function.empty()) symbol.function = "N/A";
    symbol.file = !found.source.filename.empty() ? found.source.filename : found.object_filename;
    symbol.line = found.source.line;
    return symbol;
}

}  // namespace corvo::server
