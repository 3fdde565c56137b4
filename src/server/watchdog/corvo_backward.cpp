#include "server/watchdog/corvo_backward.h"

// Only this file includes the header, which is slow to compile.
#define BACKWARD_HAS_DW BRUMECPD_HAVE_DW
#include <dlfcn.h>
#include <unistd.h>

#include <backward.hpp>
#include <charconv>
#include <iterator>

#include "server/watchdog/corvo_sig_text.h"

namespace corvo::server {
namespace {

constexpr uint32_t SIGNAL_DEPTH = 20;

constexpr char ENLARGE_REFUSED[] = "voidp vector requested to be enlarged, can't do during signal, forbidden";
constexpr char NO_SUCH_ELEMENT[] = "voidp vector operator [] requested to access forbidden element";

#if BRUMECPD_HAVE_DW
/**
 * Repeats the lookups of the library's resolver with the address zero-extended. On 32-bit machines the
 * library sign-extends it and so finds nothing above 2 GiB, where shared objects are mapped.
 */
class HighAddresses {
 public:
    void name(uintptr_t address, backward::ResolvedTrace& frame) {
        Dwfl_Module* module = dwfl_addrmodule(session(), address);
        if (!module) return;
        if (const char* object =
                dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr))
            frame.object_filename = object;
        if (const char* symbol = dwfl_module_addrname(module, address))
            frame.object_function = m_demangler.demangle(symbol);
        Dwfl_Line* source = dwfl_module_getsrc(module, address);
        int line = 0;
        const char* file =
            source ? dwfl_lineinfo(source, nullptr, &line, nullptr, nullptr, nullptr) : nullptr;
        if (!file) return;
        frame.source.filename = file;
        frame.source.line = static_cast<unsigned>(line);
        frame.source.function = frame.object_function;
    }

 private:
    Dwfl* session() {
        if (m_session) return m_session.get();
        m_callbacks.find_elf = dwfl_linux_proc_find_elf;
        m_callbacks.find_debuginfo = dwfl_standard_find_debuginfo;
        m_session.reset(dwfl_begin(&m_callbacks));
        dwfl_report_begin(m_session.get());
        dwfl_linux_proc_report(m_session.get(), getpid());
        dwfl_report_end(m_session.get(), nullptr, nullptr);
        return m_session.get();
    }

    Dwfl_Callbacks m_callbacks{};
    std::unique_ptr<Dwfl, decltype(&dwfl_end)> m_session{nullptr, dwfl_end};
    backward::details::demangler m_demangler;
};
#else
struct HighAddresses {
    void name(uintptr_t, backward::ResolvedTrace&) {}
};
#endif

/** The dynamic loader knows objects and exported names even without debug information. */
void name_by_loader(void* address, backward::ResolvedTrace& frame) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || !info.dli_fname) return;
    if (frame.object_filename.empty()) frame.object_filename = info.dli_fname;
    if (info.dli_sname) {
        frame.object_function = backward::details::demangler().demangle(info.dli_sname);
        return;
    }
    char offset[2 * sizeof(uintptr_t) + 1];
    const auto base = reinterpret_cast<uintptr_t>(info.dli_fbase);
    const auto end = std::to_chars(offset, std::end(offset), reinterpret_cast<uintptr_t>(address) - base, 16);
    const std::string& object = frame.object_filename;
    frame.object_function =
        object.substr(object.rfind('/') + 1) + "(+0x" + std::string(offset, end.ptr) + ")";
}

/** The library's resolver, with fallbacks for what it can't find. */
class FrameResolver {
 public:
    backward::ResolvedTrace resolve(void* address, size_t index) {
        m_resolver.load_addresses(&address, 1);
        backward::ResolvedTrace frame =
            m_resolver.resolve(backward::ResolvedTrace(backward::Trace(address, index)));
        if (frame.object_filename.empty()) m_high.name(reinterpret_cast<uintptr_t>(address), frame);
        if (frame.object_function.empty()) name_by_loader(address, frame);
        return frame;
    }

 private:
    backward::TraceResolver m_resolver;
    HighAddresses m_high;
};

backward::ResolvedTrace resolve(FrameResolver& resolver, const FixedTrace& trace, uint32_t index) {
    backward::ResolvedTrace frame = resolver.resolve(trace[index], index);
    if (trace.is_guess(index)) {
        frame.object_function.insert(0, GUESS_MARK);
        frame.source.function.insert(0, GUESS_MARK);
    }
    return frame;
}

std::string format_as_gdb(const FixedTrace& trace) {
    FrameResolver resolver;
    std::string text;
    for (uint32_t i = 0; i < trace.size(); ++i) {
        const backward::ResolvedTrace frame = resolve(resolver, trace, i);
        text += frame.object_function + " at " + frame.source.filename + ":" +
                std::to_string(frame.source.line) + "\n";
    }
    return text;
}

/** Frames for the printer, outermost first. Each is resolved only when it is printed, since that may take
 * long. */
class FrameIterator {
 public:
    FrameIterator(FrameResolver& resolver, const FixedTrace& trace, uint32_t left)
        : m_resolver(resolver), m_trace(trace), m_left(left) {}
    backward::ResolvedTrace operator*() const { return resolve(m_resolver, m_trace, m_left - 1); }
    void operator++() { --m_left; }
    bool operator!=(const FrameIterator& other) const { return m_left != other.m_left; }

 private:
    FrameResolver& m_resolver;
    const FixedTrace& m_trace;
    uint32_t m_left;
};

}  // namespace

class TraceWalk : public StackVisitor {
 public:
    TraceWalk(FixedTrace& trace, int64_t depth) : m_trace(trace), m_depth(depth) {}

    bool visit(const StackFrame& frame) override {
        if (frame.kind == StackFrame::INTERRUPTED) m_index = 0;
        if (m_index >= m_depth) return false;
        if (m_index >= 0) store(frame);
        ++m_index;
        return true;
    }
    int64_t index() const { return m_index; }

 private:
    void store(const StackFrame& frame) {
        uintptr_t address = frame.address;
#ifdef __arm__
        address &= ~uintptr_t{1};  // the Thumb bit
#endif
        // A return address may already belong to the next function.
        if (frame.kind != StackFrame::INTERRUPTED) --address;
        const uint32_t slot = m_trace.slot(static_cast<uint32_t>(m_index));
        m_trace.m_frames[slot] = reinterpret_cast<void*>(address);
        m_trace.m_guesses[slot] = frame.kind == StackFrame::GUESS;
    }

    FixedTrace& m_trace;
    int64_t m_depth;
    int64_t m_index = -1;  ///< the innermost frame is the capture itself
};

uint32_t FixedTrace::slot(uint32_t index) {
    if (index < m_size) return index;
    write_all(STDERR_FILENO, NO_SUCH_ELEMENT);
    return 0;
}

uint32_t FixedTrace::load_here(uint32_t depth) {
    m_size = 0;
    if (depth == 0) return 0;
    m_size = depth;
    if (depth > CAPACITY) {
        write_all(STDERR_FILENO, ENLARGE_REFUSED);
        m_size = CAPACITY;
    }
    TraceWalk walk(*this, depth);
    walk_stack(walk);
    if (walk.index() > CAPACITY)
        write_all(STDERR_FILENO, ENLARGE_REFUSED);
    else
        m_size = walk.index() > 0 ? static_cast<uint32_t>(walk.index()) : 0;
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
    FrameResolver resolver;
    backward::Printer().print(FrameIterator(resolver, trace, trace.size()), FrameIterator(resolver, trace, 0),
                              stderr);
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
    FrameResolver resolver;
};

Resolver::Resolver() : m_impl(std::make_unique<Impl>()) {}
Resolver::~Resolver() = default;

Resolver::Symbol Resolver::addr2symbol(const void* addr) {
    const backward::ResolvedTrace found = m_impl->resolver.resolve(const_cast<void*>(addr), 0);
    Symbol symbol;
    symbol.function = !found.source.function.empty() ? found.source.function : found.object_function;
    if (symbol.function.empty()) symbol.function = "N/A";
    symbol.file = !found.source.filename.empty() ? found.source.filename : found.object_filename;
    symbol.line = found.source.line;
    return symbol;
}

}  // namespace corvo::server
