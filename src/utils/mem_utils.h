#pragma once
// The process's own memory figures and address map, read from /proc. No state. A file that can't be read
// gives -1, or an empty result.

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace corvo {

class MemUtils {
 public:
    /** Which word of /proc/self/statm, counted from 1. */
    enum MemoryValue : int { VIRTUAL_MEMORY = 1, RESIDENT_MEMORY = 2 };

    struct MemMap {
        void* start;
        void* end;      ///< first address behind the mapping
        uint32_t size;  ///< bytes; stays at its maximum from 4 GiB on
        int inode;      ///< 0 for anonymous memory
    };

    struct ProcessMem {
        long long virt = -1;      ///< bytes, -1: not known
        long long resident = -1;  ///< likewise
    };

    /** Both values of one moment. */
    static ProcessMem get_process_mem();
    /** Bytes, or -1. */
    static long long get_process_mem_value(MemoryValue which);
    /** The number on the line of /proc/self/status that starts with `key`, in the line's unit, or -1. */
    static long long get_memory_value(const char* key);

    /** Replaces `maps` by the process's mappings, in rising order. */
    static void get_maps(std::vector<MemMap>& maps);
    /** The first mapping that overlaps or touches `start` to `end`; `out` is set only if there is one. */
    static bool lookup(const void* start, const void* end, MemMap& out);
    /** Enters each line of /proc/self/status. */
    static void get_process_status(std::unordered_map<std::string, std::string>& status);

    /** The first digit in `text`, or null. */
    static char* get_first_numeric_index(const char* text);
    /** The number on a line such as "VmRSS:  1234 kB\n"; 0 if there is none. Cuts the unit off the line. */
    static long get_numeric_value(char* line);
    /**
     * Word number `index`, counted from 1, of the blank-separated `line`, as a number. Destroys the line.
     * A line with fewer words gives 0, no line -1.
     */
    static long long get_word_with_index_from_line(char* line, int index);
};

}  // namespace corvo
