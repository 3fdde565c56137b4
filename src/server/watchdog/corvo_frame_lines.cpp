#include "server/watchdog/corvo_frame_lines.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <iterator>

#include "server/watchdog/corvo_sig_text.h"
#include "server/watchdog/corvo_symbol_file.h"

namespace corvo::server {
namespace {

void* as_pointer(uintptr_t address) {
    return reinterpret_cast<void*>(address);
}

/** The loader knows the program only by the name it was started with, which may be relative to another
 * folder. */
const char* file_of(const Dl_info& object) {
    Dl_info own{};
    dladdr(as_pointer(reinterpret_cast<uintptr_t>(&as_pointer)), &own);
    return object.dli_fbase == own.dli_fbase ? "/proc/self/exe" : object.dli_fname;
}

class HexText {
 public:
    explicit HexText(uintptr_t value) : m_begin(std::end(m_text) - 1) {
        *m_begin = '\0';
        do {
            *--m_begin = "0123456789abcdef"[value % 16];
            value /= 16;
        } while (value != 0);
    }
    const char* c_str() const { return m_begin; }

 private:
    char m_text[2 * sizeof(uintptr_t) + 1];
    char* m_begin;
};

}  // namespace

bool FrameLines::visit(const StackFrame& frame) {
    if (frame.kind == StackFrame::GUESS) write_all(m_fd, GUESS_MARK);
    void* address = as_pointer(frame.address);
    if (!write_by_file(frame)) backtrace_symbols_fd(&address, 1, m_fd);
    return ++m_count < MAX_FRAMES;
}

bool FrameLines::write_by_file(const StackFrame& frame) const {
    Dl_info object{};
    if (dladdr(as_pointer(frame.address), &object) == 0 || object.dli_sname || !object.dli_fname)
        return false;
    const uintptr_t offset = frame.address - reinterpret_cast<uintptr_t>(object.dli_fbase);
    SymbolFile symbols(file_of(object));
    // A call to a function that never returns may be its caller's last instruction; then the address after it
    // is another function's.
    if (!symbols.find(frame.kind == StackFrame::INTERRUPTED ? offset : offset - 1)) return false;
    const HexText within(offset - symbols.begin()), address(frame.address);
    for (const char* piece :
         {object.dli_fname, "(", symbols.name(), "+0x", within.c_str(), ")[0x", address.c_str(), "]\n"})
        write_all(m_fd, piece);
    return true;
}

}  // namespace corvo::server
