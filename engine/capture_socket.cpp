#include "capture_socket.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>
#include <system_error>

#include "engine_error.h"

namespace corvo::engine {
namespace {

// PACKET_IGNORE_OUTGOING for a whole group. Linux before 6.2 ignores it: loopback's frames come twice.
constexpr unsigned FANOUT_IGNORE_OUTGOING = 0x4000;

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

CaptureSocket::CaptureSocket(const std::string& ifname, size_t ring_bytes, FanoutGroup* group)
    : m_name(ifname), m_ring_bytes(ring_bytes), m_group(group), m_index(index_of(ifname)) {
    if (m_index == 0) throw Error("there is no interface " + quoted(ifname));
    m_source = open(m_index);
}

CaptureSocket::Source CaptureSocket::open(unsigned index) const {
    Source out;
    // The socket has no protocol until it is bound; otherwise it would receive frames from
    // all interfaces first.
    out.fd = OwnedFd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int fd = out.fd.get();
    if (!out.fd) throw failure(m_name, errno);
    ifreq hardware = request_for(m_name);
    if (ioctl(fd, SIOCGIFHWADDR, &hardware) < 0) throw failure(m_name, errno);
    const bool loopback = hardware.ifr_hwaddr.sa_family == ARPHRD_LOOPBACK;
    if (!loopback && hardware.ifr_hwaddr.sa_family != ARPHRD_ETHER)
        throw Error("the frames of interface " + quoted(m_name) + " aren't Ethernet");
    int yes = 1;
    // Frames sent on a loopback interface are received again right away; without this each would
    // be seen twice.
    if (loopback && setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes, sizeof yes) < 0)
        throw failure(m_name, errno);
    try {
        out.ring = std::make_unique<PacketRing>(fd, m_ring_bytes);
    } catch (const std::system_error& e) {
        throw failure(m_name, e.code().value());
    }
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(index);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) throw failure(m_name, errno);
    if (m_group) join_group(fd, index, loopback);
    return out;
}

// Fragments are put together first: the later ones don't say which flow they belong to.
void CaptureSocket::join_group(int fd, unsigned index, bool loopback) const {
    const bool is_first = m_group->index != index;
    const unsigned flags =
        PACKET_FANOUT_HASH | PACKET_FANOUT_FLAG_DEFRAG | (loopback ? FANOUT_IGNORE_OUTGOING : 0U);
    unsigned group = is_first ? (flags | PACKET_FANOUT_FLAG_UNIQUEID) << 16 : flags << 16 | m_group->id;
    if (setsockopt(fd, SOL_PACKET, PACKET_FANOUT, &group, sizeof group) < 0) throw failure(m_name, errno);
    socklen_t size = sizeof group;
    if (getsockopt(fd, SOL_PACKET, PACKET_FANOUT, &group, &size) < 0) throw failure(m_name, errno);
    *m_group = {index, static_cast<uint16_t>(group)};
}

unsigned CaptureSocket::receive(CapturedFrame* frames, unsigned max) {
    const unsigned count = m_source.ring->take(frames, max);
    if (count == 0 && m_was_idle) look_for_error();
    m_was_idle = count == 0;
    m_packets += count;
    for (unsigned i = 0; i < count; i++)
        m_bytes += frames[i].wire_len;
    return count;
}

// The kernel reports an interface that is gone once and then stays silent, so it doesn't keep the main loop
// awake.
void CaptureSocket::look_for_error() {
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(fd(), SOL_SOCKET, SO_ERROR, &error, &size) < 0 || error == 0) return;
    m_up = false;
    m_downs++;
    m_problem = "interface " + quoted(m_name) + " can't be captured from" + reason(error);
}

bool CaptureSocket::refresh() {
    tpacket_stats_v3 stats{};
    socklen_t size = sizeof stats;
    // Reading resets the kernel's counters to 0.
    if (getsockopt(fd(), SOL_PACKET, PACKET_STATISTICS, &stats, &size) == 0) m_drops += stats.tp_drops;
    const unsigned index = m_up ? 0 : index_of(m_name);
    if (index == 0 || !(flags() & IFF_UP)) return false;
    if (index == m_index) {
        m_up = true;
        return false;
    }
    try {
        m_source = open(index);
    } catch (const Error&) {
        return false;  // try again in a second
    }
    m_index = index;
    return m_up = true;
}

short CaptureSocket::flags() const {
    ifreq request = request_for(m_name);
    return ioctl(fd(), SIOCGIFFLAGS, &request) == 0 ? request.ifr_flags : short{0};
}

}  // namespace corvo::engine
