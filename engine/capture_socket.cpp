#include "capture_socket.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>

#include "engine_error.h"

namespace corvo::engine {
namespace {

/** Holds frames while the daemon is busy with something else. */
constexpr int RECEIVE_BUFFER = 4 << 20;

Error failure(const std::string& ifname, int error) {
    std::string hint = error == EPERM || error == EACCES ? " (capturing needs CAP_NET_RAW)" : "";
    return Error("can't capture from interface " + quoted(ifname) + reason(error) + hint);
}

unsigned index_of(const std::string& ifname) {
    bool possible = ifname.size() < IFNAMSIZ && ifname.find('\0') == std::string::npos;
    return possible ? if_nametoindex(ifname.c_str()) : 0;
}

ifreq request_for(const std::string& ifname) {
    ifreq request{};
    std::memcpy(request.ifr_name, ifname.data(), ifname.size());
    return request;
}

}  // namespace

FrameBatch::FrameBatch() : m_memory(new uint8_t[SIZE * SLOT]) {
    for (unsigned i = 0; i < SIZE; i++) {
        uint8_t* slot = &m_memory[i * SLOT];
        m_slots[i] = {slot, SLOT};
        m_messages[i] = {};
        m_messages[i].msg_hdr.msg_iov = &m_slots[i];
        m_messages[i].msg_hdr.msg_iovlen = 1;
        m_frames[i].data = slot;
    }
}

CaptureSocket::CaptureSocket(const std::string& ifname) : m_name(ifname) {
    unsigned index = index_of(ifname);
    if (index == 0) throw Error("there is no interface " + quoted(ifname));
    // The socket has no protocol until it is bound; otherwise it would receive frames from
    // all interfaces first.
    m_fd = OwnedFd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!m_fd) throw failure(ifname, errno);
    ifreq hardware = request_for(ifname);
    if (ioctl(fd(), SIOCGIFHWADDR, &hardware) < 0) throw failure(ifname, errno);
    bool loopback = hardware.ifr_hwaddr.sa_family == ARPHRD_LOOPBACK;
    if (!loopback && hardware.ifr_hwaddr.sa_family != ARPHRD_ETHER)
        throw Error("the frames of interface " + quoted(ifname) + " aren't Ethernet");
    int size = RECEIVE_BUFFER;
    if (setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) < 0)
        setsockopt(fd(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);  // as much as we are allowed
    int yes = 1;
    // Frames sent on a loopback interface are received again right away; without this each would
    // be seen twice.
    if (loopback && setsockopt(fd(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes, sizeof yes) < 0)
        throw failure(ifname, errno);
    bind_to(index);
}

void CaptureSocket::bind_to(unsigned index) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(index);
    if (bind(fd(), reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) throw failure(m_name, errno);
    m_index = index;
}

unsigned CaptureSocket::receive(FrameBatch& batch) {
    // With MSG_TRUNC, the length is that of the whole frame even if it didn't fit.
    int count = recvmmsg(fd(), batch.m_messages, FrameBatch::SIZE, MSG_DONTWAIT | MSG_TRUNC, nullptr);
    if (count < 0) {
        if (errno != EAGAIN && errno != EINTR) went_down(errno);
        return 0;
    }
    for (int i = 0; i < count; i++) {
        size_t length = batch.m_messages[i].msg_len;
        m_bytes += length;
        batch.m_frames[i].len = static_cast<uint16_t>(std::min(length, FrameBatch::SLOT));
    }
    m_packets += static_cast<unsigned>(count);
    return static_cast<unsigned>(count);
}

// The kernel reports this once and then stays silent, so a dead interface doesn't keep the main loop awake.
void CaptureSocket::went_down(int error) {
    m_up = false;
    m_downs++;
    m_problem = "interface " + quoted(m_name) + " can't be captured from" + reason(error);
}

void CaptureSocket::refresh() {
    tpacket_stats stats{};
    socklen_t size = sizeof stats;
    // Reading resets the kernel's counters to 0.
    if (getsockopt(fd(), SOL_PACKET, PACKET_STATISTICS, &stats, &size) == 0) m_drops += stats.tp_drops;
    if (m_up) return;
    unsigned index = index_of(m_name);
    if (index == 0 || !(flags() & IFF_UP)) return;
    if (index != m_index) {
        try {
            bind_to(index);
        } catch (const Error&) {
            return;  // try again in a second
        }
    }
    m_up = true;
}

short CaptureSocket::flags() const {
    ifreq request = request_for(m_name);
    return ioctl(fd(), SIOCGIFFLAGS, &request) == 0 ? request.ifr_flags : short{0};
}

}  // namespace corvo::engine
