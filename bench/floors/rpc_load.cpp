// Closed-loop clients of bench/compare in one thread: each has one request under way and sends the next on
// its reply.
//   rpc_load unix PATH | tcp PORT | stream PATH   REQUEST CLIENTS SECONDS PID...
// REQUEST goes as it is. `stream` keeps its connection, and a reply ends where its braces do. Prints the
// replies of the given time, their 99th percentile in µs, and the CPU time of the PIDs for each in µs.
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
enum class Kind { UNIX, TCP, STREAM };

/** As many as a datagram socket takes in. More would wait in the kernel, or be lost with their replies. */
constexpr size_t MOST_UNDER_WAY = 10;

struct Client {
    int fd = -1;
    int depth = 0;  ///< of the braces of a stream's reply
    Clock::time_point since;
};

[[noreturn]] void die(const char* what) {
    perror(what);
    exit(1);
}

class Load {
 public:
    Load(Kind kind, const char* where, std::string request) : kind_(kind), request_(std::move(request)) {
        if (kind == Kind::TCP) {
            request_ += '\n';
            port_.sin_family = AF_INET;
            port_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            port_.sin_port = htons(static_cast<uint16_t>(strtoul(where, nullptr, 10)));
        } else {
            path_.sun_family = AF_UNIX;
            strncpy(path_.sun_path, where, sizeof path_.sun_path - 1);
        }
    }

    void run(size_t clients, Clock::duration time) {
        clients_.resize(clients);
        for (auto& client : clients_) {
            if (kind_ != Kind::TCP) open(client);
            waiting_.push_back(&client);
        }
        latencies_us.clear();
        const auto end = Clock::now() + time;
        // What is under way is waited for: a request that is left behind would cost the next run.
        for (bool more = true; more || under_way_ > 0; more = Clock::now() < end) {
            while (more && !waiting_.empty() && under_way_ < MOST_UNDER_WAY) {
                send(*waiting_.front());
                waiting_.pop_front();
            }
            epoll_event events[MOST_UNDER_WAY];
            const int ready = epoll_wait(poller_, events, MOST_UNDER_WAY, 1000);
            if (ready == 0) die("rpc_load: no reply within a second");
            for (int i = 0; i < ready; ++i)
                receive(*static_cast<Client*>(events[i].data.ptr));
        }
        for (auto& client : clients_)
            close(client.fd);
        waiting_.clear();
        clients_.clear();
    }

    std::vector<double> latencies_us;

 private:
    void open(Client& client) {
        const bool tcp = kind_ == Kind::TCP;
        client.fd = socket(tcp ? AF_INET : AF_UNIX, kind_ == Kind::UNIX ? SOCK_DGRAM : SOCK_STREAM, 0);
        if (kind_ == Kind::UNIX) {
            // Beside the server's, in its folder, as real clients have names that the kernel looks up.
            sockaddr_un own = path_;
            snprintf(own.sun_path + strlen(own.sun_path), 16, ".%d", client.fd);
            unlink(own.sun_path);
            if (bind(client.fd, reinterpret_cast<sockaddr*>(&own), sizeof own) < 0) die("bind");
        }
        const auto* address = tcp ? reinterpret_cast<sockaddr*>(&port_) : reinterpret_cast<sockaddr*>(&path_);
        if (connect(client.fd, address, tcp ? sizeof port_ : sizeof path_) < 0) die("connect");
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = &client;
        if (epoll_ctl(poller_, EPOLL_CTL_ADD, client.fd, &event) < 0) die("epoll_ctl");
    }

    void send(Client& client) {
        client.since = Clock::now();
        if (kind_ == Kind::TCP) open(client);
        if (write(client.fd, request_.data(), request_.size()) < 0) die("write");
        ++under_way_;
    }

    void receive(Client& client) {
        static char text[65536];
        const ssize_t got = read(client.fd, text, sizeof text);
        if (got < 0) die("read");
        if (kind_ == Kind::TCP && got > 0) return;
        if (kind_ == Kind::TCP) close(client.fd);
        if (kind_ == Kind::STREAM) {
            client.depth +=
                static_cast<int>(std::count(text, text + got, '{') - std::count(text, text + got, '}'));
            if (client.depth != 0) return;
        }
        latencies_us.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - client.since).count());
        --under_way_;
        waiting_.push_back(&client);
    }

    Kind kind_;
    std::string request_;
    sockaddr_un path_{};
    sockaddr_in port_{};
    int poller_ = epoll_create1(0);
    std::vector<Client> clients_;
    std::deque<Client*> waiting_;
    size_t under_way_ = 0;
};

/** CPU time of all threads of the processes, in µs. */
double cpu_us(char** pids) {
    double sum_ns = 0;
    for (; *pids; ++pids) {
        for (const auto& thread :
             std::filesystem::directory_iterator("/proc/" + std::string(*pids) + "/task")) {
            double ns = 0;
            std::ifstream(thread.path() / "schedstat") >> ns;
            sum_ns += ns;
        }
    }
    return sum_ns / 1000;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 7) return 2;
    const std::string word = argv[1];
    Load load(word == "tcp" ? Kind::TCP : word == "stream" ? Kind::STREAM : Kind::UNIX, argv[2], argv[3]);
    const size_t clients = strtoul(argv[4], nullptr, 10);
    load.run(clients,
             std::chrono::milliseconds(100));  // what the first requests cost isn't what the later ones do
    const double before = cpu_us(argv + 6);
    const auto began = Clock::now();
    load.run(clients, std::chrono::milliseconds(static_cast<int>(strtod(argv[5], nullptr) * 1000)));
    const double seconds = std::chrono::duration<double>(Clock::now() - began).count();
    auto& all = load.latencies_us;
    if (all.empty()) return 1;
    const double cpu = (cpu_us(argv + 6) - before) / static_cast<double>(all.size());
    std::sort(all.begin(), all.end());
    printf("%.0f %.2f %.3f\n", static_cast<double>(all.size()) / seconds, all[all.size() * 99 / 100], cpu);
}
