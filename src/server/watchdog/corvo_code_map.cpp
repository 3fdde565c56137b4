#include "server/watchdog/corvo_code_map.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "utils/unique_fd.h"

/** Where the main thread's stack ends; arguments and environment lie beyond. Set by the loader. */
extern "C" void* __libc_stack_end;

namespace corvo::server {
namespace {

constexpr size_t WORD = sizeof(uintptr_t);
/** Enough for any stack but one in a runaway recursion. */
constexpr size_t MAX_SCAN = size_t{1} << 20;
/** A stack that has overflown points below its mapping. */
constexpr uintptr_t MAX_OVERFLOW = uintptr_t{1} << 20;

#if defined(__arm__)
/** Long enough for every call, and short enough for the first function of a mapping. */
constexpr size_t MAX_CALL = 4;

bool is_call_before(uintptr_t address) {
    const uintptr_t end = address & ~uintptr_t{1};
    if (address & 1) {
        uint16_t halves[2];
        memcpy(halves, reinterpret_cast<const void*>(end - sizeof halves), sizeof halves);
        const bool bl = (halves[0] & 0xF800) == 0xF000 && (halves[1] & 0xC000) == 0xC000;
        const bool blx_register = (halves[1] & 0xFF87) == 0x4780;
        return bl || blx_register;
    }
    if (end % 4 != 0) return false;
    uint32_t word = 0;
    memcpy(&word, reinterpret_cast<const void*>(end - sizeof word), sizeof word);
    const bool bl = (word & 0x0F000000) == 0x0B000000;
    const bool blx = (word & 0xFE000000) == 0xFA000000;
    const bool blx_register = (word & 0x0FFFFFF0) == 0x012FFF30;
    return bl || blx || blx_register;
}
#elif defined(__x86_64__)
constexpr size_t MAX_CALL = 7;

bool is_call_before(uintptr_t address) {
    constexpr unsigned char CALL = 0xE8, GROUP = 0xFF;
    const auto* end = reinterpret_cast<const unsigned char*>(address);
    if (end[-5] == CALL) return true;
    // An indirect call: a byte for the addressing mode, and up to five for the operand.
    for (int size = 2; size <= 7; ++size)
        if (end[-size] == GROUP && (end[-size + 1] & 0x38) == 0x10) return true;
    return false;
}
#else
constexpr size_t MAX_CALL = 0;

bool is_call_before(uintptr_t) {
    return true;
}
#endif

/** Reads hexadecimal digits and the character after them. */
uintptr_t take_hex(const char*& text) {
    uintptr_t value = 0;
    for (;; ++text) {
        const char c = *text;
        const bool letter = c >= 'a' && c <= 'f';
        if (!letter && (c < '0' || c > '9')) break;
        value = value * 16 + static_cast<uintptr_t>(letter ? c - 'a' + 10 : c - '0');
    }
    if (*text) ++text;
    return value;
}

/** Only the start of a line matters: two addresses and the permissions. */
constexpr size_t MAX_LINE = 40;

}  // namespace

bool CodeMap::read(uintptr_t sp) {
    const UniqueFd file(open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
    char line[MAX_LINE] = "";
    size_t length = 0;
    char chunk[1024];
    ssize_t got = 0;
    while ((got = ::read(file.get(), chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR))
        for (ssize_t i = 0; i < got; ++i) {
            if (chunk[i] != '\n') {
                if (length < MAX_LINE - 1) line[length++] = chunk[i];
                continue;
            }
            line[length] = '\0';
            take_line(line, sp);
            length = 0;
        }
    return m_count > 0;
}

void CodeMap::take_line(const char* line, uintptr_t sp) {
    Range range;
    range.begin = take_hex(line);
    range.end = take_hex(line);
    const bool readable = line[0] == 'r';
    if (!readable) return;
    const bool executable = line[1] && line[2] == 'x';
    if (executable && m_count < MAX_RANGES) m_code[m_count++] = range;
    if (m_stack.end == 0 && range.end > sp && (range.begin <= sp || range.begin - sp < MAX_OVERFLOW))
        m_stack = range;
}

bool CodeMap::is_code_before(uintptr_t end, size_t size) const {
    return std::any_of(m_code, m_code + m_count, [&](const Range& range) {
        return end > range.begin && end - range.begin >= size && end < range.end;
    });
}

bool CodeMap::is_behind_call(uintptr_t address) const {
    return is_code_before(address, MAX_CALL) && is_call_before(address);
}

void CodeMap::scan_from(uintptr_t sp) {
    const auto top = reinterpret_cast<uintptr_t>(__libc_stack_end);
    m_stack.begin = (std::max(sp, m_stack.begin) + WORD - 1) / WORD * WORD;
    if (top >= m_stack.begin) m_stack.end = std::min(m_stack.end, top);
    if (m_stack.end > m_stack.begin)
        m_stack.end = m_stack.begin + std::min(m_stack.end - m_stack.begin, MAX_SCAN);
}

// Reads the whole stack, including the parts that a sanitizer has poisoned.
[[gnu::no_sanitize_address]] uintptr_t CodeMap::next_return_address() {
    while (m_stack.begin + WORD <= m_stack.end) {
        const uintptr_t word = *reinterpret_cast<const volatile uintptr_t*>(m_stack.begin);
        m_stack.begin += WORD;
        if (is_behind_call(word)) return word;
    }
    return 0;
}

}  // namespace corvo::server
