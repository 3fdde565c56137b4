#include "server/watchdog/corvo_symbol_file.h"

#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace corvo::server {
namespace {

using Header = ElfW(Ehdr);
using Section = ElfW(Shdr);
using Symbol = ElfW(Sym);

uintptr_t begin_of(const Symbol& symbol) {
#ifdef __arm__
    return symbol.st_value & ~uintptr_t{1};  // the Thumb bit
#else
    return symbol.st_value;
#endif
}

bool covers(const Symbol& symbol, uintptr_t offset) {
    // The type occupies the same bits in 32-bit and 64-bit ELF.
    return ELF32_ST_TYPE(symbol.st_info) == STT_FUNC && begin_of(symbol) <= offset &&
           offset - begin_of(symbol) < symbol.st_size;
}

}  // namespace

SymbolFile::SymbolFile(const char* path) : m_file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    Header header;
    if (!read_at(0, &header, sizeof header) || memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return;
    const auto read_section = [&](unsigned number, Section& section) {
        return read_at(uint64_t{header.e_shoff} + uint64_t{number} * sizeof section, &section,
                       sizeof section);
    };
    Section symbols, names;
    for (unsigned i = 0; i < header.e_shnum && read_section(i, symbols); ++i) {
        if (symbols.sh_type != SHT_SYMTAB || !read_section(symbols.sh_link, names)) continue;
        m_symbols = {symbols.sh_offset, symbols.sh_size};
        m_names = {names.sh_offset, names.sh_size};
        return;
    }
}

bool SymbolFile::find(uintptr_t offset) {
    Symbol some[64];
    for (uint64_t at = 0; at < m_symbols.size;) {
        const auto size = static_cast<size_t>(std::min<uint64_t>(sizeof some, m_symbols.size - at));
        if (!read_at(m_symbols.offset + at, some, size)) return false;
        const Symbol* const end = some + size / sizeof *some;
        const Symbol* const found =
            std::find_if(std::cbegin(some), end, [&](const Symbol& s) { return covers(s, offset); });
        if (found != end) {
            m_begin = begin_of(*found);
            return read_name(found->st_name);
        }
        at += size;
    }
    return false;
}

bool SymbolFile::read_at(uint64_t offset, void* to, size_t size) const {
    return pread(m_file.get(), to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool SymbolFile::read_name(uint64_t offset) {
    if (offset >= m_names.size) return false;
    const auto size = static_cast<size_t>(std::min<uint64_t>(sizeof m_name - 1, m_names.size - offset));
    if (!read_at(m_names.offset + offset, m_name, size)) return false;
    m_name[size] = '\0';
    return m_name[0] != '\0';
}

}  // namespace corvo::server
