#pragma once
// The events directory beside the log file, and the gathering of what is known about a child that ended
// abnormally. Best effort: failures are logged and cost only what they touch, and nothing here throws.

#include <string>
#include <vector>

namespace corvo::server {

/** The events directory of this log file; ends in "/". */
std::string get_events_dest_dir_name(const std::string& log_file);
/** Name of the directory of an event that happens now: local time, to the second. */
std::string get_event_stamp();
/** What stands behind the last "/". */
std::string get_logfile_name(const std::string& log_file);

/** `dir` ends in "/". */
void create_events_dir(const std::string& dir);
/**
 * Moves the reports that the child left into a stamped directory, beside copies of the configuration and of
 * the log. `reports` are names in the events directory; those that aren't there are no failure. Called when
 * the child is gone. `config_file` is the one in force, empty if there is none.
 */
void collect_process_info(const std::string& log_file, const std::string& config_file,
                          const std::vector<std::string>& reports);
/** `mode` goes to the `open` of the source, which creates nothing. Only regular files have a content here. */
void copy_file(const std::string& src, const std::string& dst, unsigned int mode);

}  // namespace corvo::server
