#include "client/classify/copies.h"

#include <unistd.h>

namespace brumectl {

const std::optional<FileReader>& Copies::reader() {
    if (!m_has_looked) m_reader = FileReader::of_daemon(m_daemon);
    m_has_looked = true;
    return m_reader;
}

bool Copies::can_do_without(const std::string& capture) {
    return !reader() || reader()->user == geteuid() || reader()->may_open(capture);
}

std::unique_ptr<TempFile> Copies::create(const std::string& capture) {
    auto copy = std::make_unique<TempFile>(temp_folder() + "/brumectl-", 0600);
    let_in(*copy, capture);
    return copy;
}

void Copies::let_in(TempFile& copy, const std::string& capture) {
    if (reader() && (reader()->passes_modes || reader()->user == geteuid())) return;
    if (reader() && copy.give_to_group(reader()->groups.front())) return;
    if (!m_has_told && !FileReader::everybody().may_open(capture))
        m_tell("while the daemon reads them, everybody on this machine can read the copies in " +
               temp_folder() + ": " +
               (reader() ? "you aren't in the daemon's group" : "who the daemon runs as can't be told"));
    m_has_told = true;
    copy.set_mode(0644);
}

}  // namespace brumectl
