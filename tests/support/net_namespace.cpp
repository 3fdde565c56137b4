#include "support/net_namespace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace test {
namespace {

corvo::UniqueFd datagram_socket() {
    return corvo::UniqueFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

void require(bool worked, const char* what) {
    if (!worked) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

NetNamespace::NetNamespace()
    : m_home(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)),
      m_entered(m_home && unshare(CLONE_NEWNET) == 0) {
    if (m_entered) set_loopback(true);
}

NetNamespace::~NetNamespace() {
    if (m_entered && setns(m_home.get(), CLONE_NEWNET) < 0) std::abort();  // all later tests would be lost
}

void NetNamespace::set_loopback(bool up) {
    const corvo::UniqueFd fd = datagram_socket();
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    require(ioctl(fd.get(), SIOCGIFFLAGS, &request) == 0, "reading the flags of lo");
    request.ifr_flags = static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
    require(ioctl(fd.get(), SIOCSIFFLAGS, &request) == 0, "setting the flags of lo");
}

void NetNamespace::send_datagrams(uint16_t port, const std::vector<unsigned char>& payload, int count) {
    const corvo::UniqueFd receiver = datagram_socket();  // without one, ICMP would answer
    const corvo::UniqueFd sender = datagram_socket();
    sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    require(bind(receiver.get(), generic, sizeof address) == 0, "binding");
    for (int i = 0; i < count; i++)
        require(sendto(sender.get(), payload.data(), payload.size(), 0, generic, sizeof address) > 0,
                "sending");
}

}  // namespace test
