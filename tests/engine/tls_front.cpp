#include "engine/tls_front.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace test {

TlsFront::TlsFront(uint16_t clear_port) {
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "
        "/CN=localhost "
        "-addext subjectAltName=DNS:localhost -keyout '" +
        m_dir.file("key") + "' -out '" + certificate() + "' 2>/dev/null";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl made no certificate");
    start(clear_port);
    await_port();
}

TlsFront::~TlsFront() {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    close(m_notes);
}

void TlsFront::start(uint16_t clear_port) {
    const std::string listen =
        "OPENSSL-LISTEN:0,pf=ip4,bind=127.0.0.1,verify=0,cert=" + certificate() + ",key=" + m_dir.file("key");
    const std::string forward = "TCP4:127.0.0.1:" + std::to_string(clear_port);
    int notes[2];
    if (pipe2(notes, O_CLOEXEC) < 0) throw std::runtime_error("no pipe");
    m_pid = fork();
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(notes[1], STDERR_FILENO);
        execlp("socat", "socat", "-d", "-d", listen.c_str(), forward.c_str(), nullptr);
        _exit(127);
    }
    close(notes[1]);
    m_notes = notes[0];
}

void TlsFront::await_port() {
    const std::string before = "listening on AF=2 127.0.0.1:";
    std::string said;
    for (char c; read(m_notes, &c, 1) == 1;) {
        if (c != '\n') {
            said += c;
            continue;
        }
        const size_t at = said.find(before);
        if (at != std::string::npos) {
            m_port = static_cast<uint16_t>(std::atoi(said.c_str() + at + before.size()));
            return;
        }
        said.clear();
    }
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    close(m_notes);
    throw std::runtime_error("socat doesn't listen");
}

}  // namespace test
