#include "client/wire/own_socket.h"

#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "client/text/temp_file.h"
#include "utils/unique_fd.h"

namespace brumectl {

namespace {

constexpr const char* FOLDER_NAME = "/brumectl-socket-";
/** Everybody may pass through; nobody else may list or add files. */
constexpr mode_t FOLDER_MODE = 0711;
/** The daemon may run as any user. */
constexpr mode_t SOCKET_MODE = 0622;

/** Compares files, as links may give one file two names. */
bool is_same_file(const std::string& a, const std::string& b) {
    struct stat one = {}, other = {};
    return stat(a.c_str(), &one) == 0 && stat(b.c_str(), &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

std::string last_part(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/** A folder without a socket is that old if the program that made it was killed before it could bind. */
constexpr time_t MAX_BINDING_SEC = 60;

/** Whether nobody has this socket open, or will: then a program left it, or its folder, when it was killed.
 */
bool is_dead(const std::string& socket_path, time_t folder_changed) {
    const corvo::UniqueFd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = Address::parse(socket_path).unix_address();
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return false;
    return errno == ECONNREFUSED || (errno == ENOENT && time(nullptr) - folder_changed > MAX_BINDING_SEC);
}

void remove_dead_folders(const std::string& parent) {
    std::error_code ignored;
    for (std::filesystem::directory_iterator at(parent, ignored), end; !ignored && at != end;
         at.increment(ignored)) {
        const std::string path = at->path().string();
        struct stat st = {};
        if (path.rfind(parent + FOLDER_NAME, 0) != 0 || lstat(path.c_str(), &st) != 0) continue;
        if (!S_ISDIR(st.st_mode) || st.st_uid != geteuid() || !is_dead(path + "/s", st.st_mtime)) continue;
        unlink((path + "/s").c_str());
        rmdir(path.c_str());
    }
}

/** Folders that the daemon probably sees under the same name. */
std::vector<std::string> parents(const Address& address) {
    std::vector<std::string> out;
    const std::string folder = std::filesystem::absolute(address.path).parent_path().string();
    if (access(folder.c_str(), W_OK | X_OK) == 0) out.push_back(folder);
    out.push_back(temp_folder());
    return out;
}

/** The mode is set before the socket has a name, because later the name may refer to something else. */
int bind_path(int fd, const std::string& path) {
    sockaddr_un own = {};
    if (path.size() >= sizeof(own.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    own.sun_family = AF_UNIX;
    memcpy(own.sun_path, path.c_str(), path.size() + 1);
    if (fchmod(fd, SOCKET_MODE) != 0) return -1;
    const mode_t before = umask(0);
    const int rc = bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof(own));
    umask(before);
    return rc;
}

}  // namespace

// Doesn't use mkdtemp, which would require setting the mode afterwards by name.
PrivateFolder::PrivateFolder(const std::string& parent) {
    uint64_t random = 0;
    char name[20];
    if (getrandom(&random, sizeof(random), 0) != sizeof(random)) return;
    snprintf(name, sizeof(name), "%016" PRIx64, random);
    const std::string path = parent + FOLDER_NAME + name;
    const mode_t before = umask(0);
    if (mkdir(path.c_str(), FOLDER_MODE) == 0) m_path = path;
    umask(before);
}

PrivateFolder::~PrivateFolder() {
    if (m_path.empty()) return;
    unlink(socket_path().c_str());
    rmdir(m_path.c_str());
}

bool is_in_our_network(const std::string& path) {
    std::ifstream sockets("/proc/net/unix");
    const std::string name = last_part(path);
    for (std::string line; std::getline(sockets, line);) {
        // Num RefCount Protocol Flags Type St Inode Path, where the path may contain blanks.
        std::istringstream fields(line);
        std::string field;
        for (int i = 0; i < 7; ++i)
            fields >> field;
        std::string bound;
        if (!std::getline(fields >> std::ws, bound) || last_part(bound) != name) continue;
        // A name that doesn't exist here was bound where files have other names: most likely it is ours.
        if (bound.front() != '/' || access(bound.c_str(), F_OK) != 0 || is_same_file(bound, path))
            return true;
    }
    return false;
}

int bind_own_name(int fd, const Address& address, std::unique_ptr<PrivateFolder>& folder) {
    sockaddr_un own = {};
    own.sun_family = AF_UNIX;
    if (is_in_our_network(address.path))
        return bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof(sa_family_t));
    for (const std::string& parent : parents(address)) {
        remove_dead_folders(parent);
        folder = std::make_unique<PrivateFolder>(parent);
        if (!folder->path().empty() && bind_path(fd, folder->socket_path()) == 0) return 0;
        const int err = errno;
        folder.reset();
        errno = err;
    }
    return -1;
}

}  // namespace brumectl
