#pragma once
// The events directory next to the log file, and the collection of evidence about a child that ended
// abnormally. Best effort: failures are logged and affect only what they touch; nothing here throws.

#include <string>
#include <vector>

namespace corvo::server {

/** The events directory for this log file; ends in "/". */
std::string get_events_dest_dir_name(const std::string& log_file);
/** Directory name for an event that happens now: local time, to the second. */
std::string get_event_stamp();
/** The part after the last "/". */
std::string get_logfile_name(const std::string& log_file);

/** `dir` must end in "/". */
void create_events_dir(const std::string& dir);
/**
 * Moves the child's reports into a time-stamped directory, along with copies of the configuration and of the
 * log. `reports` are names in the events directory; missing ones aren't an error. Called when the child is
 * gone. `config_file` is the one in force, or empty if there is none.
 */
void collect_process_info(const std::string& log_file, const std::string& config_file,
                          const std::vector<std::string>& reports);
/**
 * `mode` is passed to the `open` of the source, which creates nothing. Only regular files count as
 * having content.
 */
void copy_file(const std::string& src, const std::string& dst, unsigned int mode);

}  // namespace corvo::server
