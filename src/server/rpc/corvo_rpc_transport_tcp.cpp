#include "server/rpc/corvo_rpc_transport_tcp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "infra/corvo_logger.h"
#include "utils/exception.h"
#include "utils/net_utils.h"

namespace corvo::rpc {

namespace {

const std::string COMP = "server";

constexpr size_t READ_CHUNK = 16384;
constexpr int LISTEN_BACKLOG = 10;
constexpr int MAX_DISCARDED_CHUNKS = 64;

/**
 * Closing a socket with unread bytes resets the connection and loses the unsent end of a reply, so whatever a
 * peer sent after its request is discarded first, within limits.
 */
void discard_unread(int fd) {
    char chunk[READ_CHUNK];
    for (int i = 0; i < MAX_DISCARDED_CHUNKS; ++i)
        if (recv(fd, chunk, sizeof(chunk), MSG_DONTWAIT) <= 0) return;
}

}  // namespace

RpcTransportTCP::RpcTransportTCP(const std::string& ip, unsigned short port) : m_ip(ip), m_port(port) {}

RpcTransport* RpcTransportTCP::clone() {
    auto copy = std::make_unique<RpcTransportTCP>(m_ip, m_port);
    copy->m_fd = m_fd;
    return copy.release();
}

void RpcTransportTCP::connect(bool) {
    CORVO_LOG(DEBUG, COMP, "Creating TCP socket: %s:%u", m_ip.c_str(), m_port);
    UniqueFd socket_fd(lift_fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)));
    if (!socket_fd) throw Exception("socket failed", errno);
    int on = 1;
    if (setsockopt(socket_fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0)
        throw Exception("setsockopt failed", errno);
    // Inherited by the connections. An out-of-line urgent byte would never be read, keep raising every
    // registration and wake its worker without end.
    setsockopt(socket_fd.get(), SOL_SOCKET, SO_OOBINLINE, &on, sizeof(on));

    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    if (inet_aton(m_ip.c_str(), &address.sin_addr) == 0) throw Exception("invalid IP address: " + m_ip);
    if (bind(socket_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        throw Exception("Failed to bind address [TCP " + m_ip + ":" + std::to_string(m_port) + "]", errno);
    if (listen(socket_fd.get(), LISTEN_BACKLOG) != 0) throw Exception("listen failed", errno);
    m_socket = std::move(socket_fd);
    m_fd = m_socket.get();
}

void RpcTransportTCP::disconnect() {
    CORVO_LOG(DEBUG, COMP, "Destroying TCP socket: %s:%u", m_ip.c_str(), m_port);
    m_fd = -1;
    if (!m_socket) return;
    discard_unread(m_socket.get());
    m_socket.reset();
}

std::unique_ptr<RpcTransport> RpcTransportTCP::accept_conn() {
    sockaddr_in peer = {};
    socklen_t len = sizeof(peer);
    UniqueFd connection(
        lift_fd(accept4(m_fd, reinterpret_cast<sockaddr*>(&peer), &len, SOCK_NONBLOCK | SOCK_CLOEXEC)));
    if (!connection) {
        if (errno != EINTR && errno != EAGAIN) CORVO_LOG(ERROR, COMP, "accept failed: %s", strerror(errno));
        return nullptr;
    }
    const std::string ip = NetUtils::ip2str(ntohl(peer.sin_addr.s_addr));
    CORVO_LOG(DEBUG, COMP, "Received new request from %s:%u", ip.c_str(), ntohs(peer.sin_port));
    auto transport = std::make_unique<RpcTransportTCP>(ip, ntohs(peer.sin_port));
    transport->m_socket = std::move(connection);
    transport->m_fd = transport->m_socket.get();
    return transport;
}

std::unique_ptr<RpcRequest> RpcTransportTCP::accept_and_recv_msg() {
    m_accepted = accept_conn();
    if (!m_accepted) return nullptr;
    return m_accepted->recv_msg();
}

std::unique_ptr<RpcRequest> RpcTransportTCP::recv_msg() {
    return recv_msg_int(m_fd);
}

int RpcTransportTCP::read_socket(int fd) {
    char chunk[READ_CHUNK];
    ssize_t len;
    do {
        len = recv(fd, chunk, sizeof(chunk), 0);
        if (len > 0) m_received.append(chunk, static_cast<size_t>(len));
    } while (len == static_cast<ssize_t>(sizeof(chunk)) && m_received.size() <= MAX_MSG_SIZE);
    return static_cast<int>(len);
}

std::unique_ptr<RpcRequest> RpcTransportTCP::recv_msg_int(int fd) {
    int len = read_socket(fd);
    int err = errno;
    if (m_received.size() > MAX_MSG_SIZE) return std::make_unique<RpcRequestTCP>(fd, RpcRequest::RC_TOO_LONG);
    if (len > 0 || (len < 0 && err == EAGAIN)) return msg_term_checks(fd);
    if (len == 0) {
        // If a request ends exactly at a read boundary, the peer's end shows up in the same call. The request
        // is complete all the same, and the peer may have closed only its sending side.
        if (has_line()) return msg_term_checks(fd);
        return std::make_unique<RpcRequestTCP>(-1, RpcRequest::RC_PEER_CLOSED);
    }
    CORVO_LOG(ERROR, COMP, "recv failed: %s", strerror(err));
    return std::make_unique<RpcRequestTCP>(fd, RpcRequest::RC_ERROR);
}

bool RpcTransportTCP::has_line() {
    size_t line_feed = m_received.find('\n', m_searched);
    m_searched = line_feed == std::string::npos ? m_received.size() : line_feed;
    return line_feed != std::string::npos;
}

std::unique_ptr<RpcRequest> RpcTransportTCP::msg_term_checks(int fd) {
    if (!has_line()) {
        m_held_bytes = m_received.capacity();
        return std::make_unique<RpcRequestTCP>(fd, RpcRequest::RC_IN_PROGRESS);
    }
    auto request = std::make_unique<RpcRequestTCP>(fd, RpcRequest::RC_OK);
    request->set_text(std::exchange(m_received, {}));
    m_searched = 0;
    m_held_bytes = 0;
    return request;
}

RpcRequest::rc_e RpcRequestTCP::reply_int() {
    if (!response.ends_with('\n')) response.push_back('\n');
    size_t remaining = response.size() - sent;
    ssize_t len = send(fd, response.data() + sent, remaining, MSG_DONTWAIT | MSG_NOSIGNAL);
    int err = errno;
    CORVO_LOG(DEBUG, COMP, "Response size: %zu. Bytes sent: %zd", remaining, len);
    if (len >= static_cast<ssize_t>(remaining)) return RC_OK;
    if (len > 0) {
        sent += static_cast<uint32_t>(len);
        return RC_IN_PROGRESS;
    }
    if (err == EAGAIN) {
        CORVO_LOG(DEBUG, COMP,
                  "sendto failed: %s, the rest of the message should be attempted to be sent again",
                  strerror(err));
        return RC_IN_PROGRESS;
    }
    CORVO_LOG(ERROR, COMP, "sendto failed: %s", strerror(err));
    return RC_ERROR;
}

}  // namespace corvo::rpc
