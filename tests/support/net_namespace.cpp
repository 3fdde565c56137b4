#include "support/net_namespace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace test {
namespace {

class DatagramSocket {
 public:
    DatagramSocket() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;
    ~DatagramSocket() { close(m_fd); }
    operator int() const { return m_fd; }

 private:
    int m_fd;
};

void require(bool worked, const char* what) {
    if (!worked) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

NetNamespace::NetNamespace()
    : m_home(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)),
      m_entered(m_home >= 0 && unshare(CLONE_NEWNET) == 0) {
    if (m_entered) set_loopback(true);
}

NetNamespace::~NetNamespace() {
    if (m_entered && setns(m_home, CLONE_NEWNET) < 0) std::abort();  // all later tests would be lost
    if (m_home >= 0) close(m_home);
}

void NetNamespace::set_loopback(bool up) {
    DatagramSocket fd;
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    require(ioctl(fd, SIOCGIFFLAGS, &request) == 0, "reading the flags of lo");
    request.ifr_flags = static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
    require(ioctl(fd, SIOCSIFFLAGS, &request) == 0, "setting the flags of lo");
}

void NetNamespace::send_datagrams(uint16_t port, const std::vector<unsigned char>& payload, int count) {
    DatagramSocket receiver;  // without one, ICMP would answer
    DatagramSocket sender;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    require(bind(receiver, generic, sizeof address) == 0, "binding");
    for (int i = 0; i < count; i++)
        require(sendto(sender, payload.data(), payload.size(), 0, generic, sizeof address) > 0, "sending");
}

}  // namespace test
