#pragma once
// The process's own memory figures and address map, read from /proc. Stateless. If a file can't be read, the
// result is -1 or empty.

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace corvo {

class MemUtils {
 public:
    /** Index of the word in /proc/self/statm, counted from 1. */
    enum MemoryValue : int { VIRTUAL_MEMORY = 1, RESIDENT_MEMORY = 2 };

    struct MemMap {
        void* start;
        void* end;      ///< first address after the mapping
        uint32_t size;  ///< bytes; capped at its maximum from 4 GiB on
        int inode;      ///< 0 for anonymous memory
    };

    struct ProcessMem {
        long long virt = -1;      ///< bytes; -1 if unknown
        long long resident = -1;  ///< likewise
    };

    /** Both values, read at the same moment. */
    static ProcessMem get_process_mem();
    /** Bytes, or -1. */
    static long long get_process_mem_value(MemoryValue which);
    /** The number on the line of /proc/self/status that starts with `key`, in that line's unit, or -1. */
    static long long get_memory_value(const char* key);

    /** Replaces `maps` with the process's mappings, in ascending order. */
    static void get_maps(std::vector<MemMap>& maps);
    /** Finds the first mapping that overlaps or touches `start` to `end`. Sets `out` only if there is one. */
    static bool lookup(const void* start, const void* end, MemMap& out);
    /** Adds each line of /proc/self/status to `status`. */
    static void get_process_status(std::unordered_map<std::string, std::string>& status);

    /** The first digit in `text`, or null. */
    static char* get_first_numeric_index(const char* text);
    /**
     * The number on a line such as "VmRSS:  1234 kB
     * "; 0 if there is none. Strips the unit from the line.
     */
    static long get_numeric_value(char* line);
    /**
     * Word number `index`, counted from 1, of the blank-separated `line`, as a number. Modifies the line.
     * Returns 0 if the line has fewer words, -1 if `line` is null.
     */
    static long long get_word_with_index_from_line(char* line, int index);
};

}  // namespace corvo
