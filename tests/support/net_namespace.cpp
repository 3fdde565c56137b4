#include "support/net_namespace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

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
    require(system(up ? "ip link set lo up" : "ip link set lo down") == 0, "ip link");
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
